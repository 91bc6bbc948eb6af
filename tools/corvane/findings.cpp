#include "tools/corvane/findings.h"

#include "tools/corvane/class_id.h"
#include "tools/corvane/near_names.h"
#include "tools/corvane/utf8.h"

#include <boost/algorithm/string/predicate.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>

namespace corvane::tool {
namespace {

constexpr std::array kKinds = {
    FindingKind{"program-missing", 101, true},
    FindingKind{"program-no-image", 102, true},
    FindingKind{"program-architecture", 103, true},
    FindingKind{"program-native-aot", 104, true},
    FindingKind{"program-not-managed", 105, true},
    FindingKind{"runtime-too-old", 106, true},
    FindingKind{"hooks-off", 107, true},
    FindingKind{"diagnostics-off", 110, true},
    FindingKind{"variables-unset", 111, true},
    FindingKind{"variables-one-family", 112, true},
    FindingKind{"variables-contradictory", 113, true},
    FindingKind{"another-profiler", 114, true},
    FindingKind{"registration-absent", 120, true},
    FindingKind{"registration-stale", 121, true},
    FindingKind{"registration-another", 122, false},
    FindingKind{"profiler-missing", 123, true},
    FindingKind{"profiler-unreadable", 124, true},
    FindingKind{"profiler-architecture", 125, true},
    FindingKind{"profiler-exports", 126, true},
    FindingKind{"home-unset", 130, true},
    FindingKind{"home-characters", 131, true},
    FindingKind{"config-missing", 132, true},
    FindingKind{"config-unreadable", 133, true},
    FindingKind{"config-section", 134, true},
    FindingKind{"config-entry", 135, true},
    FindingKind{"config-near-miss", 136, true},
    FindingKind{"config-disabled", 137, true},
    FindingKind{"config-value", 138, false},
    FindingKind{"library-unnamed", 140, true},
    FindingKind{"library-missing", 141, true},
    FindingKind{"library-version", 142, true},
    FindingKind{"library-in-bundle", 143, true},
    FindingKind{"library-not-beside", 144, true},
    FindingKind{"service-missing", 150, true},
    FindingKind{"pool-missing", 151, true},
    FindingKind{"registry-unreadable", 152, true},
    FindingKind{"pools-unreadable", 153, true},
    FindingKind{"log-unread", 160, false},
};

// --- The facts, in the words that the rules below use

bool is_worker(const CheckFacts& facts) {
    return facts.program && is_iis_worker(facts.program->process);
}

// Of the .NET Framework. Its programs are managed by themselves; those of .NET are started by a
// native host.
bool is_framework(const CheckFacts& facts) {
    return facts.program && facts.program->file.image && facts.program->file.image->is_managed &&
           !facts.program->runtime_config;
}

std::wstring wide_variable(const Environment& variables, const std::wstring& name) {
    const auto found = variables.find(name);
    return found == variables.end() ? std::wstring() : found->second;
}

std::string variable(const CheckFacts& facts, const std::wstring& name) {
    return to_utf8(wide_variable(facts.variables, name));
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

nlohmann::json parsed(const std::optional<std::string>& text) {
    nlohmann::json json = nlohmann::json::parse(text.value_or("{}"), nullptr, false, true);
    return json.is_object() ? json : nlohmann::json::object();
}

// What `path` leads to in an object, as text; empty where there is none.
std::string text_at(const nlohmann::json& json, const std::string& path) {
    const nlohmann::json::json_pointer pointer(path);
    return json.contains(pointer) && json.at(pointer).is_string()
               ? json.at(pointer).get<std::string>()
               : std::string();
}

// The version of the runtime that the program was made for; empty if that is not known.
std::string runtime_version(const nlohmann::json& config) {
    if (const std::string version = text_at(config, "/runtimeOptions/framework/version");
        !version.empty()) {
        return version;
    }
    for (const char* const list : {"frameworks", "includedFrameworks"}) {
        const nlohmann::json::json_pointer pointer(std::string("/runtimeOptions/") + list + "/0");
        if (config.contains(pointer) && config.at(pointer).is_object()) {
            return text_at(config.at(pointer), "/version");
        }
    }
    return {};
}

bool is_library(const std::string& path) {
    return boost::iequals(path.substr(path.find_last_of("\\/") + 1), "kite.managed.dll");
}

const FindingKind& kind_of(std::string_view id) {
    for (const FindingKind& kind : kKinds) {
        if (id == kind.id) {
            return kind;
        }
    }
    throw std::logic_error("no such finding");
}

// --- The rules

class Finder {
public:
    explicit Finder(const CheckFacts& facts) : facts_(facts) {}

    std::vector<Finding> find() {
        find_in_program();
        find_in_variables();
        find_in_profiler();
        find_in_config();
        find_in_library();
        if (!facts_.is_log_read) {
            add("log-unread",
                "nobody reads the profiler's log: there is no viewer of debugger output, and "
                "CORVANE_LOG_FILE is not set",
                "set CORVANE_LOG_FILE to the full path of a file, or start \"corvane watch\" "
                "before the program");
        }
        return std::move(found_);
    }

private:
    void add(std::string_view id, std::string text, std::string cure) {
        found_.push_back({&kind_of(id), std::move(text), std::move(cure)});
    }

    void find_in_program() {
        if (!facts_.program) {
            return;
        }
        const ProgramFacts& program = *facts_.program;
        if (!program.file.exists && program.assembly && program.assembly->exists) {
            add("program-missing", "there is no dotnet.exe to run " + program.name,
                "put the folder of dotnet.exe on PATH, or name it in DOTNET_ROOT");
            return;
        }
        if (!program.file.exists) {
            add("program-missing", "there is no program " + program.name,
                "give its full path, or its name if it is on PATH");
            return;
        }
        if (!program.file.image) {
            add("program-no-image",
                program.file.path + " is no program of Windows, but perhaps a script",
                "name the .NET program that it starts");
            return;
        }
        if (program.assembly && !program.assembly->exists) {
            add("program-missing", "there is no " + program.assembly->path, "correct the path");
            return;
        }
        find_in_image(*program.file.image);
        find_in_runtime_config(parsed(program.runtime_config));
    }

    void find_in_image(const Image& image) {
        const std::string& path = facts_.program->file.path;
        if (image.runs_as_32_bit) {
            add("program-architecture",
                path + " is a 32-bit program, and only 64-bit programs are profiled",
                "build it for x64, or without \"prefer 32-bit\"");
        } else if (image.machine != kMachineX64 && image.machine != kMachineX86) {
            add("program-architecture", path + " is a program for another processor than x64",
                "build it for x64");
        } else if (image.is_native_aot) {
            add("program-native-aot",
                path + " was compiled ahead of time (native AOT), and has no runtime that loads a "
                       "profiler",
                "publish it without PublishAot");
        } else if (!image.is_managed && !image.is_app_host && !facts_.program->is_dotnet &&
                   !is_worker(facts_) && !facts_.starts_others) {
            add("program-not-managed", path + " is not a .NET program",
                "name the .NET program that it starts; \"corvane run --children\" profiles all of "
                "them");
        }
    }

    void find_in_runtime_config(const nlohmann::json& config) {
        const bool has_build = std::ranges::any_of(facts_.hooks, [](const FileFacts& hook) {
            return is_library(hook.path) && hook.is_for_standard;
        });
        if (!has_build && runs_before_net_8(*facts_.program, facts_.variables)) {
            add("runtime-too-old",
                facts_.program->name + " runs on .NET " + runtime_version(config) +
                    ", and the managed library needs .NET 8 or newer",
                "name its build for .NET Standard (managed\\kite_framework) in "
                "DOTNET_STARTUP_HOOKS, as \"corvane run\" does, or set "
                "DOTNET_ROLL_FORWARD=LatestMajor");
        }
        const nlohmann::json::json_pointer hooks(
            "/runtimeOptions/configProperties/System.StartupHookProvider.IsSupported");
        if (config.contains(hooks) && (config.at(hooks) == false || config.at(hooks) == "false")) {
            add("hooks-off",
                facts_.program->name +
                    " has start-up hooks switched off, as trimmed programs have: the "
                    "managed library is not loaded",
                "publish it without trimming, or with StartupHookSupport");
        }
    }

    void find_in_variables() {
        for (const wchar_t* const prefix : {L"DOTNET_", L"COMPlus_"}) {
            for (const wchar_t* const name :
                 {L"EnableDiagnostics", L"EnableDiagnostics_Profiler"}) {
                const std::wstring whole = std::wstring(prefix) + name;
                if (variable(facts_, whole) == "0" && !is_framework(facts_)) {
                    add("diagnostics-off",
                        to_utf8(whole) + "=0 keeps the runtime from loading a profiler",
                        "remove the variable");
                }
            }
        }
        const std::wstring used = read_family(facts_);
        const std::wstring other = used == kNet ? kFramework : kNet;
        if (!asks_for_profiler(facts_, used) && !asks_for_profiler(facts_, other)) {
            add("variables-unset",
                "no variable asks the runtime for a profiler (" + to_utf8(used) +
                    "ENABLE_PROFILING is not 1)",
                "use \"corvane run\", or set the variables that \"corvane run --env-only\" prints");
            return;
        }
        if (!asks_for_profiler(facts_, used)) {
            add("variables-one-family",
                "only the variables with " + to_utf8(other) +
                    " are set, and this program reads those with " + to_utf8(used),
                "set both families: \"corvane run --env-only\" prints them");
            return;
        }
        const std::string profiler = variable(facts_, used + L"PROFILER");
        if (profiler.empty()) {
            add("variables-contradictory",
                to_utf8(used) + "ENABLE_PROFILING is 1, and " + to_utf8(used) +
                    "PROFILER is not set",
                "set " + to_utf8(used) + "PROFILER=" + to_utf8(kProfilerClass));
        } else if (!boost::iequals(profiler, to_utf8(kProfilerClass))) {
            add("another-profiler",
                to_utf8(used) + "PROFILER names another profiler, " + profiler +
                    ", and a process has one only",
                "remove the other one, or set " + to_utf8(used) +
                    "PROFILER=" + to_utf8(kProfilerClass));
        }
        const std::string path = variable(facts_, used + L"PROFILER_PATH");
        const std::string path_64 = variable(facts_, used + L"PROFILER_PATH_64");
        if (!path.empty() && !path_64.empty() && !boost::iequals(path, path_64)) {
            add("variables-contradictory",
                to_utf8(used) + "PROFILER_PATH and " + to_utf8(used) +
                    "PROFILER_PATH_64 name different files, and the second one counts",
                "remove " + to_utf8(used) + "PROFILER_PATH_64");
        }
        names_path_ = !path.empty() || !path_64.empty();
        is_asked_for_ = true;
    }

    void find_in_profiler() {
        if (!is_asked_for_) {
            return;
        }
        if (!names_path_) {
            if (!facts_.registered) {
                add("registration-absent",
                    "no variable names CorvaneProfiler.dll, and it is not registered",
                    "set CORECLR_PROFILER_PATH, or run \"corvane register\" as administrator");
                return;
            }
            if (!facts_.profiler.exists) {
                add("registration-stale", "the registered file is gone: " + *facts_.registered,
                    "run \"corvane register\" as administrator");
                return;
            }
        }
        if (facts_.registered && !facts_.own_profiler.empty() &&
            !boost::iequals(*facts_.registered, facts_.own_profiler)) {
            add("registration-another",
                "the registered file is another one than this tool's: " + *facts_.registered,
                "run \"corvane register\" as administrator, if this tool's is meant");
        }
        const FileFacts& file = facts_.profiler;
        const std::string path = in_quotes(file.path);
        if (!file.exists) {
            add("profiler-missing", "the profiler is to be " + path + ", and there is no such file",
                "correct CORECLR_PROFILER_PATH and COR_PROFILER_PATH");
        } else if (!file.is_readable) {
            add("profiler-unreadable", path + " cannot be read by this account",
                "give the account the right to read and execute it");
        } else if (!file.image || file.image->machine != kMachineX64) {
            add("profiler-architecture", path + " is no DLL for 64-bit processes",
                "name the CorvaneProfiler.dll that came with this tool");
        } else if (!file.image->exports.contains("DllGetClassObject")) {
            add("profiler-exports", path + " lacks the export DllGetClassObject",
                "name the CorvaneProfiler.dll that came with this tool");
        }
    }

    void find_in_config() {
        if (!facts_.home) {
            add("home-characters",
                "the value of CORVANE_HOME_APM_DOTNET has characters that the system's code page "
                "has not",
                "use a folder whose name has only characters of the code page");
            return;
        }
        if (is_worker(facts_)) {
            find_in_gate(); // a worker is profiled without a configuration
            return;
        }
        if (facts_.home->empty()) {
            add("home-unset", "CORVANE_HOME_APM_DOTNET is not set, so there is no agent.config",
                "set it to the folder of agent.config");
        } else if (!facts_.config_exists) {
            add("config-missing", "there is no agent.config in " + *facts_.home,
                "write one, or correct CORVANE_HOME_APM_DOTNET");
        } else if (!facts_.config) {
            add("config-unreadable",
                "agent.config in " + *facts_.home +
                    " cannot be read: it is no XML in UTF-8, nests too deep, or this account "
                    "may not read it",
                "correct the file");
        } else {
            find_in_gate();
        }
    }

    void find_in_gate() {
        if (!facts_.program) {
            return;
        }
        const AgentConfig* const config = facts_.config ? &*facts_.config : nullptr;
        const LogSink silent = [](int, const wchar_t*) {};
        const ProcessFacts& process = facts_.program->process;
        const GateDecision decision = decide_trace(process, config, silent);
        if (decision.verdict == GateVerdict::kTrace) {
            find_odd_value(*config_entries(), process.executable_name);
        } else if (is_worker(facts_)) {
            if (decision.verdict == GateVerdict::kRefuse ||
                check_key(*config, "Corvane", "Disabled", silent)) {
                add("config-disabled",
                    "agent.config in " + *facts_.home + " disables " + facts_.program->name,
                    decision.verdict == GateVerdict::kRefuse
                        ? "write corvane=\"Enabled\" to the entry of the application pool"
                        : "list the pool with corvane=\"Enabled\", for the setting Corvane is "
                          "Disabled");
            }
        } else {
            explain_refusal(process.executable_name);
        }
    }

    // A worker has no entry here.
    const AgentConfig* config_entries() const {
        static const AgentConfig none;
        const auto entries =
            facts_.config
                ? facts_.config->get_child_optional("configuration.instrumentation.applications")
                : boost::none;
        return entries ? &*entries : &none;
    }

    void explain_refusal(const std::string& executable) {
        const std::string entry = "<application name=\"" + executable + "\" corvane=\"Enabled\"/>";
        const std::string file = *facts_.home + "\\agent.config";
        const AgentConfig* element = &*facts_.config;
        for (const char* const name : {"configuration", "instrumentation", "applications"}) {
            const auto child = element->get_child_optional(name);
            if (!child) {
                std::vector<std::string> names;
                for (const auto& [other, ignored] : *element) {
                    names.push_back(other);
                }
                const auto near = near_name(name, names);
                add(near ? "config-near-miss" : "config-section",
                    file + " has no element " + name +
                        (near ? ", but one called " + *near : std::string()),
                    near ? "write it as " + std::string(name)
                         : "add the section configuration/instrumentation/applications with " +
                               entry);
                return;
            }
            element = &*child;
        }
        std::vector<std::string> names;
        for (const auto& [ignored, application] : *element) {
            const auto name = application.get_child_optional("<xmlattr>.name");
            if (name && (boost::iequals(name->data(), executable) || name->data() == "*")) {
                add("config-disabled", file + " has corvane=\"Disabled\" for " + executable,
                    "write corvane=\"Enabled\"");
                return;
            }
            if (name) {
                names.push_back(name->data());
            }
        }
        if (const auto near = near_name(executable, names)) {
            add("config-near-miss",
                file + " does not list " + executable + ", but " + in_quotes(*near),
                "write the name of the running file, " + in_quotes(executable));
        } else {
            add("config-entry", file + " does not list " + executable, "add " + entry);
        }
    }

    void find_odd_value(const AgentConfig& entries, const std::string& executable) {
        for (const auto& [ignored, application] : entries) {
            const auto name = application.get_child_optional("<xmlattr>.name");
            if (name && boost::iequals(name->data(), executable)) {
                const std::string value = application.get("<xmlattr>.corvane", "Enabled");
                if (value != "Enabled") {
                    add("config-value",
                        "corvane=" + in_quotes(value) +
                            " counts as enabled: only \"Disabled\", "
                            "exactly so, disables",
                        "write corvane=\"Enabled\" or corvane=\"Disabled\"");
                }
                return;
            }
        }
    }

    void find_in_library() {
        if (is_framework(facts_)) {
            if (!facts_.program->own_library.exists && !facts_.program->has_shared_library) {
                add("library-not-beside",
                    "kite.managed.dll is not beside " + facts_.program->file.path +
                        ", and the .NET Framework looks nowhere else but in the global "
                        "assembly cache",
                    "copy the build for the .NET Framework (managed\\kite_framework) there");
            }
            find_in_version(facts_.program->own_library);
            return;
        }
        bool is_named = false;
        for (const FileFacts& hook : facts_.hooks) {
            if (!hook.exists) {
                add("library-missing",
                    "DOTNET_STARTUP_HOOKS names " + in_quotes(hook.path) +
                        ", which is no file's full path: the runtime would end the program "
                        "before its Main",
                    "correct the variable");
            }
            if (is_library(hook.path)) {
                is_named = true;
                find_in_version(hook);
            }
        }
        const bool carries =
            facts_.program && facts_.program->file.image && facts_.program->file.image->bundle &&
            std::ranges::any_of(facts_.program->file.image->bundle->files, [](const auto& file) {
                return boost::iequals(file, "kite.managed.dll");
            });
        if (carries && is_named) {
            add("library-in-bundle",
                facts_.program->file.path +
                    " carries a kite.managed.dll of its own in its single file: the runtime "
                    "would end the program before its Main",
                "remove kite.managed.dll from DOTNET_STARTUP_HOOKS for this program");
        }
        const bool has_own = facts_.program && facts_.program->own_library.exists;
        if (has_own && !is_named) {
            find_in_version(facts_.program->own_library);
        }
        if (!is_named && !carries && !has_own && !is_worker(facts_)) {
            add("library-unnamed",
                "DOTNET_STARTUP_HOOKS does not name kite.managed.dll, so no method is instrumented",
                "set it to the full path of the library");
        }
    }

    // Both come from one build, wherever this tool comes from.
    void find_in_version(const FileFacts& library) {
        if (library.exists && facts_.profiler.exists &&
            library.version != facts_.profiler.version) {
            const auto named = [](const std::string& version) {
                return version.empty() ? "no version" : "the version " + version;
            };
            add("library-version",
                in_quotes(library.path) + " has " + named(library.version) + ", and " +
                    in_quotes(facts_.profiler.path) + ' ' + named(facts_.profiler.version),
                "name the kite.managed.dll that came with that CorvaneProfiler.dll");
        }
    }

    const CheckFacts& facts_;
    std::vector<Finding> found_;
    bool names_path_ = false;
    bool is_asked_for_ = false;
};

} // namespace

std::span<const FindingKind> finding_kinds() {
    return kKinds;
}

FailedFinding::FailedFinding(Finding reason)
    : Failure(reason.text + ": " + reason.cure + " (" + page_of(*reason.kind) + ')',
              reason.kind->exit_code),
      finding(std::move(reason)) {}

bool runs_before_net_8(const ProgramFacts& program, const Environment& variables) {
    const nlohmann::json config = parsed(program.runtime_config);
    const std::string version = runtime_version(config);
    const std::string by_variable = to_utf8(wide_variable(variables, L"DOTNET_ROLL_FORWARD"));
    const std::string policy =
        by_variable.empty() ? text_at(config, "/runtimeOptions/rollForward") : by_variable;
    return !version.empty() && !boost::iends_with(policy, "Major") &&
           std::atoi(version.c_str()) < 8;
}

std::wstring named_profiler(const CheckFacts& facts) {
    const std::wstring family = read_family(facts);
    const std::wstring wide = wide_variable(facts.variables, family + L"PROFILER_PATH_64");
    return wide.empty() ? wide_variable(facts.variables, family + L"PROFILER_PATH") : wide;
}

std::vector<Finding> find_problems(const CheckFacts& facts) {
    return Finder(facts).find();
}

Finding missing_on_machine(bool is_service, const std::string& name) {
    return {&kind_of(is_service ? "service-missing" : "pool-missing"),
            "this machine has no " + std::string(is_service ? "service " : "application pool ") +
                name,
            is_service ? "give the service's name, which is not the one that is displayed"
                       : "correct the name"};
}

Finding unreadable_registry(const std::string& key, const std::string& reason) {
    return {&kind_of("registry-unreadable"),
            "cannot read the registry, " + key + " (" + reason + ')',
            "run this command as administrator"};
}

Finding unreadable_pools(const std::string& file, const std::string& reason) {
    return {&kind_of("pools-unreadable"),
            "cannot read the application pools, " + file + " (" + reason + ')',
            "run this command as administrator"};
}

std::string page_of(const FindingKind& kind) {
    return std::string("docs/troubleshooting.md#") + kind.id;
}

const Finding* first_reason(const std::vector<Finding>& findings) {
    const auto found = std::ranges::find_if(
        findings, [](const Finding& finding) { return finding.kind->is_reason; });
    return found == findings.end() ? nullptr : &*found;
}

} // namespace corvane::tool
