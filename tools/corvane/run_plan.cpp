#include "tools/corvane/run_plan.h"

#include "tools/corvane/class_id.h"

#include <algorithm>
#include <set>

namespace corvane::tool {
namespace {

std::wstring joined(const std::vector<std::wstring>& parts, wchar_t divider) {
    std::wstring text;
    for (const std::wstring& part : parts) {
        text += (text.empty() ? std::wstring() : std::wstring(1, divider)) + part;
    }
    return text;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '\'':
            result += "&apos;";
            break;
        default:
            result += c; // the other characters of markup are in no file's name
        }
    }
    return result;
}

} // namespace

bool is_address(const std::wstring& text) {
    return text.starts_with(L"http://") || text.starts_with(L"https://");
}

std::wstring for_each_process(const std::wstring& file) {
    if (file.find(L"{pid}") != file.npos) {
        return file;
    }
    const std::size_t name = file.find_last_of(L"\\/") + 1; // npos + 1 is 0
    const std::size_t dot = file.rfind(L'.');
    const std::size_t at = dot == file.npos || dot <= name ? file.size() : dot;
    return file.substr(0, at) + L"-{pid}" + file.substr(at);
}

std::vector<std::wstring> output_files(const RunOptions& options) {
    std::vector<std::optional<std::wstring>> outputs = {options.tree, options.summary,
                                                        options.trace, options.otlp, options.log};
    outputs.insert(outputs.end(), options.profiles.begin(), options.profiles.end());
    std::vector<std::wstring> files;
    for (const auto& output : outputs) {
        if (output && !output->empty() && !is_address(*output)) {
            files.push_back(*output);
        }
    }
    return files;
}

std::optional<std::wstring> named_twice(const std::vector<std::wstring>& files) {
    std::set<std::wstring, IgnoreCase> seen;
    for (const std::wstring& file : files) {
        if (!seen.insert(file).second) {
            return L"two options name the file " + file;
        }
    }
    return std::nullopt;
}

Changes run_changes(const RunOptions& options, const RunPlaces& places,
                    const Environment& environment) {
    Changes changes;
    const auto set = [&changes](const wchar_t* name, const std::wstring& value) {
        changes.emplace_back(name, value);
    };
    for (const std::wstring family : {L"CORECLR_", L"COR_"}) {
        set((family + L"ENABLE_PROFILING").c_str(), L"1");
        set((family + L"PROFILER").c_str(), kProfilerClass);
        set((family + L"PROFILER_PATH").c_str(), places.profiler);
        // The runtime prefers a path for its own width.
        const std::wstring wide_path = family + L"PROFILER_PATH_64";
        if (environment.contains(wide_path)) {
            changes.emplace_back(wide_path, std::nullopt);
        }
    }
    const auto hooks = environment.find(L"DOTNET_STARTUP_HOOKS");
    set(L"DOTNET_STARTUP_HOOKS", hooks == environment.end() || hooks->second.empty()
                                     ? places.library
                                     : places.library + L';' + hooks->second);
    set(L"CORVANE_HOME_APM_DOTNET", places.home);
    set(L"CORVANE_STRICT_IL", L"1");
    set(L"CORVANE_CONTROL", L"1");

    const auto set_output = [&](const wchar_t* name, const std::optional<std::wstring>& file,
                                const wchar_t* result) {
        if (!file) {
            return;
        }
        if (!file->empty()) {
            set(name, options.children ? for_each_process(*file) : *file);
        } else {
            set(name, places.results.empty() ? L"stderr" : places.results + result);
        }
    };
    set_output(L"CORVANE_CALL_TREE", options.tree, L"\\tree-{pid}.txt");
    const bool shows_summary = options.summary || !options.has_output();
    set_output(L"CORVANE_SUMMARY",
               shows_summary ? std::optional(options.summary.value_or(L"")) : std::nullopt,
               L"\\summary-{pid}.txt");
    set_output(L"CORVANE_TRACE_FILE", options.trace, L"");
    if (options.otlp && options.otlp->empty()) {
        if (!environment.contains(L"OTEL_EXPORTER_OTLP_ENDPOINT") &&
            !environment.contains(L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT")) {
            set(L"OTEL_EXPORTER_OTLP_ENDPOINT", L"http://localhost:4318");
        }
    } else if (options.otlp && is_address(*options.otlp)) {
        set(L"OTEL_EXPORTER_OTLP_ENDPOINT", *options.otlp);
        if (environment.contains(L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT")) {
            changes.emplace_back(L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", std::nullopt); // goes first
        }
    } else {
        set_output(L"CORVANE_OTLP_FILE", options.otlp, L"");
    }
    if (options.samples()) {
        const bool moves = options.has_samples_file() && !places.results.empty();
        set(L"CORVANE_SAMPLE", moves ? places.results + L"\\samples" : places.samples);
        if (options.sample_interval) {
            set(L"CORVANE_SAMPLE_INTERVAL_MS", std::to_wstring(*options.sample_interval));
        }
    }
    if (options.values) {
        set(L"CORVANE_VALUES", *options.values);
    }
    if (!options.methods.empty()) {
        set(L"CORVANE_METHODS", joined(options.methods, L';'));
    }
    if (options.log) {
        set(L"CORVANE_LOG_FILE", *options.log);
    }
    if (options.level) {
        set(L"CORVANE_LOG_LEVEL", std::to_wstring(*options.level));
    }
    if (!options.children && !places.results.empty()) {
        set(L"CORVANE_RESTORE", undoing(environment, changes));
    } else if (environment.contains(L"CORVANE_RESTORE")) {
        changes.emplace_back(L"CORVANE_RESTORE", std::nullopt);
    }
    return changes;
}

std::string run_config(const std::vector<std::string>& executables, bool no_inlining) {
    std::string text = "<configuration>\n  <instrumentation>\n    <applications>\n";
    for (const std::string& name : executables) {
        text += "      <application name='" + escaped(name) + "' corvane='Enabled'" +
                (no_inlining ? " inlining='Disabled'" : "") + "/>\n";
    }
    return text + "    </applications>\n  </instrumentation>\n</configuration>\n";
}

} // namespace corvane::tool
