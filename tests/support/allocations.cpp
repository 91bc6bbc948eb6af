#include "tests/support/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace corvane::testing {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

std::atomic<std::size_t> requests = 0;
std::atomic<std::size_t> failing = kNone; // the number of the request that fails

} // namespace

std::size_t allocations() {
    return requests;
}

FailingAllocation::FailingAllocation(std::size_t granted) {
    failing = requests + granted;
}

FailingAllocation::~FailingAllocation() {
    failing = kNone;
}

bool FailingAllocation::has_come() {
    return requests > failing;
}

} // namespace corvane::testing

namespace {

// Counts a request and gives what `allocate` gets for it, unless it is the one to fail.
template <class Allocate>
void* counted(const Allocate& allocate) {
    using namespace corvane::testing;
    if (requests++ != failing) {
        if (void* const memory = allocate()) {
            return memory;
        }
    }
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) {
    return counted([&] { return std::malloc(size); });
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

// What memory resources ask.
void* operator new(std::size_t size, std::align_val_t alignment) {
    return counted([&] { return _aligned_malloc(size, static_cast<std::size_t>(alignment)); });
}
void operator delete(void* memory, std::align_val_t) noexcept {
    _aligned_free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    _aligned_free(memory);
}
