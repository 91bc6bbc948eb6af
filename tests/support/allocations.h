// Counts what this program takes from operator new, and lets a chosen request fail.
// Any thread may allocate; the counter and the choice are the whole program's.
#pragma once

#include <cstddef>

namespace corvane::testing {

// Requests so far.
std::size_t allocations();

// While it lives, one request fails: the one behind `granted` others.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t granted);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    // Whether that request has come.
    static bool has_come();
};

} // namespace corvane::testing
