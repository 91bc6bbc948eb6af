// LocalMemory: owns memory that the system allocated with LocalAlloc for its caller.
#pragma once

#include <windows.h>

#include <memory>

namespace corvane {

struct LocalMemoryDeleter {
    void operator()(void* memory) const noexcept { LocalFree(memory); }
};

template <class T>
using LocalMemory = std::unique_ptr<T, LocalMemoryDeleter>;

} // namespace corvane
