// corvane run
#include "tools/corvane/check_facts.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/installation.h"
#include "tools/corvane/launch.h"
#include "tools/corvane/output_file.h"
#include "tools/corvane/profile_formats.h"
#include "tools/corvane/run_folder.h"
#include "tools/corvane/run_plan.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <optional>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

struct Options : RunOptions {
    std::wstring config; // a folder; empty: the run has its own
    std::string env_only;
    bool detach = false;
};

// The values as they stand on the command line.
struct Texts {
    std::string tree, summary, trace, otlp, values, log, config, env_only;
    ForEachFormat<std::string> profiles;
    std::vector<std::string> methods;
    int sample = 0;
    int level = 0;
    bool no_inlining = false, children = false, detach = false;
};

std::optional<std::wstring> file_of(const CLI::App& app, const char* option,
                                    const std::string& text) {
    if (app.count(option) == 0) {
        return std::nullopt;
    }
    const std::wstring wide = to_wide(text);
    return wide.empty() || is_address(wide) ? wide : full_path(wide).wstring();
}

Options options_of(const CLI::App& app, const Texts& texts) {
    Options options;
    options.tree = file_of(app, "--tree", texts.tree);
    options.summary = file_of(app, "--summary", texts.summary);
    options.trace = file_of(app, "--trace", texts.trace);
    options.otlp = file_of(app, "--otlp", texts.otlp);
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        options.profiles[i] = file_of(app, kProfileFormats[i].option, texts.profiles[i]);
    }
    options.log = file_of(app, "--log", texts.log);
    if (app.count("--sample") != 0) {
        options.sample_interval = texts.sample;
    }
    if (app.count("--level") != 0) {
        options.level = texts.level;
    }
    if (app.count("--values") != 0) {
        options.values = to_wide(texts.values);
    }
    for (const std::string& pattern : texts.methods) {
        options.methods.push_back(to_wide(pattern));
    }
    options.no_inlining = texts.no_inlining;
    options.children = texts.children;
    options.detach = texts.detach;
    options.env_only = texts.env_only;
    options.config =
        texts.config.empty() ? std::wstring() : full_path(to_wide(texts.config)).wstring();
    return options;
}

[[noreturn]] void refuse(const std::string& line) {
    throw Failure(line, kMisused);
}

void require_consistent(const Options& options) {
    if (!options.config.empty() && options.no_inlining) {
        refuse("--no-inlining has no effect with --config: write inlining=\"Disabled\" to the "
               "program's entry in " +
               to_utf8(options.config) + "\\agent.config");
    }
    if (!options.env_only.empty() && options.no_inlining) {
        refuse("--no-inlining has no effect with --env-only, because no variable says it: write "
               "inlining=\"Disabled\" to the program's entry in its agent.config");
    }
    if (!options.env_only.empty() && options.detach) {
        refuse("--detach has no effect with --env-only, which starts no program");
    }
    if (!options.env_only.empty() && options.has_samples_file()) {
        refuse("--env-only sets variables, and none names a file of samples: use --sample, and "
               "take the files "
               "from the folder that it shows");
    }
    if (const auto line = named_twice(output_files(options))) {
        refuse(to_utf8(*line));
    }
}

// --- After the program's end

void show_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream),
                           std::istreambuf_iterator<char>()};
    print_to_error(text);
}

bool is_of(const fs::path& file, const std::wstring& beginning, const std::wstring& end) {
    const std::wstring name = file.filename().wstring();
    return name.starts_with(beginning) && name.ends_with(end);
}

std::string ending_text(unsigned long exit_code) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), exit_code < 0x80000000 ? "%lu" : "0x%08lX", exit_code);
    return text.data();
}

const char* reason_of(unsigned long exit_code) {
    if (exit_code >= 0x80008080 && exit_code <= 0x800080FF) {
        return ": the .NET host could not start it, for the reason in its own lines above";
    }
    if (exit_code >= 0x80000000) {
        return ": it crashed or was ended from outside";
    }
    return ". A line of kite.managed above has the reason. Without such a line the program was "
           "ended from outside, or runs no .NET";
}

void say_missing(const char* what, const Ended& ended) {
    print_error(std::string("there is no ") + what +
                ", because the program wrote none before it ended with exit code " +
                ending_text(ended.exit_code) + reason_of(ended.exit_code));
}

void show(const char* what, const fs::path& folder, const Ended& ended) {
    const std::wstring wide(what, what + std::char_traits<char>::length(what));
    const std::wstring own = wide + L'-' + std::to_wstring(ended.process) + L".txt";
    if (fs::exists(folder / own)) {
        show_file(folder / own);
    } else {
        say_missing(what, ended);
    }
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (is_of(entry.path(), wide + L'-', L".txt") && entry.path().filename() != own) {
            const std::wstring name = entry.path().stem().wstring();
            print_error("process " + to_utf8(name.substr(wide.size() + 1)) + ":");
            show_file(entry.path());
        }
    }
}

// The sampler names its files after the program and the process.
void move_samples(const fs::path& folder, const std::wstring& end, const std::wstring& to,
                  const Ended& ended, bool children) {
    const std::wstring own = L'-' + std::to_wstring(ended.process) + end;
    bool is_there = false;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::wstring name = entry.path().filename().wstring();
        if (!name.ends_with(end) || (!children && !name.ends_with(own))) {
            continue;
        }
        const std::wstring stem = name.substr(0, name.size() - end.size());
        const std::wstring target =
            with_process(children ? for_each_process(to) : to, stem.substr(stem.rfind(L'-') + 1));
        is_there = is_there || name.ends_with(own);
        std::error_code failed;
        fs::copy_file(entry.path(), target, fs::copy_options::overwrite_existing, failed);
        if (failed) {
            print_error("cannot write " + to_utf8(target) + ": " + failed.message());
        }
    }
    if (!is_there) {
        say_missing("profile", ended);
    }
}

// Of a file; none if there is no such file.
std::optional<fs::file_time_type> last_change(const fs::path& file) {
    std::error_code error;
    const auto time = fs::last_write_time(file, error);
    return error ? std::nullopt : std::optional(time);
}

// Nothing of the program's own output says where its files are. One that was there before and is as
// it was is none of them.
void name_files(const Options& options, const Ended& ended,
                const std::map<std::wstring, std::optional<fs::file_time_type>>& before) {
    for (const auto& [file, changed] : before) {
        const std::wstring written = with_process(options.children ? for_each_process(file) : file,
                                                  std::to_wstring(ended.process));
        const auto now = last_change(written);
        if (now && (written != file || now != changed)) {
            print_error("wrote " + to_utf8(written));
        }
    }
}

// --- The work

void write_config(const fs::path& folder, const Program& program, const Options& options) {
    // A program may have chosen UTF-8 for its code page.
    std::vector<std::string> names = {gate_name(program.file),
                                      to_utf8(program.file.filename().wstring())};
    if (names[0] == names[1]) {
        names.pop_back();
    }
    if (options.children) {
        names.emplace_back("*");
    }
    std::ofstream stream(folder / L"agent.config", std::ios::binary);
    stream << run_config(names, options.no_inlining);
    if (!stream.flush()) {
        throw Failure("cannot write " + to_utf8((folder / L"agent.config").wstring()));
    }
}

// What `corvane check` would say of the program with these variables.
void require_profiled(const ProgramFacts& program, const Environment& environment,
                      const Installation& installed, const Options& options) {
    CheckFacts facts = read_check_facts(environment, installed, program);
    facts.starts_others = options.children;
    const std::vector<Finding> findings = find_problems(facts);
    if (const Finding* const reason = first_reason(findings)) {
        throw FailedFinding(*reason);
    }
}

// All that it sets leads there.
void require_complete(const Installation& installed) {
    const char* const missing = installed.profiler.empty()  ? "CorvaneProfiler.dll"
                                : installed.library.empty() ? "kite.managed.dll"
                                                            : nullptr;
    if (missing != nullptr) {
        throw Failure(std::string(missing) + " is not beside corvane.exe in " +
                      to_utf8(installed.folder) + ": copy it there");
    }
}

int print_variables(const Options& options, const Installation& installed) {
    const RunPlaces places{installed.profiler, installed.library,
                           options.config.empty() ? installed.folder : options.config, L"",
                           fs::current_path().wstring()};
    const Changes changes = run_changes(options, places, {});
    if (options.env_only == "json") {
        nlohmann::ordered_json object;
        for (const auto& [name, value] : changes) {
            object[to_utf8(name)] = to_utf8(value.value_or(L""));
        }
        print_line(object.dump(2));
    } else {
        print(to_utf8(options.env_only == "cmd" ? as_batch_file(changes) : as_powershell(changes)));
    }
    return kSuccess;
}

int run(const Options& options, const Words& words, const Installation& installed) {
    const Environment own = own_environment();
    const Program program = find_program(words, own);
    std::map<std::wstring, std::optional<fs::file_time_type>> before;
    for (const std::wstring& file : output_files(options)) {
        prepare_output(options.children ? for_each_process(file) : file);
        before[file] = last_change(file);
    }
    const RunFolder folder(options.detach);
    if (options.config.empty()) {
        write_config(folder.path(), program, options);
    }
    const ProgramFacts facts = read_program_facts(program, to_utf8(words.front()), own);
    const bool is_old = facts.runtime_config && runs_before_net_8(*facts.runtime_config, own) &&
                        !installed.standard_library.empty();
    const RunPlaces places{installed.profiler,
                           is_old ? installed.standard_library : installed.library,
                           options.config.empty() ? folder.path().wstring() : options.config,
                           folder.path().wstring(), fs::current_path().wstring()};
    const Environment environment = changed(own, run_changes(options, places, own));
    require_profiled(facts, environment, installed, options);
    const Ended ended = launch(program, environment, {options.detach, options.children});

    if (options.tree == L"") {
        show("tree", folder.path(), ended);
    }
    if (options.summary.value_or(L"") == L"" && (options.summary || !options.has_output())) {
        show("summary", folder.path(), ended);
    }
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        if (const auto& file = options.profiles[i]) {
            move_samples(folder.path() / L"samples", kProfileFormats[i].extension, *file, ended,
                         options.children);
        }
    }
    name_files(options, ended, before);
    return static_cast<int>(ended.exit_code);
}

} // namespace

Work define_run(CLI::App& app) {
    const auto texts = std::make_shared<Texts>();
    const auto output = [&app](const char* option, std::string& value, const char* name,
                               const char* description) {
        app.add_option(option, value, description)
            ->type_name(name)
            ->expected(0, 1)
            ->group("Output");
    };
    const auto file = [&app](const char* option, std::string& value, const char* name,
                             const char* description) {
        return app.add_option(option, value, description)->type_name(name)->group("Output");
    };
    output("--summary", texts->summary, "[FILE]",
           "A table of the calls by method: on standard error when the program has ended, or in a "
           "file. This is "
           "also what a run without any output gives");
    output("--tree", texts->tree, "[FILE]", "The calls as an indented tree, likewise");
    file("--trace", texts->trace, "FILE", "Spans for trace viewers, such as Perfetto");
    output("--otlp", texts->otlp, "[URL|FILE]",
           "Spans to a collector of OpenTelemetry (http://localhost:4318 if nothing is named), or "
           "in a file");
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        const ProfileFormat& format = kProfileFormats[i];
        file(format.option, texts->profiles[i], format.value, format.description);
    }
    app.add_option("--sample", texts->sample,
                   "The milliseconds between samples, 10 without it. Without a file for them, all "
                   "forms of the "
                   "results go to the current folder")
        ->type_name("MS")
        ->check(CLI::Range(1, 60'000))
        ->group("Output");
    app.add_option("--values", texts->values,
                   "What is recorded of arguments and results: none (the default), safe or all")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"none", "safe", "all"}))
        ->group("Recording");
    app.add_option("--method", texts->methods,
                   "Also record methods whose full names match, such as Shop.Cart.*; may be "
                   "repeated, and \"!\" in "
                   "front excludes")
        ->type_name("PATTERN")
        ->expected(1)
        ->take_all()
        ->group("Recording");
    app.add_flag("--no-inlining", texts->no_inlining, "The runtime inlines no method at all")
        ->group("Recording");
    app.add_flag("--children", texts->children,
                 "Also profile the programs that this one starts. Files then have the number of "
                 "the process in "
                 "their names")
        ->group("Recording");
    app.add_option("--config", texts->config,
                   "The folder of an agent.config, which then decides. Without it the program is "
                   "enabled for this "
                   "run")
        ->type_name("DIR")
        ->group("Recording");
    file("--log", texts->log, "FILE", "The profiler's log")->group("Log");
    app.add_option("--level", texts->level, "Its level: 0 (nothing) to 4 (details), 3 without it")
        ->type_name("N")
        ->check(CLI::Range(0, 4))
        ->group("Log");
    app.add_flag("--detach", texts->detach, "The program goes on when this command is killed")
        ->group("Process");
    app.add_option("--env-only", texts->env_only,
                   "Start nothing; print the variables for a service or a container: cmd, "
                   "powershell or json")
        ->type_name("FORM")
        ->check(CLI::IsMember({"cmd", "powershell", "json"}))
        ->group("Process");
    return [&app, texts](const Words& behind) {
        const Options options = options_of(app, *texts);
        require_consistent(options);
        const Installation installed = find_installation();
        require_complete(installed);
        if (!options.env_only.empty()) {
            return print_variables(options, installed);
        }
        if (behind.empty()) {
            refuse("no program is named: corvane run [OPTIONS] -- PROGRAM [ARGUMENTS]");
        }
        return run(options, behind, installed);
    };
}

} // namespace corvane::tool
