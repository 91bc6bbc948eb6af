// Which of the runtime's threads runs on which thread of the operating system, and which one is
// suspended for a snapshot at this moment.
// Two callbacks of the runtime keep the map, on any of its threads. Each of the two states has a
// lock of its own, held for one access only: never both at once, and neither while a thread is
// suspended, which may be the one that waits for it or holds it.
#pragma once

#include "clr/cor_profiler.h"

#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <map>

namespace corvane {

// By the system's thread id; 0 stands for no thread. Never cleared.
extern std::map<DWORD, ThreadID> ThreadMap;
extern boost::mutex ThreadMapMutex;

// The system's id of the thread that is suspended, sign-extended from 32 bits.
inline constexpr std::int64_t kNoSnapshotTarget = -1;
extern std::int64_t snapshotTargetThread;
extern boost::mutex SnapshotTargetMutex;

// What the callbacks of these events do.
void on_thread_assigned(ThreadID thread, DWORD os_thread);
void on_thread_destroyed(ThreadID thread);

// The runtime's thread, or 0. An id that was never announced is entered, with 0: this is wanted,
// the map tells afterwards what was asked for.
ThreadID find_thread(DWORD os_thread);

// Whether the runtime's thread has not ended and runs there. What the map says of a thread that has
// is not so any more: the system gives its id to others, and the runtime frees its memory.
bool is_running(ThreadID thread, DWORD os_thread);

void set_snapshot_target(std::int64_t os_thread);

} // namespace corvane
