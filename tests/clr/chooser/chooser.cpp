// A profiler that only chooses: the decision of the real one, at work in a real runtime, with an
// entry of rewriting that writes each chosen method and its mode to the debugger output, which the
// real log leaves out for methods with the trace attribute. One object a process; callbacks arrive
// on any thread.
#include "clr/com_ptr.h"
#include "selection/jit_flow.h"
#include "selection/target_methods.h"
#include "tests/support/test_profiler.h"

namespace {

using namespace corvane;

HRESULT write_choice(RewriteContext&, ICorProfilerInfo*, const method_info& method,
                     InstrumentationMode mode) {
    default_log.log(1, L"chosen in mode %u: %s.%s", static_cast<unsigned>(mode),
                    method.type_name.c_str(), method.method_name.c_str());
    return S_OK;
}

class Chooser final : public corvane::testing::ImmortalProfiler {
public:
    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) override {
        const HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), info_.put_void());
        if (FAILED(hr)) {
            return hr;
        }
        build_target_methods({});
        return info_->SetEventMask(COR_PRF_MONITOR_JIT_COMPILATION | COR_PRF_DISABLE_INLINING);
    }

    HRESULT STDMETHODCALLTYPE JITCompilationStarted(FunctionID function, BOOL) override {
        on_jit_compilation_started(info_.get(), function, {}, write_choice);
        return S_OK;
    }

private:
    ComPtr<ICorProfilerInfo> info_;
};

} // namespace

IClassFactory& corvane::testing::test_profiler_factory() {
    static auto& factory = *new corvane::testing::ProfilerFactory<Chooser>(); // outlives everything
    return factory;
}
