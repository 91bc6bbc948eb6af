// A profiler that stands between the runtime and the one under test, to tell a test what passed
// between them. It hands out the real object with some callbacks replaced by its own, which call
// the real ones and report to the debugger output. The real library is named by
// CORVANE_WITNESS_TARGET. One object a process; callbacks arrive on any thread.
#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "tests/support/test_profiler.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>

namespace {

using corvane::ComPtr;

// What a C++ class keeps before the first slot of its table.
constexpr std::size_t kHeaderWords = 2;
constexpr std::size_t kSlots = clr_slots::kProfilerDetachSucceeded + 1;

std::array<void*, kHeaderWords + kSlots> original;
std::array<void*, kHeaderWords + kSlots> replaced;

std::atomic<int> module_loads = 0;
std::atomic<int> failed_module_loads = 0;
std::atomic<int> compilations = 0;

template <class... Arguments>
HRESULT call_original(std::size_t slot, ICorProfilerCallback3* self, Arguments... arguments) {
    using Method = HRESULT(STDMETHODCALLTYPE*)(ICorProfilerCallback3*, Arguments...);
    return reinterpret_cast<Method>(original[kHeaderWords + slot])(self, arguments...);
}

template <class... Values>
void report(const wchar_t* format, Values... values) {
    wchar_t line[100] = {};
    _snwprintf(line, std::size(line) - 1, format, values...);
    OutputDebugStringW(line);
}

HRESULT STDMETHODCALLTYPE initialize(ICorProfilerCallback3* self, IUnknown* info) {
    const HRESULT result = call_original(clr_slots::kInitialize, self, info);
    report(L"witness: Initialize=0x%08lX", result);
    ComPtr<ICorProfilerInfo> runtime;
    DWORD events = 0;
    HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), runtime.put_void());
    if (SUCCEEDED(hr)) {
        hr = runtime->GetEventMask(&events);
    }
    if (FAILED(hr)) {
        report(L"witness: GetEventMask failed with 0x%08lX", hr);
    } else {
        report(L"witness: GetEventMask=0x%08lX", events);
    }
    return result;
}

HRESULT STDMETHODCALLTYPE module_load_finished(ICorProfilerCallback3* self, ModuleID module,
                                               HRESULT status) {
    const HRESULT result = call_original(clr_slots::kModuleLoadFinished, self, module, status);
    ++module_loads;
    failed_module_loads += result == S_OK ? 0 : 1;
    return result;
}

HRESULT STDMETHODCALLTYPE jit_compilation_started(ICorProfilerCallback3* self, FunctionID function,
                                                  BOOL is_safe_to_block) {
    ++compilations;
    return call_original(clr_slots::kJITCompilationStarted, self, function, is_safe_to_block);
}

HRESULT STDMETHODCALLTYPE shutdown(ICorProfilerCallback3* self) {
    report(L"witness: ModuleLoadFinished calls=%d failed=%d", module_loads.load(),
           failed_module_loads.load());
    report(L"witness: JITCompilationStarted calls=%d", compilations.load());
    return call_original(clr_slots::kShutdown, self);
}

// Puts the replaced callbacks between `object`, whose first base is the callback table, and whoever
// calls it from now on.
void stand_between(void* object) {
    void**& table = *static_cast<void***>(object);
    std::copy_n(table - kHeaderWords, original.size(), original.begin());
    replaced = original;
    const auto replace = [](std::size_t slot, auto* method) {
        replaced[kHeaderWords + slot] = reinterpret_cast<void*>(method);
    };
    replace(clr_slots::kInitialize, &initialize);
    replace(clr_slots::kShutdown, &shutdown);
    replace(clr_slots::kModuleLoadFinished, &module_load_finished);
    replace(clr_slots::kJITCompilationStarted, &jit_compilation_started);
    table = replaced.data() + kHeaderWords;
}

class WitnessFactory final : public corvane::testing::ImmortalClassFactory {
public:
    ComPtr<IClassFactory> real;

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        ComPtr<ICorProfilerCallback3> created;
        HRESULT hr =
            real->CreateInstance(outer, __uuidof(ICorProfilerCallback3), created.put_void());
        if (SUCCEEDED(hr)) {
            stand_between(created.get());
            hr = created->QueryInterface(iid, object);
        }
        return hr;
    }
};

WitnessFactory& witness_factory() {
    static WitnessFactory& factory = *new WitnessFactory(); // outlives everything
    return factory;
}

} // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
    wchar_t target[MAX_PATH] = {};
    GetEnvironmentVariableW(L"CORVANE_WITNESS_TARGET", target, MAX_PATH);
    const HMODULE library = LoadLibraryW(target);
    if (library == nullptr) {
        report(L"witness: the target cannot be loaded (%lu)", GetLastError());
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    void* const function = reinterpret_cast<void*>(GetProcAddress(library, "DllGetClassObject"));
    WitnessFactory& factory = witness_factory();
    const HRESULT hr = reinterpret_cast<GetClassObject>(function)(clsid, __uuidof(IClassFactory),
                                                                  factory.real.put_void());
    return FAILED(hr) ? hr : factory.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}
