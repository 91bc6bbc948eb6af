// What a fuzz target asserts with: a broken promise ends the process, as a sanitizer's finding
// does.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace corvane {

inline void require(bool kept, const char* promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

} // namespace corvane
