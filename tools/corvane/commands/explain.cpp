// corvane explain
#include "profiler/agent_config.h"
#include "profiler/profiler_switches.h"
#include "tools/corvane/columns.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/offline/engine_faults.h"
#include "tools/corvane/offline/explain_report.h"
#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/il_lines.h"
#include "tools/corvane/offline/metadata_names.h"
#include "tools/corvane/offline/runtime_folder.h"
#include "tools/corvane/program.h"
#include "tools/corvane/terminal.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

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

struct Decided {
    FunctionID function = 0;
    MethodFate fate;
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

std::vector<Decided> decide_all(Explanation& explanation) {
    const std::vector<FunctionID> functions = explanation.runtime().functions();
    std::vector<Decided> decided;
    decided.reserve(functions.size());
    ProgressLine progress;
    for (const FunctionID function : functions) {
        decided.push_back({function, explanation.decide(function)});
        progress.show(std::to_string(decided.size()) + " of " + std::to_string(functions.size()) +
                      " methods");
    }
    return decided;
}

// Without patterns those that are chosen.
std::vector<const Decided*> select(const std::vector<Decided>& all, const std::string& patterns,
                                   MetadataNames& names) {
    MethodPatterns shown;
    shown.append(to_wide(patterns), complain);
    std::vector<const Decided*> selected;
    for (const Decided& method : all) {
        const mdMethodDef token = OfflineRuntime::token_of(method.function);
        if (patterns.empty() ? method.fate.fate != Fate::kNotChosen
                             : shown.would_match(to_wide(names.full_method_name(token)))) {
            selected.push_back(&method);
        }
    }
    return selected;
}

struct Bodies {
    IlText before;
    std::optional<IlText> after; // of an instrumented method
};

Bodies bodies_of(const Decided& method, Explanation& explanation, MetadataNames& names) {
    const mdMethodDef token = OfflineRuntime::token_of(method.function);
    Bodies bodies = {il_lines(explanation.runtime().original_body(token), names), std::nullopt};
    if (method.fate.fate == Fate::kInstrumented) {
        bodies.after = il_lines(explanation.runtime().new_body(token), names);
    }
    return bodies;
}

std::string count_text(std::size_t count, const char* what) {
    return std::to_string(count) + ' ' + what;
}

std::string assumption(const Neighbours& neighbours) {
    return "Taken as loaded: kite.managed, all libraries beside the assembly (" +
           std::to_string(neighbours.beside) + ") and of the framework (" +
           std::to_string(neighbours.of_runtime) + ')';
}

class Report {
public:
    Report(const Options& options, Explanation& explanation, const Neighbours& neighbours,
           fs::path runtime)
        : options_(options),
          explanation_(explanation),
          neighbours_(neighbours),
          runtime_(std::move(runtime)),
          names_(explanation.runtime().metadata()) {}

    void print_text() {
        const std::vector<Decided> all = decide_all(explanation_);
        layout_.width = std::max<std::size_t>(
            options_.width != 0 ? options_.width : console_width().value_or(kFileWidth),
            kLeastWidth);
        layout_.has_colours = enable_colours();
        print_wrapped(options_.assembly + ", " +
                      (options_.default_form ? "default form" : "strict form"));
        print_wrapped("Runtime: " + to_utf8(runtime_.wstring()));
        print_wrapped(assumption(neighbours_));
        print_line("");
        std::string type;
        const std::vector<const Decided*> selected = select(all, options_.shown, names_);
        for (const Decided* const method : selected) {
            print_method(*method, type);
        }
        if (!selected.empty() && !options_.shows_code) {
            print_line("");
        }
        print_summary(all);
    }

    void print_json() {
        const std::vector<Decided> all = decide_all(explanation_);
        Json head;
        head["assembly"] = options_.assembly;
        head["strict"] = !options_.default_form;
        head["runtime"] = to_utf8(runtime_.wstring());
        head["taken_as_loaded"] = {{"beside", neighbours_.beside},
                                   {"of_framework", neighbours_.of_runtime}};
        for (const Fate fate : {Fate::kInstrumented, Fate::kLeft, Fate::kNotChosen}) {
            head["counts"][text_of(fate)] = std::ranges::count(
                all, fate, [](const Decided& method) { return method.fate.fate; });
        }
        // One method at a time: with their code they take more memory than the assembly.
        std::string text = dump(head);
        text.pop_back();
        print(text + ",\"methods\":[");
        const char* divider = "\n";
        for (const Decided* const method : select(all, options_.shown, names_)) {
            print(divider + dump(json_of(*method)));
            divider = ",\n";
        }
        print_line("]}");
    }

private:
    static std::string dump(const Json& json) {
        return json.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    void print_wrapped(const std::string& text) {
        for (const std::string& line : wrapped(text, layout_.width - 1, 2)) {
            print_line(line);
        }
    }

    // Behind the name of its type, if that is another one than before.
    void print_method(const Decided& method, std::string& type) {
        const mdMethodDef token = OfflineRuntime::token_of(method.function);
        if (std::string own = names_.type_of_method(token); own != type) {
            type = std::move(own);
            print_wrapped(type);
        }
        print(method_lines(method.fate, to_utf8(method.fate.reason), names_.method(token, false),
                           layout_));
        if (options_.shows_code) {
            const Bodies bodies = bodies_of(method, explanation_, names_);
            print(body_lines(bodies.before, bodies.after ? &*bodies.after : nullptr, layout_));
        }
    }

    void print_summary(const std::vector<Decided>& all) {
        std::map<Fate, std::size_t> fates;
        std::map<std::wstring, std::size_t> reasons;
        for (const Decided& method : all) {
            ++fates[method.fate.fate];
            if (method.fate.fate == Fate::kLeft) {
                ++reasons[method.fate.reason];
            }
        }
        print_wrapped(count_text(all.size(), "methods with code: ") +
                      count_text(fates[Fate::kInstrumented], "instrumented, ") +
                      count_text(fates[Fate::kLeft], "left as they are, ") +
                      count_text(fates[Fate::kNotChosen], "not chosen"));
        std::vector<std::pair<std::size_t, std::string>> sorted;
        for (const auto& [reason, count] : reasons) {
            sorted.emplace_back(count, to_utf8(reason));
        }
        std::ranges::stable_sort(sorted, std::ranges::greater(),
                                 [](const auto& entry) { return entry.first; });
        for (const auto& [count, reason] : sorted) {
            char number[16] = {};
            static_cast<void>(std::snprintf(number, sizeof number, "%6zu  ", count));
            for (const std::string& line : wrapped(number + reason, layout_.width - 1, 8)) {
                print_line(line);
            }
        }
        if (fates[Fate::kInstrumented] + fates[Fate::kLeft] == 0 && options_.shown.empty()) {
            print_wrapped("--method PATTERN chooses methods by name, as with \"corvane run\"; "
                          "--show \"*\" shows those that are not chosen");
        }
    }

    Json json_of(const Decided& method) {
        const mdMethodDef token = OfflineRuntime::token_of(method.function);
        char number[16] = {};
        static_cast<void>(
            std::snprintf(number, sizeof number, "0x%08lx", static_cast<unsigned long>(token)));
        Json json;
        json["token"] = number;
        json["method"] = names_.full_method_name(token);
        json["signature"] = names_.method(token, false);
        json["outcome"] = text_of(method.fate.fate);
        if (method.fate.rule != Rule::kNone) {
            json["rule"] = text_of(method.fate.rule);
        }
        if (method.fate.fate == Fate::kLeft) {
            json["reason"] = to_utf8(method.fate.reason);
        }
        if (options_.shows_code) {
            const Bodies bodies = bodies_of(method, explanation_, names_);
            json["before"] = json_of(bodies.before);
            if (bodies.after) {
                json["after"] = json_of(*bodies.after);
            }
        }
        return json;
    }

    static Json json_of(const IlText& body) {
        if (!body) {
            return nullptr;
        }
        Json lines = Json::array();
        for (const IlLine& line : *body) {
            std::string text(line.depth * std::size_t{2}, ' ');
            text += line.label.empty() ? line.text : line.label + "  " + line.text;
            lines.push_back(std::move(text));
        }
        return lines;
    }

    const Options& options_;
    Explanation& explanation_;
    Neighbours neighbours_;
    fs::path runtime_;
    MetadataNames names_;
    Layout layout_;
};

int explain(const Options& options) {
    std::error_code error;
    const fs::path assembly = fs::absolute(to_wide(options.assembly), error);
    if (!fs::is_regular_file(assembly, error)) {
        throw Failure(options.assembly + " is not there", kAssemblyMissing);
    }
    const fs::path runtime = runtime_for(assembly, options);
    end_on_engine_fault("corvane: " + options.assembly + kMetadataDamaged, kAssemblyDamaged);
    Explanation explanation(settings_of(options), complain);
    const Neighbours neighbours = open(explanation, assembly, runtime, options);
    Report report(options, explanation, neighbours, runtime);
    if (options.json) {
        report.print_json();
    } else {
        report.print_text();
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
