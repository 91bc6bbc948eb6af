#include "tools/corvane/findings.h"

#include "tools/corvane/class_id.h"
#include "tools/corvane/config_findings.h"
#include "tools/corvane/utf8.h"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>

namespace corvane::tool {
namespace {

// --- The facts, in the words that the rules below use

// Of the .NET Framework. Its programs are managed by themselves; those of .NET are started by a
// native host.
bool is_framework(const CheckFacts& facts) {
    return facts.program && facts.program->file.image && facts.program->file.image->is_managed &&
           !facts.program->runtime_config;
}

std::string variable(const CheckFacts& facts, const std::wstring& name) {
    return to_utf8(value_of(facts.variables, name));
}

// The variables of one family begin with the same letters.
constexpr wchar_t kNet[] = L"CORECLR_";
constexpr wchar_t kFramework[] = L"COR_";

bool asks_for_profiler(const CheckFacts& facts, const std::wstring& family) {
    return variable(facts, family + L"ENABLE_PROFILING") == "1";
}

std::wstring read_family(const CheckFacts& facts) {
    // Both kinds of runtime run in a worker.
    const bool is_frameworks =
        is_framework(facts) || (is_worker(facts) && !asks_for_profiler(facts, kNet) &&
                                asks_for_profiler(facts, kFramework));
    return is_frameworks ? kFramework : kNet;
}

std::string in_quotes(const std::string& text) {
    return '"' + text + '"';
}

bool is_library(const std::string& path) {
    return boost::iequals(path.substr(path.find_last_of("\\/") + 1), "kite.managed.dll");
}

// The managed library among the hooks; null if it is none of them.
const FileFacts* named_library(const CheckFacts& facts) {
    const auto found = std::ranges::find_if(
        facts.hooks, [](const FileFacts& hook) { return is_library(hook.path); });
    return found == facts.hooks.end() ? nullptr : &*found;
}

// That of a program of .NET: a hook, or else the one beside the program. Null if there is none.
const FileFacts* loaded_library(const CheckFacts& facts) {
    const FileFacts* const named = named_library(facts);
    const bool has_own = facts.program && facts.program->own_library.exists;
    return named == nullptr && has_own ? &facts.program->own_library : named;
}

// --- The rules

void find_in_image(const CheckFacts& facts, Findings& found) {
    const std::string& path = facts.program->file.path;
    const Image& image = *facts.program->file.image;
    if (image.runs_as_32_bit) {
        add_finding(found, "program-architecture",
                    path + " is a 32-bit program, and only 64-bit programs are profiled",
                    "build it for x64, or without \"prefer 32-bit\"");
    } else if (image.machine != kMachineX64 && image.machine != kMachineX86) {
        add_finding(found, "program-architecture",
                    path + " is a program for another processor than x64", "build it for x64");
    } else if (image.is_native_aot) {
        add_finding(found, "program-native-aot",
                    path +
                        " was compiled ahead of time (native AOT), and has no runtime that loads a "
                        "profiler",
                    "publish it without PublishAot");
    } else if (!image.is_managed && !image.is_app_host && !facts.program->is_dotnet &&
               !is_worker(facts) && !facts.starts_others) {
        add_finding(
            found, "program-not-managed", path + " is not a .NET program",
            "name the .NET program that it starts; \"corvane run --children\" profiles all of "
            "them");
    }
}

void find_in_runtime_config(const CheckFacts& facts, const RuntimeConfig& config, Findings& found) {
    const FileFacts* const library = loaded_library(facts);
    const bool has_build = library != nullptr && library->is_for_standard;
    if (!has_build && runs_before_net_8(config, facts.variables)) {
        add_finding(found, "runtime-too-old",
                    facts.program->name + " runs on .NET " + config.version +
                        ", and the managed library needs .NET 8 or newer",
                    "name its build for .NET Standard (managed\\kite_framework) in "
                    "DOTNET_STARTUP_HOOKS, as \"corvane run\" does, or set "
                    "DOTNET_ROLL_FORWARD=LatestMajor");
    }
    if (!config.has_hooks) {
        add_finding(found, "hooks-off",
                    facts.program->name +
                        " has start-up hooks switched off, as trimmed programs have: the "
                        "managed library is not loaded",
                    "publish it without trimming, or with StartupHookSupport");
    }
}

void find_in_program(const CheckFacts& facts, Findings& found) {
    if (!facts.program) {
        return;
    }
    const ProgramFacts& program = *facts.program;
    if (!program.file.exists && program.assembly && program.assembly->exists) {
        add_finding(found, "program-missing", "there is no dotnet.exe to run " + program.name,
                    "put the folder of dotnet.exe on PATH, or name it in DOTNET_ROOT");
        return;
    }
    if (!program.file.exists) {
        add_finding(found, "program-missing", "there is no program " + program.name,
                    "give its full path, or its name if it is on PATH");
        return;
    }
    if (!program.file.image) {
        add_finding(found, "program-no-image",
                    program.file.path + " is no program of Windows, but perhaps a script",
                    "name the .NET program that it starts");
        return;
    }
    if (program.assembly && !program.assembly->exists) {
        add_finding(found, "program-missing", "there is no " + program.assembly->path,
                    "correct the path");
        return;
    }
    find_in_image(facts, found);
    if (program.runtime_config) {
        find_in_runtime_config(facts, *program.runtime_config, found);
    }
}

void find_in_variables(const CheckFacts& facts, Findings& found) {
    for (const wchar_t* const prefix : {L"DOTNET_", L"COMPlus_"}) {
        for (const wchar_t* const name : {L"EnableDiagnostics", L"EnableDiagnostics_Profiler"}) {
            const std::wstring whole = std::wstring(prefix) + name;
            if (variable(facts, whole) == "0" && !is_framework(facts)) {
                add_finding(found, "diagnostics-off",
                            to_utf8(whole) + "=0 keeps the runtime from loading a profiler",
                            "remove the variable");
            }
        }
    }
    const std::wstring used = read_family(facts);
    const std::wstring other = used == kNet ? kFramework : kNet;
    if (!asks_for_profiler(facts, used) && !asks_for_profiler(facts, other)) {
        add_finding(
            found, "variables-unset",
            "no variable asks the runtime for a profiler (" + to_utf8(used) +
                "ENABLE_PROFILING is not 1)",
            "use \"corvane run\", or set the variables that \"corvane run --env-only\" prints");
        return;
    }
    if (!asks_for_profiler(facts, used)) {
        add_finding(found, "variables-one-family",
                    "only the variables with " + to_utf8(other) +
                        " are set, and this program reads those with " + to_utf8(used),
                    "set both families: \"corvane run --env-only\" prints them");
        return;
    }
    const std::string profiler = variable(facts, used + L"PROFILER");
    if (profiler.empty()) {
        add_finding(found, "variables-contradictory",
                    to_utf8(used) + "ENABLE_PROFILING is 1, and " + to_utf8(used) +
                        "PROFILER is not set",
                    "set " + to_utf8(used) + "PROFILER=" + to_utf8(kProfilerClass));
    } else if (!boost::iequals(profiler, to_utf8(kProfilerClass))) {
        add_finding(found, "another-profiler",
                    to_utf8(used) + "PROFILER names another profiler, " + profiler +
                        ", and a process has one only",
                    "remove the other one, or set " + to_utf8(used) +
                        "PROFILER=" + to_utf8(kProfilerClass));
    }
    const std::string path = variable(facts, used + L"PROFILER_PATH");
    const std::string path_64 = variable(facts, used + L"PROFILER_PATH_64");
    if (!path.empty() && !path_64.empty() && !boost::iequals(path, path_64)) {
        add_finding(found, "variables-two-paths",
                    to_utf8(used) + "PROFILER_PATH and " + to_utf8(used) +
                        "PROFILER_PATH_64 name different files, and the second one counts",
                    "remove " + to_utf8(used) + "PROFILER_PATH_64");
    }
}

void find_in_profiler(const CheckFacts& facts, Findings& found) {
    if (!asks_for_profiler(facts, read_family(facts))) {
        return;
    }
    if (named_profiler(facts).empty()) {
        if (!facts.registered) {
            add_finding(found, "registration-absent",
                        "no variable names CorvaneProfiler.dll, and it is not registered",
                        "set CORECLR_PROFILER_PATH, or run \"corvane register\" as administrator");
            return;
        }
        if (!facts.profiler.exists) {
            add_finding(found, "registration-stale",
                        "the registered file is gone: " + *facts.registered,
                        "run \"corvane register\" as administrator");
            return;
        }
    }
    if (facts.registered && !facts.own_profiler.empty() &&
        !boost::iequals(*facts.registered, facts.own_profiler)) {
        add_finding(found, "registration-another",
                    "the registered file is another one than this tool's: " + *facts.registered,
                    "run \"corvane register\" as administrator, if this tool's is meant");
    }
    const FileFacts& file = facts.profiler;
    const std::string path = in_quotes(file.path);
    if (!file.is_full) {
        add_finding(found, "profiler-missing",
                    "the profiler is to be " + path +
                        ", which is no full path: the folder in which the program "
                        "starts decides which file that is",
                    "correct CORECLR_PROFILER_PATH and COR_PROFILER_PATH");
    } else if (!file.exists) {
        add_finding(found, "profiler-missing",
                    "the profiler is to be " + path + ", and there is no such file",
                    "correct CORECLR_PROFILER_PATH and COR_PROFILER_PATH");
    } else if (!file.is_readable) {
        add_finding(found, "profiler-unreadable", path + " cannot be read by this account",
                    "give the account the right to read and execute it");
    } else if (!file.image || file.image->machine != kMachineX64) {
        add_finding(found, "profiler-architecture", path + " is no DLL for 64-bit processes",
                    "name the CorvaneProfiler.dll that came with this tool");
    } else if (!file.image->exports.contains("DllGetClassObject")) {
        add_finding(found, "profiler-exports", path + " lacks the export DllGetClassObject",
                    "name the CorvaneProfiler.dll that came with this tool");
    }
}

// Both come from one build, wherever this tool comes from.
void find_in_version(const FileFacts& library, const FileFacts& profiler, Findings& found) {
    if (library.exists && profiler.exists &&
        (library.version.empty() || library.version != profiler.version)) {
        const auto named = [](const std::string& version) {
            return version.empty() ? "no version" : "the version " + version;
        };
        add_finding(found, "library-version",
                    in_quotes(library.path) + " has " + named(library.version) + ", and " +
                        in_quotes(profiler.path) + ' ' + named(profiler.version),
                    "name the kite.managed.dll that came with that CorvaneProfiler.dll");
    }
}

void find_in_library(const CheckFacts& facts, Findings& found) {
    if (is_framework(facts)) {
        if (!facts.program->own_library.exists && !facts.program->has_shared_library) {
            add_finding(found, "library-not-beside",
                        "kite.managed.dll is not beside " + facts.program->file.path +
                            ", and the .NET Framework looks nowhere else but in the global "
                            "assembly cache",
                        "copy the build for the .NET Framework (managed\\kite_framework) there");
        }
        find_in_version(facts.program->own_library, facts.profiler, found);
        return;
    }
    for (const FileFacts& hook : facts.hooks) {
        if (!hook.exists || !hook.is_full) {
            add_finding(found, "library-missing",
                        "DOTNET_STARTUP_HOOKS names " + in_quotes(hook.path) +
                            ", which is no file's full path: the runtime would end the program "
                            "before its Main",
                        "correct the variable");
        }
    }
    const FileFacts* const library = loaded_library(facts);
    if (library != nullptr) {
        find_in_version(*library, facts.profiler, found);
    }
    const bool carries =
        facts.program && facts.program->file.image && facts.program->file.image->bundle &&
        std::ranges::any_of(facts.program->file.image->bundle->files, [](const auto& file) {
            return boost::iequals(file, "kite.managed.dll");
        });
    if (carries && named_library(facts) != nullptr) {
        add_finding(found, "library-in-bundle",
                    facts.program->file.path +
                        " carries a kite.managed.dll of its own in its single file: the runtime "
                        "would end the program before its Main",
                    "remove kite.managed.dll from DOTNET_STARTUP_HOOKS for this program");
    }
    if (library == nullptr && !carries && !is_worker(facts)) {
        add_finding(
            found, "library-unnamed",
            "DOTNET_STARTUP_HOOKS does not name kite.managed.dll, so no method is instrumented",
            "set it to the full path of the library");
    }
}

void find_in_log(const CheckFacts& facts, Findings& found) {
    if (!facts.is_log_read) {
        add_finding(found, "log-unread",
                    "nobody reads the profiler's log: there is no viewer of debugger output, and "
                    "CORVANE_LOG_FILE is not set",
                    "set CORVANE_LOG_FILE to the full path of a file, or start \"corvane watch\" "
                    "before the program");
    }
}

} // namespace

bool is_worker(const CheckFacts& facts) {
    return facts.program && is_iis_worker(facts.program->process);
}

std::wstring named_profiler(const CheckFacts& facts) {
    const std::wstring family = read_family(facts);
    const std::wstring wide = value_of(facts.variables, family + L"PROFILER_PATH_64");
    return wide.empty() ? value_of(facts.variables, family + L"PROFILER_PATH") : wide;
}

Findings find_problems(const CheckFacts& facts) {
    Findings found;
    for (const auto find : {find_in_program, find_in_variables, find_in_profiler, find_in_config,
                            find_in_library, find_in_log}) {
        find(facts, found);
    }
    return found;
}

} // namespace corvane::tool
