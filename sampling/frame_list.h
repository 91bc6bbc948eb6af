// FrameList: the frames that a stack walk reports, collected while the walked thread is suspended.
// That thread may hold the heap's lock, so this class never uses the heap. The object itself has
// room for usual stacks; deeper ones get pages from the system.
#pragma once

#include "clr/cor_profiler.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <span>

namespace corvane {

class FrameList {
public:
    static constexpr std::size_t kReserved = 1024;

    FrameList() noexcept = default; // the room is not cleared
    // Begins with these. Throws std::bad_alloc.
    explicit FrameList(std::span<const FunctionID> frames) {
        for (const FunctionID frame : frames) {
            if (!append(frame)) {
                throw std::bad_alloc();
            }
        }
    }
    FrameList(const FrameList&) = delete;
    FrameList& operator=(const FrameList&) = delete;

    // False when there is no memory for one more.
    [[nodiscard]] bool append(FunctionID frame) noexcept {
        if (size_ == room_.size() && !grow()) {
            return false;
        }
        room_[size_++] = frame;
        return true;
    }

    std::span<const FunctionID> frames() const noexcept { return room_.first(size_); }

private:
    struct PageDeleter {
        void operator()(FunctionID* pages) const noexcept { VirtualFree(pages, 0, MEM_RELEASE); }
    };

    bool grow() noexcept {
        const std::size_t count = 2 * room_.size();
        std::unique_ptr<FunctionID, PageDeleter> pages(static_cast<FunctionID*>(VirtualAlloc(
            nullptr, count * sizeof(FunctionID), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)));
        if (!pages) {
            return false;
        }
        std::copy(room_.begin(), room_.end(), pages.get());
        room_ = {pages.get(), count};
        pages_ = std::move(pages);
        return true;
    }

    std::array<FunctionID, kReserved> in_place_;
    std::unique_ptr<FunctionID, PageDeleter> pages_;
    std::span<FunctionID> room_ = in_place_;
    std::size_t size_ = 0;
};

} // namespace corvane
