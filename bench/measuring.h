// What the benchmarks on Windows have in common: the processor's clock, which costs next to nothing
// to read, the middle of many times, and where the programs lie that are measured.
#pragma once

#include <windows.h>

#include <intrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace corvane::measuring {

// How long a tick of __rdtsc is. Takes a fifth of a second.
inline double nanoseconds_a_tick() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER begin;
    LARGE_INTEGER end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    const std::uint64_t first = __rdtsc();
    Sleep(200);
    QueryPerformanceCounter(&end);
    const std::uint64_t last = __rdtsc();
    return 1e9 * static_cast<double>(end.QuadPart - begin.QuadPart) /
           static_cast<double>(frequency.QuadPart) / static_cast<double>(last - first);
}

// The upper one of two in the middle. `values` is not empty.
template <class T>
T median(std::vector<T> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The one that this program lies in.
inline std::filesystem::path own_folder() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

} // namespace corvane::measuring
