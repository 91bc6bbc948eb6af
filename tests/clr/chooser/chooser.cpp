// A profiler that only chooses: the decision of the real one, at work in a real runtime, with an
// entry of rewriting that writes each chosen method and its mode to the debugger output, which the
// real log leaves out for methods with the trace attribute. One object a process; callbacks arrive
// on any thread.
#include "clr/com_ptr.h"
#include "profiler/callback_impl.h"
#include "selection/jit_flow.h"
#include "selection/target_methods.h"
#include "tests/support/immortal_class_factory.h"

namespace {

using namespace corvane;

HRESULT write_choice(RewriteContext&, ICorProfilerInfo*, const method_info& method,
                     InstrumentationMode mode) {
    default_log.log(1, L"chosen in mode %u: %s.%s", static_cast<unsigned>(mode),
                    method.type_name.c_str(), method.method_name.c_str());
    return S_OK;
}

// Lives as long as the process, so its references are not counted.
class Chooser final : public CorvaneCorProfilerCallbackImpl {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerCallback) ||
                           iid == __uuidof(ICorProfilerCallback2) ||
                           iid == __uuidof(ICorProfilerCallback3);
        *object = known ? static_cast<ICorProfilerCallback3*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) override {
        const HRESULT hr = info->QueryInterface(__uuidof(ICorProfilerInfo), info_.put_void());
        if (FAILED(hr)) {
            return hr;
        }
        build_target_methods({});
        return info_->SetEventMask(COR_PRF_MONITOR_JIT_COMPILATION | COR_PRF_DISABLE_INLINING);
    }

    HRESULT STDMETHODCALLTYPE JITCompilationStarted(FunctionID function, BOOL) override {
        on_jit_compilation_started(info_.get(), function, false, write_choice);
        return S_OK;
    }

private:
    ComPtr<ICorProfilerInfo> info_;
};

class ChooserFactory final : public corvane::testing::ImmortalClassFactory {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
        static Chooser& chooser = *new Chooser(); // outlives everything
        return chooser.QueryInterface(iid, object);
    }
};

} // namespace

STDAPI DllGetClassObject(REFCLSID, REFIID iid, LPVOID* object) {
    static ChooserFactory& factory = *new ChooserFactory(); // outlives everything
    return factory.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}
