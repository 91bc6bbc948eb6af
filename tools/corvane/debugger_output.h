// DebuggerOutput: what the processes of the session write to the debugger output, as the system
// hands it to one viewer: over a page of shared memory and two events. One thread reads.
#pragma once

#include "base/owned_handle.h"

#include <windows.h>

#include <memory>
#include <optional>
#include <string>

namespace corvane::tool {

class DebuggerOutput {
public:
    struct Piece {
        DWORD process = 0;
        std::string text;     // in the system's code page
        bool is_full = false; // the rest of a longer text comes as the next piece of the process
    };

    // Takes the place of the viewer, unless another one has it for so many milliseconds. A process
    // that writes has it, too, for up to ten seconds if the viewer before has ended meanwhile.
    bool open(DWORD milliseconds);

    // Waits for the next piece. Nothing once `stop` is set, or when so many milliseconds are over.
    std::optional<Piece> next(HANDLE stop, DWORD milliseconds);

private:
    bool try_to_open();

    struct Page;
    struct PageCloser {
        void operator()(const Page* page) const noexcept { UnmapViewOfFile(page); }
    };

    OwnedHandle ready_; // for a piece
    OwnedHandle data_;  // a piece is there
    OwnedHandle memory_;
    std::unique_ptr<const Page, PageCloser> page_;
};

} // namespace corvane::tool
