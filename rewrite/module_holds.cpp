#include "rewrite/module_holds.h"

namespace corvane {

namespace {

// Outlives every thread that compiles.
std::shared_mutex& holds() {
    static auto& mutex = *new std::shared_mutex();
    return mutex;
}

} // namespace

std::shared_lock<std::shared_mutex> hold_modules() {
    return std::shared_lock(holds());
}

void wait_for_module_holds() {
    const std::lock_guard wait(holds());
}

} // namespace corvane
