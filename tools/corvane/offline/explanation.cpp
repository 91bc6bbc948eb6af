#include "tools/corvane/offline/explanation.h"

#include "base/hresult_text.h"
#include "base/log_output.h"
#include "base/metadata_engine.h"
#include "base/runtime_state.h"
#include "rewrite/method_instrumenter.h"
#include "rewrite/rewrite_settings.h"
#include "selection/jit_flow.h"
#include "selection/method_outcomes.h"
#include "tools/corvane/offline/runtime_folder.h"

#include <algorithm>
#include <cwctype>
#include <set>
#include <utility>

namespace corvane::tool {

namespace fs = std::filesystem;

namespace {

// Nobody asked for the log of what only might be done.
void keep_log_silent() {
    begin_log({.file = {}, .limit = 0, .level = 0, .complaints = {}});
    const StartUpLines that_is_over;
}

std::wstring lower(std::wstring text) {
    std::ranges::transform(text, text.begin(), [](wchar_t c) {
        return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    });
    return text;
}

std::vector<fs::path> libraries_in(const fs::path& folder) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (lower(entry->path().extension().wstring()) == L".dll") {
            found.push_back(entry->path());
        }
    }
    std::ranges::sort(found);
    return found;
}

} // namespace

Explanation::Explanation(const ExplainSettings& settings, const Complaint& complaint)
    : selection_(settings.selection) {
    keep_log_silent();
    strict_il = settings.selection.strict;
    build_target_methods(settings.log_trace_ids);
    method_patterns.append(settings.patterns, complaint);
    managedLibraryLoaded = true; // as where it is the start-up hook
}

Explanation::~Explanation() {
    managedLibraryLoaded = false;
    coreLibraryModuleId = 0;
    method_patterns = MethodPatterns();
    target_methods.clear();
}

OpenResult Explanation::open(const fs::path& assembly, std::vector<std::uint8_t> bytes,
                             const fs::path& runtime_folder) {
    // Never unloaded: the runtime's library does not support it.
    if (LoadLibraryExW((runtime_folder / L"coreclr.dll").c_str(), nullptr,
                       LOAD_WITH_ALTERED_SEARCH_PATH) == nullptr ||
        !(engine_ = metadata_engine())) {
        return OpenResult::kNoRuntime;
    }
    runtime_ = std::make_unique<OfflineRuntime>(*engine_.get());
    runtime_->open(assembly, std::move(bytes));
    switch (runtime_->verdict()) {
    case FileVerdict::kAssembly:
        return OpenResult::kOpened;
    case FileVerdict::kNotManaged:
        return OpenResult::kNotManaged;
    case FileVerdict::kDamaged:
        break;
    }
    return OpenResult::kDamaged;
}

Neighbours Explanation::take_neighbours(const fs::path& assembly, const fs::path& runtime_folder) {
    // A program loads the file beside it rather than the runtime's of the same name.
    std::set<std::wstring> names = {lower(assembly.filename().wstring())};
    ModuleID core_library =
        *names.begin() == L"system.private.corelib.dll" ? OfflineRuntime::kModule : 0;
    const auto add_all = [&](const fs::path& folder) {
        std::size_t count = 0;
        for (const fs::path& library : libraries_in(folder)) {
            const std::wstring name = lower(library.filename().wstring());
            if (names.insert(name).second) {
                const ModuleID module = runtime_->add_neighbour(library);
                core_library = name == L"system.private.corelib.dll" ? module : core_library;
                ++count;
            }
        }
        return count;
    };
    Neighbours neighbours;
    neighbours.beside = add_all(assembly.parent_path());
    for (const fs::path& folder : framework_folders(runtime_folder)) {
        neighbours.of_runtime += add_all(folder);
    }
    coreLibraryModuleId = core_library;
    return neighbours;
}

MethodFate Explanation::decide(FunctionID function) {
    method_info method;
    const HRESULT hr = method.get_info(runtime_.get(), function);
    if (FAILED(hr)) {
        return {Rule::kNone, Fate::kLeft,
                std::wstring(L"Failed to create method info (") + hresult_text(hr).c_str() + L')'};
    }
    const Choice choice = choice_of(runtime_.get(), method, selection_);
    if (choice.obstacle == Obstacle::kTransparent) {
        return {Rule::kNone, Fate::kLeft, L"it is transparent"};
    }
    if (choice.rule == Rule::kNone) {
        return {};
    }
    on_jit_compilation_started(runtime_.get(), function, selection_, RewriteMethod);
    if (!runtime_->new_body(method.method_token).empty()) {
        return {choice.rule, Fate::kInstrumented};
    }
    return {choice.rule, Fate::kLeft,
            reason_left(OfflineRuntime::kModule, method.method_token)
                .value_or(L"is instrumented already")};
}

} // namespace corvane::tool
