// The class factory of a test-only profiler: one that outlives everything, so that its references
// need not be counted. A profiler overrides CreateInstance.
#pragma once

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

} // namespace corvane::testing
