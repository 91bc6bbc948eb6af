#include "sampling/thread_map.h"

namespace corvane {

std::map<DWORD, ThreadID> ThreadMap;
boost::mutex ThreadMapMutex;
std::int64_t snapshotTargetThread = kNoSnapshotTarget;
boost::mutex SnapshotTargetMutex;

namespace {

using Lock = boost::mutex::scoped_lock;

// The system's thread of each of the runtime's threads that has not ended; under ThreadMapMutex.
std::map<ThreadID, DWORD> running_threads;

bool is_snapshot_target(std::int64_t thread) {
    const Lock lock(SnapshotTargetMutex);
    return snapshotTargetThread == thread;
}

} // namespace

void on_thread_assigned(ThreadID thread, DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    running_threads[thread] = os_thread;
    ThreadMap[os_thread] = thread; // last: who is found there is running
}

// Wanted, however odd: both steps take the runtime's id of a thread where the system's is kept. So
// the wait hardly ever waits, the entries of threads that end stay, and each leaves one more that
// holds 0.
void on_thread_destroyed(ThreadID thread) {
    while (is_snapshot_target(static_cast<std::int64_t>(thread))) {
        // Busy on purpose: a snapshot is over in less time than a sleep takes.
    }
    const Lock lock(ThreadMapMutex);
    running_threads.erase(thread);
    const auto key = static_cast<DWORD>(thread);
    if (ThreadMap[key] != 0) {
        ThreadMap.erase(key);
    }
}

ThreadID find_thread(DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    return ThreadMap[os_thread];
}

bool is_running(ThreadID thread, DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    const auto running = running_threads.find(thread);
    return running != running_threads.end() && running->second == os_thread;
}

void set_snapshot_target(std::int64_t os_thread) {
    const Lock lock(SnapshotTargetMutex);
    snapshotTargetThread = os_thread;
}

} // namespace corvane
