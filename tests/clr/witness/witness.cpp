// A profiler that tells a test what passed between the runtime and the one under test, in the
// debugger output.
#include "clr/com_ptr.h"
#include "tests/support/between.h"

#include <atomic>
#include <cstdio>
#include <iterator>

namespace {

using corvane::ComPtr;
using corvane::testing::call_original;

std::atomic<int> module_loads = 0;
std::atomic<int> failed_module_loads = 0;
std::atomic<int> compilations = 0;

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

} // namespace

void corvane::testing::stand_between() {
    replace(clr_slots::kInitialize, &initialize);
    replace(clr_slots::kShutdown, &shutdown);
    replace(clr_slots::kModuleLoadFinished, &module_load_finished);
    replace(clr_slots::kJITCompilationStarted, &jit_compilation_started);
}
