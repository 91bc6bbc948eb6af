// corvane.exe: profiles a program, says whether it would be profiled, and looks after the set-up.
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/near_names.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace corvane::tool {
namespace {

constexpr std::array kCommands = {
    Command{"check", "[OPTIONS] [PROGRAM] [-- ARGUMENTS]",
            "Says whether a program would be profiled, and why not", define_check, true},
    Command{"explain", "[OPTIONS] ASSEMBLY",
            "Shows what would be instrumented in an assembly, how and why", define_explain},
    Command{"run", "[OPTIONS] -- PROGRAM [ARGUMENTS]", "Runs a program and records it", define_run,
            true},
    Command{"list", "[OPTIONS]", "Shows the rules in force", define_list},
    Command{"sample", "--pid N [OPTIONS]", "Takes a profile of a running process", define_sample},
    Command{"summary", "--pid N", "Shows a running process's calls by method", define_summary},
    Command{"flush", "--pid N", "Has a running process write its files now", define_flush},
    Command{"status", "", "Shows what is installed and registered", define_status},
    Command{"register", "", "Registers the profiler, as administrator", define_register},
    Command{"unregister", "", "Removes the registration", define_unregister},
    Command{"install", "--dir DIR [OPTIONS]", "Installs the profiler, as administrator",
            define_install},
    Command{"uninstall", "[OPTIONS]", "Takes back what install did", define_uninstall},
    Command{"watch", "[OPTIONS]", "Shows the log of all processes, live", define_watch},
};

// The parser knows nothing of the words behind "--".
class CommandFormatter : public CLI::Formatter {
public:
    explicit CommandFormatter(const Command& command) : command_(command) {}

    std::string make_usage(const CLI::App*, std::string) const override {
        return std::string("\nUsage: corvane ") + command_.name + ' ' + command_.words + '\n';
    }

    // Without the bounds of a number: a value beyond them is answered with them.
    std::string make_option_opts(const CLI::Option* option) const override {
        std::string text = CLI::Formatter::make_option_opts(option);
        if (const std::size_t bounds = text.find(":INT in ["); bounds != text.npos) {
            text.erase(bounds, text.find(']', bounds) + 1 - bounds);
        }
        return text;
    }

    // Within the width of a usual console.
    std::string make_option_desc(const CLI::Option* option) const override {
        constexpr std::size_t kWidth = 48;
        std::istringstream words(CLI::Formatter::make_option_desc(option));
        std::string text;
        std::size_t line = 0;
        for (std::string word; words >> word; line += word.size() + 1) {
            if (line != 0 && line + word.size() > kWidth) {
                text += '\n';
                line = 0;
            } else if (line != 0) {
                text += ' ';
            }
            text += word;
        }
        return text;
    }

private:
    const Command& command_;
};

// A word in the place of a command that is none.
std::optional<std::string> unknown_command(const Words& words) {
    if (words.empty() || words.front().starts_with(L'-')) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const Command& command : kCommands) {
        names.emplace_back(command.name);
    }
    const std::string name = to_utf8(words.front());
    if (std::ranges::find(names, name) != names.end()) {
        return std::nullopt;
    }
    const auto near = near_name(name, names);
    return "there is no command \"" + name + '"' +
           (near ? "; did you mean \"" + *near + "\"?" : std::string());
}

int run_command(const Words& words) {
    const SplitWords split = split_words(words);
    if (const auto before = before_nothing(split.own)) {
        print_error("there is nothing behind \"" + to_utf8(*before) + '"');
        return kMisused;
    }
    CLI::App app("Corvane " CORVANE_VERSION ", a profiler for .NET", "corvane");
    app.set_version_flag("--version", CORVANE_VERSION);
    app.require_subcommand(1);
    app.allow_windows_style_options(false);
    app.footer("\"corvane COMMAND --help\" shows the options of a command.");
    struct Defined {
        const Command& command;
        Work work;
    };
    std::map<const CLI::App*, Defined> commands;
    for (const Command& command : kCommands) {
        CLI::App* const part = app.add_subcommand(command.name, command.description);
        part->formatter(std::make_shared<CommandFormatter>(command));
        commands.emplace(part, Defined{command, command.define(*part)});
    }
    try {
        std::vector<std::string> reversed; // as the parser takes them
        for (auto word = split.own.rbegin(); word != split.own.rend(); ++word) {
            reversed.push_back(to_utf8(*word));
        }
        app.parse(std::move(reversed));
    } catch (const CLI::ParseError& error) {
        std::ostringstream output;
        std::ostringstream errors;
        const bool is_misuse = app.exit(error, output, errors) != 0;
        print(output.str());
        if (is_misuse) {
            print_error(unknown_command(split.own).value_or(error.what()));
            print_error(
                "\"corvane --help\" shows the commands, \"corvane COMMAND --help\" their options.");
        }
        return is_misuse ? kMisused : kSuccess;
    }
    const Defined& chosen = commands.at(app.get_subcommands().front());
    if (!split.behind.empty() && !chosen.command.takes_program) {
        print_error(std::string(chosen.command.name) +
                    " takes no program: remove what stands behind \"--\"");
        return kMisused;
    }
    return chosen.work(split.behind);
}

int guarded(const Words& words) {
    try {
        return run_command(words);
    } catch (const Failure& failure) {
        print_error(failure.what());
        return failure.code;
    } catch (const std::exception& error) {
        print_error(error.what());
        return kFailed;
    }
}

} // namespace
} // namespace corvane::tool

int wmain(int argc, wchar_t** argv) {
    return corvane::tool::guarded(argc > 1 ? corvane::tool::Words(argv + 1, argv + argc)
                                           : corvane::tool::Words());
}
