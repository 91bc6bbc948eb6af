// Names from the runtime come in two calls: the first gives the length, the second the text.
// A length counts the terminator, which is no part of the name.
#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

// Makes room for a name. The second call then takes name.data() and `length`.
inline void resize_for_name(std::wstring& name, ULONG length) {
    name.resize(length > 0 ? length - 1 : 0);
}

// A name that is asked for whenever a method is compiled. Unless it is unusually long it lies in
// the object: four requests of the heap, out of the cache by the time that the compiler calls
// again, add a sixth to what the runtime takes for its answers.
class RuntimeName {
public:
    RuntimeName() noexcept { resize(0); }
    RuntimeName(const RuntimeName& other) { *this = other; }
    RuntimeName& operator=(const RuntimeName& other) {
        if (this != &other) {
            std::copy_n(other.c_str(), other.size_, resize(static_cast<ULONG>(other.size_ + 1)));
        }
        return *this;
    }
    ~RuntimeName() = default;

    // Room for a name, zeros at first, that the second call fills.
    wchar_t* resize(ULONG length) {
        size_ = length > 0 ? length - 1 : 0;
        if (size_ >= kInPlace) {
            long_name_.assign(size_, L'\0');
            return long_name_.data();
        }
        std::fill_n(in_place_.data(), size_ + 1, L'\0');
        return in_place_.data();
    }

    const wchar_t* c_str() const noexcept {
        return size_ < kInPlace ? in_place_.data() : long_name_.c_str();
    }
    operator std::wstring_view() const noexcept { return {c_str(), size_}; }

    friend bool operator==(const RuntimeName& name, std::wstring_view text) noexcept {
        return std::wstring_view(name) == text;
    }

private:
    static constexpr std::size_t kInPlace = 192; // terminator included

    std::array<wchar_t, kInPlace> in_place_;
    std::wstring long_name_; // unless it fits
    std::size_t size_ = 0;
};

} // namespace corvane
