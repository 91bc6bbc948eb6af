// What a test-only profiler is made of: objects that outlive everything, so that their references
// need not be counted. A profiler's library defines test_profiler_factory and is linked with
// test_profiler.cpp, which exports what the runtime looks for.
#pragma once

#include "profiler/callback_impl.h"

#include <unknwn.h>

namespace corvane::testing {

class ImmortalClassFactory : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(IClassFactory);
        *object = known ? static_cast<IClassFactory*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

class ImmortalProfiler : public CorvaneCorProfilerCallbackImpl {
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
};

// Makes the one Profiler of a process.
template <class Profiler>
class ProfilerFactory final : public ImmortalClassFactory {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
        static Profiler& profiler = *new Profiler(); // outlives everything
        return profiler.QueryInterface(iid, object);
    }
};

// The library's own.
IClassFactory& test_profiler_factory();

} // namespace corvane::testing
