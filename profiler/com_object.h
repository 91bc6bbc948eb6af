// The machinery of a COM object: its reference count and its three forms.
// A class of this server derives from ComObjectRoot and lists its interfaces in find_interface. It
// is created as ComObject (on its own) or as ComAggregatedObject, which holds it as
// ComContainedObject inside another object. Reference counts may change on any thread.
#pragma once

#include "profiler/com_module.h"

#include <windows.h>

#include <unknwn.h>

#include <mutex>

namespace corvane {

// RAII for a critical section; for std::lock_guard.
class CriticalSection {
public:
    CriticalSection() noexcept { InitializeCriticalSection(&section_); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&section_); }
    void lock() noexcept { EnterCriticalSection(&section_); }
    void unlock() noexcept { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};

// A reference count under a critical section that lives and dies with the object.
class ComObjectRoot {
protected:
    ULONG internal_add_ref() noexcept {
        const std::lock_guard lock(section_);
        return ++references_;
    }
    ULONG internal_release() noexcept {
        const std::lock_guard lock(section_);
        return --references_;
    }

private:
    CriticalSection section_;
    ULONG references_ = 0;
};

// The plain form. Created without a reference: see create_com_object.
template <class T>
class ComObject final : public T {
public:
    ComObject() noexcept { server_module().object_created(); }
    ~ComObject() { server_module().object_destroyed(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = this->find_interface(iid);
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return this->internal_add_ref(); }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG count = this->internal_release();
        if (count == 0) {
            delete this;
        }
        return count;
    }
};

// The form inside an aggregate: its IUnknown is the outer object's.
template <class T>
class ComContainedObject final : public T {
public:
    explicit ComContainedObject(IUnknown* outer) noexcept : outer_(outer) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) noexcept override {
        return outer_->QueryInterface(iid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return outer_->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return outer_->Release(); }

private:
    IUnknown* outer_; // not counted: the outer object owns this one
};

// The aggregated form: the inner IUnknown that the outer object holds. Every other interface that
// it hands out belongs to the outer object's identity and counts there.
template <class T>
class ComAggregatedObject final : public IUnknown, private ComObjectRoot {
public:
    explicit ComAggregatedObject(IUnknown* outer) noexcept : contained_(outer) {
        server_module().object_created();
    }
    ~ComAggregatedObject() { server_module().object_destroyed(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (iid == __uuidof(IUnknown)) {
            *object = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        *object = contained_.find_interface(iid);
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        contained_.AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return internal_add_ref(); }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG count = internal_release();
        if (count == 0) {
            delete this;
        }
        return count;
    }

private:
    ComContainedObject<T> contained_;
};

// Creates a T in the form that `outer` asks for. An outer object may ask for IUnknown only.
template <class T>
HRESULT create_com_object(IUnknown* outer, REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    const auto hand_out = [&](auto* created) {
        created->AddRef(); // so that a failed query destroys it
        const HRESULT hr = created->QueryInterface(iid, object);
        created->Release();
        return hr;
    };
    if (outer == nullptr) {
        return hand_out(new ComObject<T>());
    }
    if (iid != __uuidof(IUnknown)) {
        return CLASS_E_NOAGGREGATION;
    }
    return hand_out(new ComAggregatedObject<T>(outer));
}

} // namespace corvane
