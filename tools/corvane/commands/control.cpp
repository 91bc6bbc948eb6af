// corvane sample, corvane flush, corvane summary
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/control_client.h"
#include "tools/corvane/output_file.h"
#include "tools/corvane/program.h"
#include "tools/corvane/terminal.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <array>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace corvane::tool {
namespace {

constexpr int kLongestSampling = 3600; // seconds
constexpr int kLongestInterval = 60'000;

struct Format {
    const char* option;
    const char* name; // as the process knows it
    const char* description;
};
constexpr std::array kFormats = {
    Format{"--flame", "svg", "Write a flame graph, for any browser"},
    Format{"--speedscope", "speedscope", "Write a file for speedscope.app"},
    Format{"--pprof", "pprof", "Write a file for pprof"},
    Format{"--folded", "folded", "Write folded stacks; without any FILE they are printed"},
};

struct SampleOptions {
    unsigned process = 0;
    int seconds = 10;
    int interval = 10;
    std::array<std::string, kFormats.size()> files;
};

void add_process(CLI::App& app, unsigned& process) {
    app.add_option("--pid", process, "The process")->type_name("N")->required();
}

Parts ask_at_once(unsigned process, const std::string& request) {
    return ask(process, request, [](unsigned) {});
}

void write_file(const std::wstring& file, const std::string& bytes) {
    std::ofstream stream(std::filesystem::path(file), std::ios::binary);
    stream << bytes;
    if (!stream.flush()) {
        throw Failure("cannot write " + to_utf8(file));
    }
}

int sample(const SampleOptions& options) {
    std::array<std::optional<std::wstring>, kFormats.size()> files;
    std::string formats;
    for (std::size_t i = 0; i < kFormats.size(); ++i) {
        if (!options.files[i].empty()) {
            files[i] = full_path(to_wide(options.files[i])).wstring();
            prepare_output(*files[i]);
            formats += (formats.empty() ? "" : ",") + std::string(kFormats[i].name);
        }
    }
    const bool prints = formats.empty();
    if (prints) {
        formats = "folded";
    }
    Parts parts;
    {
        ProgressLine progress;
        parts = ask(options.process,
                    "sample " + std::to_string(options.seconds) + ' ' +
                        std::to_string(options.interval) + ' ' + formats,
                    [&](unsigned seconds) {
                        progress.show("sampling, " + std::to_string(seconds) + " s left");
                    });
    }
    for (std::size_t i = 0; i < kFormats.size(); ++i) {
        if (files[i]) {
            write_file(*files[i], parts[kFormats[i].name]);
            print_line(to_utf8(*files[i]));
        }
    }
    if (prints) {
        print(parts["folded"]);
    }
    print_error(parts["cost"]);
    return kSuccess;
}

} // namespace

Work define_sample(CLI::App& app) {
    const auto options = std::make_shared<SampleOptions>();
    add_process(app, options->process);
    app.add_option("--seconds", options->seconds, "How long, 10 without it")
        ->type_name("S")
        ->check(CLI::Range(1, kLongestSampling));
    app.add_option("--sample", options->interval, "A sample every so many ms, 10 without it")
        ->type_name("MS")
        ->check(CLI::Range(1, kLongestInterval));
    for (std::size_t i = 0; i < kFormats.size(); ++i) {
        app.add_option(kFormats[i].option, options->files[i], kFormats[i].description)
            ->type_name("FILE");
    }
    return [options](const Words&) { return sample(*options); };
}

Work define_flush(CLI::App& app) {
    const auto process = std::make_shared<unsigned>(0);
    add_process(app, *process);
    return [process](const Words&) {
        print(ask_at_once(*process, "flush")["files"]);
        return kSuccess;
    };
}

Work define_summary(CLI::App& app) {
    const auto process = std::make_shared<unsigned>(0);
    add_process(app, *process);
    return [process](const Words&) {
        print(ask_at_once(*process, "summary")["summary"]);
        return kSuccess;
    };
}

} // namespace corvane::tool
