// OwnedHandle: owns a kernel object's handle, or null.
#pragma once

#include <windows.h>

#include <memory>

namespace corvane {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

} // namespace corvane
