// The log's file, for whoever has no viewer. Any thread may append; a lock of its own keeps the
// lines of the process apart. Other processes may write the same file.
//
// The lock is held while the system writes. A thread that is suspended with it, to be sampled, is
// resumed by a worker that logs nothing until then; so the others only wait a little longer. The
// holder itself waits for the disk alone, and no more than a moment for another process.
#pragma once

#include "base/owned_handle.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace corvane {

class LogFile {
public:
    // A full path, and the size in bytes that the file is kept to. When it is full it is renamed,
    // with ".old" behind its name, in place of the one that had that name.
    LogFile(std::wstring path, std::uint64_t limit);

    // Writes the line with the time and the process in front, whole, at the end. Lines that cannot
    // be written are dropped. Returns what keeps them from it when that is news, else nothing.
    // Throws std::bad_alloc only.
    std::wstring append(std::wstring_view line);

    // False for some seconds after a failure.
    [[nodiscard]] bool takes_lines() const noexcept;

private:
    DWORD write(const std::string& record);
    DWORD open();
    DWORD put_away(std::size_t needed) const;
    [[nodiscard]] bool has_room(HANDLE file, std::size_t needed) const;

    const std::wstring path_;
    const std::uint64_t limit_;
    std::atomic<std::uint64_t> not_before_ = 0; // the next attempt after a failure
    std::mutex mutex_;                          // around what follows and the writing
    OwnedHandle file_;
    std::uint64_t opened_at_ = 0;
    bool failing_ = false;
    bool torn_ = false;          // the last record was cut
    bool lock_is_stuck_ = false; // another process keeps it: no line waits until it was free once
};

} // namespace corvane
