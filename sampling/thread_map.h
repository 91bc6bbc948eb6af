// The map from threads of the operating system to threads of the runtime, and the thread that is
// suspended for a snapshot at this moment.
// Two callbacks of the runtime keep the map, on any of its threads. Each of the two states has a
// lock of its own, held for one access only. The two locks are never held together, nor while a
// thread is suspended: that thread may wait for the lock or hold it.
#pragma once

#include "clr/cor_profiler.h"

#include <boost/thread/mutex.hpp>

#include <atomic>
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

// The runtime's thread, or 0. An id that was never announced is deliberately entered, with 0: the
// map tells afterwards what was asked for.
ThreadID find_thread(DWORD os_thread);

// Whether the runtime's thread has not ended and runs there. What the map says of a thread that has
// is not so any more: the system gives its id to others, and the runtime frees its memory. While
// this lives a thread that runs does not end: the callback that tells of its end waits.
class RunningThread {
public:
    RunningThread(ThreadID thread, DWORD os_thread);
    RunningThread(const RunningThread&) = delete;
    RunningThread& operator=(const RunningThread&) = delete;
    ~RunningThread();
    explicit operator bool() const noexcept { return walks_ != nullptr; }

private:
    std::atomic<int>* walks_ = nullptr; // of the thread, this one included; null if it does not run
};

// Threads that the runtime had before its callbacks came: between begin and end of an adoption,
// when the callbacks come already. One that has ended in the meantime is not taken.
void begin_adoption();
void adopt_thread(ThreadID thread, DWORD os_thread);
void end_adoption();

void set_snapshot_target(std::int64_t os_thread);

} // namespace corvane
