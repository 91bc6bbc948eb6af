// What `corvane run` sets for a program: a pure function of the options and of where things are.
#pragma once

#include "tools/corvane/environment.h"
#include "tools/corvane/profile_formats.h"

#include <optional>
#include <string>
#include <vector>

namespace corvane::tool {

struct RunOptions {
    // Where an output goes: "" is the console, after the program's end; not there: not asked for.
    std::optional<std::wstring> tree;
    std::optional<std::wstring> summary;
    std::optional<std::wstring> trace;
    std::optional<std::wstring> otlp; // "": the usual address of a collector on this machine
    ProfileNames profiles;
    std::optional<int> sample_interval;
    std::optional<std::wstring> values;
    std::vector<std::wstring> methods;
    std::optional<std::wstring> log;
    std::optional<int> level;
    bool no_inlining = false;
    bool children = false;

    bool has_samples_file() const { return profiles != ProfileNames(); }
    bool samples() const { return has_samples_file() || sample_interval; }
    bool has_output() const { return tree || summary || trace || otlp || samples(); }
};

// Full paths.
struct RunPlaces {
    std::wstring profiler;
    std::wstring library;
    std::wstring home; // of agent.config
    std::wstring
        results; // of what is shown or moved when the program has ended; empty: nobody does that
    std::wstring samples; // where the sampler writes, if nothing is moved
};

// The file that is named twice, as a line.
std::optional<std::wstring> named_twice(const std::vector<std::wstring>& files);

// Whether a text is an address rather than a file.
bool is_address(const std::wstring& text);

// The same file for each process, where several write: "-{pid}" in front of the extension unless it
// is there.
std::wstring for_each_process(const std::wstring& file);

// The files that the program is to write, for a look at their folders. The options have full paths.
std::vector<std::wstring> output_files(const RunOptions& options);

Changes run_changes(const RunOptions& options, const RunPlaces& places,
                    const Environment& environment);

// The agent.config that enables these executables, whose names are bytes of the system's code page.
std::string run_config(const std::vector<std::string>& executables, bool no_inlining);

} // namespace corvane::tool
