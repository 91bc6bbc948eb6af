#include "sampling/thread_map.h"

#include <new>
#include <optional>
#include <set>

namespace corvane {

std::map<DWORD, ThreadID> ThreadMap;
boost::mutex ThreadMapMutex;
std::int64_t snapshotTargetThread = kNoSnapshotTarget;
boost::mutex SnapshotTargetMutex;

namespace {

using Lock = boost::mutex::scoped_lock;

struct Running {
    DWORD os_thread = 0;
    std::atomic<int> walks = 0;
};

// Each of the runtime's threads that has not ended; under ThreadMapMutex.
std::map<ThreadID, Running> running_threads;

// During an adoption the threads that have ended, as far as they were not known; under
// ThreadMapMutex.
std::optional<std::set<ThreadID>> ended_threads;

bool is_snapshot_target(std::int64_t thread) {
    const Lock lock(SnapshotTargetMutex);
    return snapshotTargetThread == thread;
}

// Takes the thread out of those that run.
std::map<ThreadID, Running>::node_type take_running(ThreadID thread) {
    const Lock lock(ThreadMapMutex);
    auto ended = running_threads.extract(thread);
    if (ended.empty() && ended_threads) {
        try {
            ended_threads->insert(thread);
        } catch (const std::bad_alloc&) {
            ended_threads.reset(); // none is adopted
        }
    }
    return ended;
}

} // namespace

void on_thread_assigned(ThreadID thread, DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    running_threads[thread].os_thread = os_thread;
    ThreadMap[os_thread] = thread; // last: who is found there is running
}

// Deliberate, however odd: both later steps take the runtime's id of a thread where the system's is
// kept. So that wait hardly ever waits, the entries of threads that end stay, and each leaves one
// more that holds 0.
void on_thread_destroyed(ThreadID thread) {
    if (const auto ended = take_running(thread)) {
        while (ended.mapped().walks != 0) {
            SwitchToThread(); // a walk is over soon; this may be the thread that is walked
        }
    }
    while (is_snapshot_target(static_cast<std::int64_t>(thread))) {
        // Busy on purpose: a snapshot is over in less time than a sleep takes.
    }
    const Lock lock(ThreadMapMutex);
    const auto key = static_cast<DWORD>(thread);
    if (ThreadMap[key] != 0) {
        ThreadMap.erase(key);
    }
}

ThreadID find_thread(DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    return ThreadMap[os_thread];
}

RunningThread::RunningThread(ThreadID thread, DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    const auto running = running_threads.find(thread);
    if (running != running_threads.end() && running->second.os_thread == os_thread) {
        walks_ = &running->second.walks;
        ++*walks_;
    }
}

RunningThread::~RunningThread() {
    if (walks_ != nullptr) {
        --*walks_;
    }
}

void begin_adoption() {
    const Lock lock(ThreadMapMutex);
    ended_threads.emplace();
}

void adopt_thread(ThreadID thread, DWORD os_thread) {
    const Lock lock(ThreadMapMutex);
    if (os_thread == 0 || !ended_threads || ended_threads->contains(thread) ||
        running_threads.contains(thread)) {
        return;
    }
    running_threads[thread].os_thread = os_thread;
    ThreadMap[os_thread] = thread;
}

void end_adoption() {
    const Lock lock(ThreadMapMutex);
    ended_threads.reset();
}

void set_snapshot_target(std::int64_t os_thread) {
    const Lock lock(SnapshotTargetMutex);
    snapshotTargetThread = os_thread;
}

} // namespace corvane
