// The numbers that are ids of functions. The runtime takes an id for an address. It ends the
// process on a query about another number, or about a function whose module was unloaded. So the
// queries are limited to ids that the runtime has reported itself, in a callback or a walk, and
// that are still valid.
//
// Most functions live as long as the process. So does every function that is reported while no
// collectible module is loaded. Of the others, a function that is not generic goes with its own
// module. An instantiation may go with any module of one of its arguments. So it is forgotten at
// the next unloading; a walk that meets it again makes it known again.
//
// Callbacks and exports, on any thread. One lock is held for one access, and none while a thread is
// suspended. A known function takes 11 to 22 bytes.
#pragma once

#include "clr/cor_profiler.h"

#include <cstddef>
#include <cstdint>
#include <shared_mutex>
#include <span>
#include <vector>

namespace corvane {

// Ids other than 0, 8 bytes a slot; a quarter to five eighths of the slots are free.
class FunctionSet {
public:
    bool contains(FunctionID function) const noexcept;
    void insert(FunctionID function); // throws std::bad_alloc, and then holds what it held
    void clear() noexcept;
    std::size_t bytes() const noexcept { return slots_.capacity() * sizeof(FunctionID); }

private:
    // Where it is or would be; there are free slots.
    static std::size_t find(const std::vector<FunctionID>& slots, FunctionID function) noexcept;
    void grow();

    std::vector<FunctionID> slots_; // 0 is free; none, or a power of two
    std::size_t size_ = 0;
};

// What the callbacks of these events do. All may throw std::bad_alloc.
void note_collectible_module(ModuleID module);
void note_function(ICorProfilerInfo2* info, FunctionID function); // is being compiled or looked for
void forget_functions_of(ModuleID module); // returns when the runtime is asked about none of them

// The functions of a walk are noted when it is over. One that was unloaded in between is not.
struct WalkStart {
    std::uint64_t loads = 0;
    std::uint64_t unloads = 0;
};
WalkStart begin_walk();
void note_walked_functions(const WalkStart& start, std::span<const FunctionID> functions);

// Whether the id is known; while this lives a function that is stays what it is.
class KnownFunction {
public:
    explicit KnownFunction(FunctionID function);
    explicit operator bool() const noexcept { return is_known_; }

private:
    std::shared_lock<std::shared_mutex> asking_;
    bool is_known_;
};

} // namespace corvane
