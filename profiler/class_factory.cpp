#include "profiler/class_factory.h"

#include "profiler/clr_profiler.h"
#include "profiler/com_module.h"
#include "profiler/com_object.h"

#include <atomic>
#include <new>

namespace corvane {
namespace {

class CachedClassFactory final : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (iid != __uuidof(IUnknown) && iid != __uuidof(IClassFactory)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }

    // Every outside reference holds the module; the cache itself holds none.
    ULONG STDMETHODCALLTYPE AddRef() noexcept override {
        server_module().lock();
        return ++references_;
    }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG count = --references_;
        server_module().unlock();
        return count;
    }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid,
                                             void** object) noexcept override {
        try {
            return create_com_object<CClrProfiler>(outer, iid, object);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) noexcept override {
        if (lock != FALSE) {
            server_module().lock();
        } else {
            server_module().unlock();
        }
        return S_OK;
    }

private:
    std::atomic<ULONG> references_ = 0;
};

CachedClassFactory cached_factory;

} // namespace

HRESULT get_profiler_class_factory(REFIID iid, void** object) noexcept {
    return cached_factory.QueryInterface(iid, object);
}

} // namespace corvane
