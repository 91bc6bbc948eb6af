#include "rewrite/rewrite_settings.h"

#include <cstdlib>
#include <string_view>

namespace corvane {

constinit std::atomic<bool> strict_il = false;
constinit std::atomic<std::uint32_t> instrumentation_index = 0;

std::uint32_t take_instrumentation_index() noexcept {
    const std::uint32_t index = instrumentation_index.load(std::memory_order_relaxed);
    instrumentation_index.store(index + 1, std::memory_order_relaxed);
    return index;
}

bool environment_asks_for_strict_il() noexcept {
    const char* const value = std::getenv("CORVANE_STRICT_IL");
    return value != nullptr && std::string_view(value) == "1";
}

} // namespace corvane
