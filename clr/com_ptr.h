// ComPtr: owns one reference to a COM interface.
// Construction from a raw pointer adds a reference; `put` hands out the empty slot for out
// parameters.
#pragma once

#include <unknwn.h>

#include <utility>

namespace corvane {

template <class T>
class ComPtr {
public:
    constexpr ComPtr() noexcept = default;
    explicit ComPtr(T* pointer) noexcept : pointer_(pointer) {
        if (pointer_ != nullptr) {
            pointer_->AddRef();
        }
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.pointer_) {}
    ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(pointer_, other.pointer_);
        return *this;
    }
    ~ComPtr() { reset(); }

    void reset() noexcept {
        if (T* pointer = std::exchange(pointer_, nullptr)) {
            pointer->Release();
        }
    }

    // The empty slot; a reference held before is released.
    T** put() noexcept {
        reset();
        return &pointer_;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    IUnknown** put_unknown() noexcept { return reinterpret_cast<IUnknown**>(put()); }

    T* get() const noexcept { return pointer_; }
    T* operator->() const noexcept { return pointer_; }
    explicit operator bool() const noexcept { return pointer_ != nullptr; }

    // Asks this object (not null) for another of its interfaces.
    template <class U>
    HRESULT query(ComPtr<U>& other) const noexcept {
        return pointer_->QueryInterface(__uuidof(U), other.put_void());
    }

private:
    T* pointer_ = nullptr;
};

} // namespace corvane
