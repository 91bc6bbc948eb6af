#include "tests/support/between.h"

#include "clr/com_ptr.h"
#include "tests/support/test_profiler.h"

#include <algorithm>
#include <array>

namespace corvane::testing {
namespace {

// What a C++ class keeps before the first slot of its table.
constexpr std::size_t kHeaderWords = 2;
constexpr std::size_t kSlots = clr_slots::kProfilerDetachSucceeded + 1;

std::array<void*, kHeaderWords + kSlots> original;
std::array<void*, kHeaderWords + kSlots> replaced;

// Between `object`, whose first base is the callback table, and whoever calls it from now on.
void stand_before(void* object) {
    void**& table = *static_cast<void***>(object);
    std::copy_n(table - kHeaderWords, original.size(), original.begin());
    replaced = original;
    stand_between();
    table = replaced.data() + kHeaderWords;
}

class BetweenFactory final : public ImmortalClassFactory {
public:
    ComPtr<IClassFactory> real;

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        ComPtr<ICorProfilerCallback3> created;
        HRESULT hr =
            real->CreateInstance(outer, __uuidof(ICorProfilerCallback3), created.put_void());
        if (SUCCEEDED(hr)) {
            stand_before(created.get());
            hr = created->QueryInterface(iid, object);
        }
        return hr;
    }
};

BetweenFactory& between_factory() {
    static BetweenFactory& factory = *new BetweenFactory(); // outlives everything
    return factory;
}

} // namespace

void* original_callback(std::size_t slot) {
    return original[kHeaderWords + slot];
}

void replace_callback(std::size_t slot, void* method) {
    replaced[kHeaderWords + slot] = method;
}

} // namespace corvane::testing

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
    wchar_t target[MAX_PATH] = {};
    GetEnvironmentVariableW(L"CORVANE_WITNESS_TARGET", target, MAX_PATH);
    const HMODULE library = LoadLibraryW(target);
    if (library == nullptr) {
        OutputDebugStringW(L"witness: the target cannot be loaded");
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    void* const function = reinterpret_cast<void*>(GetProcAddress(library, "DllGetClassObject"));
    auto& factory = corvane::testing::between_factory();
    const HRESULT hr = reinterpret_cast<GetClassObject>(function)(clsid, __uuidof(IClassFactory),
                                                                  factory.real.put_void());
    return FAILED(hr) ? hr : factory.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}
