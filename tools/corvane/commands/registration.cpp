// corvane register, unregister and status
#include "tools/corvane/check_facts.h"
#include "tools/corvane/com_server.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/utf8.h"

namespace corvane::tool {
namespace {

int call_profiler(const char* function, const char* done) {
    const Installation installed = find_installation();
    if (installed.profiler.empty()) {
        throw Failure("CorvaneProfiler.dll is not in " + to_utf8(installed.folder) +
                      ", beside this tool");
    }
    call_server(installed.profiler, function);
    print_line(to_utf8(installed.profiler) + done);
    return kSuccess;
}

int show_status() {
    const Installation installed = find_installation();
    const CheckFacts facts = read_check_facts(own_environment(), installed, std::nullopt);
    const auto line = [](const char* what, const std::string& found) {
        print_line(what + (found.empty() ? "missing" : found));
    };
    line("Version:         ", CORVANE_VERSION);
    line("Profiler:        ", facts.own_profiler);
    line("Managed library: ", to_utf8(installed.library));
    line("Registered:      ", !facts.registered ? "no" : *facts.registered);
    return installed.profiler.empty() || installed.library.empty() ? kFailed : kSuccess;
}

} // namespace

Work define_register(CLI::App&) {
    return [](const Words&) { return call_profiler("DllRegisterServer", " is registered."); };
}

Work define_unregister(CLI::App&) {
    return [](const Words&) {
        return call_profiler("DllUnregisterServer", " is no longer registered.");
    };
}

Work define_status(CLI::App&) {
    return [](const Words&) { return show_status(); };
}

} // namespace corvane::tool
