// corvane explain
#include "profiler/agent_config.h"
#include "profiler/profiler_switches.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/offline/decided_methods.h"
#include "tools/corvane/offline/engine_faults.h"
#include "tools/corvane/offline/explain_json.h"
#include "tools/corvane/offline/explain_report.h"
#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/metadata_names.h"
#include "tools/corvane/offline/runtime_folder.h"
#include "tools/corvane/program.h"
#include "tools/corvane/terminal.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMetadataDamaged = " is damaged: its metadata cannot be read";

constexpr std::size_t kFileWidth = 120; // of lines that no console bounds
constexpr std::size_t kLeastWidth = 60;

struct Options {
    std::string assembly;
    std::vector<std::string> methods;
    std::string shown;
    std::string config;
    std::string runtime;
    unsigned width = 0;
    bool shows_code = false;
    bool default_form = false;
    bool json = false;
};

void complain(std::wstring_view pattern, const wchar_t* reason) {
    print_error('"' + to_utf8(pattern) + "\" is left out: " + to_utf8(reason));
}

// What the profiler reads where this folder is its home.
ProfilerSwitches read_configuration(const std::string& folder) {
    ProfilerSwitches switches;
    if (folder.empty()) {
        return switches;
    }
    const LogSink no_log = [](int, const wchar_t*) {};
    AgentConfig config;
    const auto home = in_code_page(to_wide(folder)); // as the profiler reads the name
    if (!home || !load_agent_config(*home, config, no_log)) {
        throw Failure(folder + " has no agent.config that can be read", kConfigMissing);
    }
    read_switches(
        [&](const char* key, const char* value) { return check_key(config, key, value, no_log); },
        switches);
    return switches;
}

ExplainSettings settings_of(const Options& options) {
    const ProfilerSwitches switches = read_configuration(options.config);
    std::wstring patterns;
    for (const std::string& pattern : options.methods) {
        patterns += to_wide(pattern) + L';';
    }
    return {
        {switches.transparencyInstrumentation, !options.default_form},
        {switches.logTraceIdEnabled, switches.insertLogTraceId, switches.addAttributeLogTraceId},
        patterns};
}

fs::path runtime_for(const fs::path& assembly, const Options& options) {
    const auto asked =
        options.runtime.empty() ? std::nullopt : std::optional<fs::path>(to_wide(options.runtime));
    if (const auto found = find_runtime(assembly, asked)) {
        return *found;
    }
    throw Failure(asked ? options.runtime + " holds no .NET runtime for 64-bit Windows"
                        : "no .NET runtime is installed here; --runtime names a folder with one",
                  kRuntimeMissing);
}

// A program is started by an executable that holds no methods.
std::string hint_for(const fs::path& assembly) {
    fs::path library = assembly;
    library.replace_extension(L".dll");
    std::error_code error;
    return library != assembly && fs::is_regular_file(library, error)
               ? "; the methods are in " + to_utf8(library.filename().wstring())
               : "";
}

Neighbours open(Explanation& explanation, const fs::path& assembly, const fs::path& runtime,
                const Options& options) {
    auto bytes = read_file_bytes(assembly);
    if (!bytes) {
        throw Failure(options.assembly + " cannot be read", kAssemblyMissing);
    }
    switch (explanation.open(assembly, std::move(*bytes), runtime)) {
    case OpenResult::kOpened:
        break;
    case OpenResult::kNotManaged:
        throw Failure(options.assembly + " is no .NET assembly" + hint_for(assembly),
                      kAssemblyNotManaged);
    case OpenResult::kDamaged:
        throw Failure(options.assembly + kMetadataDamaged, kAssemblyDamaged);
    case OpenResult::kNoRuntime:
        throw Failure("the runtime in " + to_utf8(runtime.wstring()) + " cannot be loaded",
                      kRuntimeMissing);
    }
    return explanation.take_neighbours(assembly, runtime);
}

std::vector<Decided> decide_with_progress(Explanation& explanation) {
    ProgressLine progress;
    return decide_all(explanation, [&progress](std::size_t done, std::size_t all) {
        progress.show(std::to_string(done) + " of " + std::to_string(all) + " methods");
    });
}

std::optional<MethodPatterns> shown_patterns(const Options& options) {
    if (options.shown.empty()) {
        return std::nullopt;
    }
    MethodPatterns patterns;
    patterns.append(to_wide(options.shown), complain);
    return patterns;
}

Layout layout_of(const Options& options) {
    return {std::max<std::size_t>(options.width != 0 ? options.width
                                                     : console_width().value_or(kFileWidth),
                                  kLeastWidth),
            enable_colours()};
}

void print_text(const ExplainedAssembly& assembly, const std::vector<Decided>& all,
                const std::vector<const Decided*>& shown, Explanation& explanation,
                MetadataNames& names, const Options& options) {
    const Layout layout = layout_of(options);
    print(
        text_lines(assembly.path + (assembly.strict ? ", strict form" : ", default form"), layout));
    print(text_lines("Runtime: " + assembly.runtime, layout));
    print(text_lines("Taken as loaded: kite.managed, all libraries beside the assembly (" +
                         std::to_string(assembly.neighbours.beside) + ") and of the framework (" +
                         std::to_string(assembly.neighbours.of_runtime) + ')',
                     layout));
    print_line("");
    std::string type; // of the method before
    for (const Decided* const method : shown) {
        if (const std::string& own = names.type_of_method(method->token); own != type) {
            type = own;
            print(text_lines(type, layout));
        }
        print(method_lines(method->fate, to_utf8(method->fate.reason),
                           names.method(method->token, false), layout));
        if (options.shows_code) {
            const Bodies bodies = bodies_of(*method, explanation, names);
            print(body_lines(bodies.before, bodies.after ? &*bodies.after : nullptr, layout));
        }
    }
    if (!shown.empty() && !options.shows_code) {
        print_line("");
    }
    Totals totals = totals_of(all);
    const bool is_nothing_chosen = totals.methods[Fate::kNotChosen] == all.size();
    print(total_lines(std::move(totals), layout));
    if (is_nothing_chosen && options.shown.empty()) {
        print(text_lines("--method PATTERN chooses methods by name, as with \"corvane run\"; "
                         "--show \"*\" shows those that are not chosen",
                         layout));
    }
}

void print_json(const ExplainedAssembly& assembly, const std::vector<Decided>& all,
                const std::vector<const Decided*>& shown, Explanation& explanation,
                MetadataNames& names, bool shows_code) {
    print(json_head(assembly, totals_of(all)));
    const char* divider = "\n";
    for (const Decided* const method : shown) {
        const auto bodies =
            shows_code ? std::optional(bodies_of(*method, explanation, names)) : std::nullopt;
        print(divider + json_of(*method, bodies ? &*bodies : nullptr, names));
        divider = ",\n";
    }
    print_line("]}");
}

int explain(const Options& options) {
    std::error_code error;
    const fs::path assembly = fs::absolute(to_wide(options.assembly), error);
    if (!fs::is_regular_file(assembly, error)) {
        throw Failure(options.assembly + " is not there", kAssemblyMissing);
    }
    const fs::path runtime = runtime_for(assembly, options);
    end_on_engine_fault("corvane: " + options.assembly + kMetadataDamaged, kAssemblyDamaged);
    Explanation explanation(settings_of(options), complain);
    const ExplainedAssembly opened = {options.assembly, to_utf8(runtime.wstring()),
                                      !options.default_form,
                                      open(explanation, assembly, runtime, options)};
    MetadataNames names(explanation.runtime().metadata());
    const std::vector<Decided> all = decide_with_progress(explanation);
    const std::vector<const Decided*> shown = selected(all, shown_patterns(options), names);
    if (options.json) {
        print_json(opened, all, shown, explanation, names, options.shows_code);
    } else {
        print_text(opened, all, shown, explanation, names, options);
    }
    return kSuccess;
}

} // namespace

Work define_explain(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("ASSEMBLY", options->assembly, "The program's or library's .dll")->required();
    app.add_option("--method", options->methods,
                   "Also choose methods whose full names match, as with \"corvane run\"; may be "
                   "repeated, and \"!\" in front excludes")
        ->type_name("PATTERN")
        ->expected(1)
        ->take_all();
    app.add_option("--show", options->shown,
                   "Show the methods whose full names match, chosen or not, and no others")
        ->type_name("PATTERN");
    app.add_flag("--il", options->shows_code, "Show the code, before and after");
    app.add_option("--config", options->config, "Read the switches from DIR\\agent.config")
        ->type_name("DIR");
    app.add_option("--runtime", options->runtime,
                   "Use this .NET: an installation, or the folder with its coreclr.dll")
        ->type_name("DIR");
    app.add_flag("--default-form", options->default_form,
                 "Show the form of the code without CORVANE_STRICT_IL=1");
    app.add_option("--width", options->width, "Columns of the output; from 120 on side by side")
        ->type_name("N");
    app.add_flag("--json", options->json, "Print JSON");
    return [options](const Words&) { return explain(*options); };
}

} // namespace corvane::tool
