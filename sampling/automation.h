// The OLE Automation values that the exports return, owned until the caller takes them over. If one
// cannot be made, an error is raised.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstddef>
#include <exception>
#include <utility>

namespace corvane {

// A result that is an error.
class ResultError final : public std::exception {
public:
    explicit ResultError(HRESULT result) noexcept : result_(result) {}
    HRESULT result() const noexcept { return result_; }
    const char* what() const noexcept override { return "a call failed"; }

private:
    HRESULT result_;
};

// Has nothing to unwind (sampling/export_result.h).
[[noreturn]] inline void raise_result(HRESULT result) {
    throw ResultError(result);
}

// An owned BSTR, or null. Nothing but the pointer, so that records of them can be handed out.
class Bstr {
public:
    constexpr Bstr() noexcept = default;
    explicit Bstr(const wchar_t* text) : text_(SysAllocString(text)) {
        if (text_ == nullptr && *text != L'\0') {
            raise_result(E_OUTOFMEMORY);
        }
    }
    Bstr(const Bstr& other) {
        if (other.text_ != nullptr) {
            text_ = SysAllocStringByteLen(reinterpret_cast<const char*>(other.text_),
                                          SysStringByteLen(other.text_));
            if (text_ == nullptr) {
                raise_result(E_OUTOFMEMORY);
            }
        }
    }
    Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
    Bstr& operator=(Bstr other) noexcept {
        std::swap(text_, other.text_);
        return *this;
    }
    ~Bstr() { SysFreeString(text_); }

    BSTR get() const noexcept { return text_; }

private:
    BSTR text_ = nullptr;
};

// A SAFEARRAY of doubles in one dimension from 0, open for writing until it is handed out.
class DoubleArray {
public:
    explicit DoubleArray(ULONG count) {
        SAFEARRAYBOUND bound = {count, 0};
        array_ = SafeArrayCreate(VT_R8, 1, &bound);
        if (array_ == nullptr) {
            raise_result(E_OUTOFMEMORY);
        }
        const HRESULT hr = SafeArrayLock(array_);
        if (FAILED(hr)) {
            SafeArrayDestroy(array_);
            raise_result(hr);
        }
    }
    DoubleArray(const DoubleArray&) = delete;
    DoubleArray& operator=(const DoubleArray&) = delete;
    ~DoubleArray() {
        if (array_ != nullptr) {
            SafeArrayUnlock(array_);
            SafeArrayDestroy(array_);
        }
    }

    void set(std::size_t index, double value) {
        if (index >= array_->rgsabound[0].cElements) {
            raise_result(E_INVALIDARG);
        }
        static_cast<double*>(array_->pvData)[index] = value;
    }

    // The caller's from now on.
    SAFEARRAY* release() noexcept {
        SafeArrayUnlock(array_);
        return std::exchange(array_, nullptr);
    }

private:
    SAFEARRAY* array_ = nullptr;
};

} // namespace corvane
