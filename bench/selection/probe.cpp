// The profiler that the benchmark's runtime loads. It hands out the callback object that
// CORVANE_PROBE names and takes the time of every JITCompilationStarted of it, at the entry of its
// table, from the runtime's side:
//   a path   the object of that profiler
//   floor    one that asks the runtime what ours asks, in the same order, and does nothing with it
//   idle     one that does nothing
// At the end the file CORVANE_PROBE_OUTPUT gets what the process took (process_costs.h), then the
// times, in ticks of the processor's clock.
// One object a process; the runtime that is measured compiles on one thread.
#include "bench/selection/process_costs.h"
#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "profiler/callback_impl.h"
#include "tests/support/test_profiler.h"

#include <intrin.h>
#include <psapi.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

namespace {

using corvane::ComPtr;
namespace measuring = corvane::measuring;

constexpr DWORD kEvents = 0x10020224; // what ours subscribes to by default

std::wstring variable(const wchar_t* name) {
    wchar_t value[1024] = {};
    GetEnvironmentVariableW(name, value, 1024);
    return value;
}

// --- The profilers that ours is held against

// Does nothing when a method is compiled.
class Idle : public corvane::CorvaneCorProfilerCallbackImpl {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerCallback) ||
                           iid == __uuidof(ICorProfilerCallback2) ||
                           iid == __uuidof(ICorProfilerCallback3);
        *object = known ? static_cast<ICorProfilerCallback3*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; } // lives as long as the process
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) override {
        const HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), info_.put_void());
        return FAILED(hr) ? hr : info_->SetEventMask(kEvents);
    }

protected:
    ComPtr<ICorProfilerInfo> info_;
};

// Describes the method into memory that is there already.
class Floor final : public Idle {
public:
    HRESULT STDMETHODCALLTYPE JITCompilationStarted(FunctionID function, BOOL) override {
        wchar_t name[1024];
        ULONG length = 0;
        DWORD flags = 0;
        mdMethodDef token = mdMethodDefNil;
        mdTypeDef type = mdTypeDefNil;
        PCCOR_SIGNATURE signature = nullptr;
        ULONG signature_size = 0;
        ClassID class_id = 0;
        ModuleID module = 0;
        {
            ComPtr<IMetaDataImport> metadata;
            info_->GetTokenAndMetaDataFromFunction(function, __uuidof(IMetaDataImport),
                                                   metadata.put_unknown(), &token);
            metadata->GetMethodProps(token, &type, nullptr, 0, &length, &flags, nullptr, nullptr,
                                     nullptr, nullptr);
            metadata->GetMethodProps(token, &type, name, length, &length, &flags, &signature,
                                     &signature_size, nullptr, nullptr);
            metadata->GetCustomAttributeByName(token, L"Corvane.Instrumentation.TraceAttribute",
                                               nullptr, nullptr);
            metadata->GetCustomAttributeByName(
                token, L"System.Security.SecurityTransparentAttribute", nullptr, nullptr);
            metadata->GetTypeDefProps(type, nullptr, 0, &length, nullptr, nullptr);
            metadata->GetTypeDefProps(type, name, length, &length, nullptr, nullptr);
            info_->GetFunctionInfo(function, &class_id, &module, &token);
        }
        AssemblyID assembly = 0;
        info_->GetModuleInfo(module, nullptr, 0, &length, nullptr, nullptr);
        info_->GetModuleInfo(module, nullptr, length, &length, name, &assembly);
        info_->GetAssemblyInfo(assembly, 0, &length, nullptr, nullptr, nullptr);
        info_->GetAssemblyInfo(assembly, length, &length, name, nullptr, nullptr);
        {
            ComPtr<IMetaDataImport> metadata;
            info_->GetModuleMetaData(module, ofWrite, __uuidof(IMetaDataImport),
                                     metadata.put_unknown());
            ComPtr<IMetaDataAssemblyImport> assembly_metadata;
            metadata.query(assembly_metadata);
            mdAssembly assembly_token = mdAssemblyNil;
            assembly_metadata->GetAssemblyFromScope(&assembly_token);
            metadata->GetCustomAttributeByName(
                assembly_token, L"System.Security.SecurityTransparentAttribute", nullptr, nullptr);
        }
        ThreadID thread = 0;
        info_->GetCurrentThreadID(&thread);
        return S_OK;
    }
};

// --- Taking the time

// What a C++ class keeps before the first slot of its table.
constexpr std::size_t kHeaderWords = 2;
constexpr std::size_t kSlots = clr_slots::kProfilerDetachSucceeded + 1;
std::array<void*, kHeaderWords + kSlots> original;
std::array<void*, kHeaderWords + kSlots> replaced;

constexpr std::size_t kMostCalls = 100'000;
std::vector<std::uint32_t> times;

HRESULT STDMETHODCALLTYPE timed_compilation(ICorProfilerCallback3* self, FunctionID function,
                                            BOOL is_safe_to_block) {
    using Method = HRESULT(STDMETHODCALLTYPE*)(ICorProfilerCallback3*, FunctionID, BOOL);
    const auto method =
        reinterpret_cast<Method>(original[kHeaderWords + clr_slots::kJITCompilationStarted]);
    const std::uint64_t before = __rdtsc();
    const HRESULT hr = method(self, function, is_safe_to_block);
    const std::uint64_t after = __rdtsc();
    if (times.size() < kMostCalls) {
        times.push_back(static_cast<std::uint32_t>(
            std::min<std::uint64_t>(after - before, std::numeric_limits<std::uint32_t>::max())));
    }
    return hr;
}

std::uint64_t hundred_nanoseconds(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

measuring::ProcessCosts process_costs() {
    FILETIME start, end, kernel, user;
    PROCESS_MEMORY_COUNTERS memory = {};
    GetProcessTimes(GetCurrentProcess(), &start, &end, &kernel, &user);
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    return {hundred_nanoseconds(kernel) + hundred_nanoseconds(user), memory.PeakWorkingSetSize};
}

HRESULT STDMETHODCALLTYPE write_times(ICorProfilerCallback3* self) {
    using Method = HRESULT(STDMETHODCALLTYPE*)(ICorProfilerCallback3*);
    if (std::FILE* const file = _wfopen(variable(L"CORVANE_PROBE_OUTPUT").c_str(), L"wb")) {
        const measuring::ProcessCosts costs = process_costs();
        std::fwrite(&costs, sizeof(costs), 1, file);
        std::fwrite(times.data(), sizeof(times[0]), times.size(), file);
        std::fclose(file);
    }
    return reinterpret_cast<Method>(original[kHeaderWords + clr_slots::kShutdown])(self);
}

// Puts the two functions above between `object`, whose first base is the callback table, and the
// runtime.
void stand_between(void* object) {
    times.reserve(kMostCalls);
    void**& table = *static_cast<void***>(object);
    std::copy_n(table - kHeaderWords, original.size(), original.begin());
    replaced = original;
    const auto replace = [](std::size_t slot, auto* method) {
        replaced[kHeaderWords + slot] = reinterpret_cast<void*>(method);
    };
    replace(clr_slots::kJITCompilationStarted, &timed_compilation);
    replace(clr_slots::kShutdown, &write_times);
    table = replaced.data() + kHeaderWords;
}

// --- The class factory

HRESULT create_from(const std::wstring& library, REFIID iid, void** object) {
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
    constexpr CLSID kClass = {
        0x5D3A9C71, 0x0B6E, 0x4F28, {0x9A, 0x41, 0x7C, 0x2E, 0x8B, 0x04, 0xD1, 0xF6}};
    const HMODULE module = LoadLibraryW(library.c_str());
    if (module == nullptr) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    const auto get_class_object = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    ComPtr<IClassFactory> factory;
    const HRESULT hr = get_class_object(kClass, __uuidof(IClassFactory), factory.put_void());
    return FAILED(hr) ? hr : factory->CreateInstance(nullptr, iid, object);
}

class Factory final : public corvane::testing::ImmortalClassFactory {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
        const std::wstring probed = variable(L"CORVANE_PROBE");
        ComPtr<ICorProfilerCallback3> created;
        if (probed == L"floor") {
            created = ComPtr<ICorProfilerCallback3>(new Floor());
        } else if (probed == L"idle") {
            created = ComPtr<ICorProfilerCallback3>(new Idle());
        } else {
            const HRESULT hr =
                create_from(probed, __uuidof(ICorProfilerCallback3), created.put_void());
            if (FAILED(hr)) {
                return hr;
            }
        }
        stand_between(created.get());
        return created->QueryInterface(iid, object);
    }
};

} // namespace

IClassFactory& corvane::testing::test_profiler_factory() {
    static Factory& factory = *new Factory(); // outlives everything
    return factory;
}
