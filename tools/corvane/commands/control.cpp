// corvane sample, corvane flush, corvane summary
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/control_client.h"
#include "tools/corvane/output_file.h"
#include "tools/corvane/profile_formats.h"
#include "tools/corvane/program.h"
#include "tools/corvane/run_plan.h"
#include "tools/corvane/terminal.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace corvane::tool {
namespace {

constexpr int kLongestSampling = 3600; // seconds
constexpr int kLongestInterval = 60'000;
constexpr int kLongestPatience = 3600;

struct Asked {
    unsigned process = 0;
    unsigned patience = 30;
};

struct SampleOptions : Asked {
    int seconds = 10;
    int interval = 10;
    ForEachFormat<std::string> files;
};

void add_process(CLI::App& app, Asked& asked) {
    app.add_option("--pid", asked.process, "The process")->type_name("N")->required();
    app.add_option("--patience", asked.patience,
                   "How many seconds it may give no answer, 30 without it")
        ->type_name("S")
        ->check(CLI::Range(1, kLongestPatience));
}

Parts ask_at_once(const Asked& asked, const std::string& request) {
    return ask(asked.process, request, asked.patience, [](unsigned) {});
}

void write_file(const std::wstring& file, const std::string& bytes) {
    std::ofstream stream(std::filesystem::path(file), std::ios::binary);
    stream << bytes;
    if (!stream.flush()) {
        throw Failure("cannot write " + to_utf8(file));
    }
}

int sample(const SampleOptions& options) {
    ProfileNames files;
    std::vector<std::wstring> named;
    std::string formats;
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        if (!options.files[i].empty()) {
            files[i] = with_process(full_path(to_wide(options.files[i])).wstring(),
                                    std::to_wstring(options.process));
            named.push_back(*files[i]);
            formats += (formats.empty() ? "" : ",") + std::string(kProfileFormats[i].name);
        }
    }
    if (const auto line = named_twice(named)) {
        throw Failure(to_utf8(*line), kMisused);
    }
    for (const std::wstring& file : named) {
        prepare_output(file);
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
                    options.patience, [&](unsigned seconds) {
                        progress.show("sampling, " + std::to_string(seconds) + " s left");
                    });
    }
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        if (files[i]) {
            write_file(*files[i], parts[kProfileFormats[i].name]);
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
    add_process(app, *options);
    app.add_option("--seconds", options->seconds, "How long, 10 without it")
        ->type_name("S")
        ->check(CLI::Range(1, kLongestSampling));
    app.add_option("--sample", options->interval, "A sample every so many ms, 10 without it")
        ->type_name("MS")
        ->check(CLI::Range(1, kLongestInterval));
    for (std::size_t i = 0; i < kProfileFormats.size(); ++i) {
        const ProfileFormat& format = kProfileFormats[i];
        app.add_option(format.option, options->files[i], format.description)
            ->type_name(format.value);
    }
    app.footer("Without a FILE it prints folded stacks.");
    return [options](const Words&) { return sample(*options); };
}

Work define_flush(CLI::App& app) {
    const auto asked = std::make_shared<Asked>();
    add_process(app, *asked);
    return [asked](const Words&) {
        Parts parts = ask_at_once(*asked, "flush");
        print(parts["files"]);
        std::istringstream remarks(parts["remarks"]);
        for (std::string remark; std::getline(remarks, remark);) {
            print_error(remark.substr(0, remark.find('\r')));
        }
        return kSuccess;
    };
}

Work define_summary(CLI::App& app) {
    const auto asked = std::make_shared<Asked>();
    add_process(app, *asked);
    return [asked](const Words&) {
        print(ask_at_once(*asked, "summary")["summary"]);
        return kSuccess;
    };
}

} // namespace corvane::tool
