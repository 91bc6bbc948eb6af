// Looks at an assembly offline, with damage of each number from FIRST to END, and writes the number
// before: the last line is the one at which it ended. A failure of the runtime's own engine ends it
// with kEngineFault.
// usage: damaged_reader RUNTIME ASSEMBLY FIRST END
#include "tests/support/damaged_file.h"
#include "tools/corvane/offline/engine_faults.h"
#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/il_lines.h"
#include "tools/corvane/offline/metadata_names.h"

#include <cstdio>
#include <cstdlib>

namespace {

using namespace corvane;
using namespace corvane::tool;

constexpr int kEngineFault = 77;

// Returns the number of methods.
std::size_t look(std::vector<std::uint8_t> bytes, const std::filesystem::path& runtime) {
    Explanation explanation({{false, true}, {true, true, true}, L"*"},
                            [](std::wstring_view, const wchar_t*) {});
    if (explanation.open(L"damaged.dll", std::move(bytes), runtime) != OpenResult::kOpened) {
        return 0;
    }
    MetadataNames names(explanation.runtime().metadata());
    std::size_t methods = 0;
    for (const FunctionID function : explanation.runtime().functions()) {
        const mdMethodDef token = OfflineRuntime::token_of(function);
        const MethodFate fate = explanation.decide(function);
        names.method(token, true);
        const auto before = il_lines(explanation.runtime().original_body(token), names);
        if (fate.fate == Fate::kInstrumented) {
            const auto after = il_lines(explanation.runtime().new_body(token), names);
            if (before && after) {
                align(*before, *after);
            }
        }
        ++methods;
    }
    return methods;
}

} // namespace

int wmain(int, wchar_t** arguments) {
    const std::filesystem::path runtime = arguments[1];
    const auto original = read_file_bytes(arguments[2]);
    if (!original) {
        return 1;
    }
    const AssemblyFile whole(*original);
    const auto begin = std::ranges::search(*original, whole.metadata()).begin();
    const auto offset = static_cast<std::size_t>(begin - original->begin());
    end_on_engine_fault("the engine failed", kEngineFault);
    const auto end = static_cast<std::uint32_t>(std::wcstoul(arguments[4], nullptr, 10));
    for (auto number = static_cast<std::uint32_t>(std::wcstoul(arguments[3], nullptr, 10));
         number < end; ++number) {
        std::printf("%u", number);
        std::fflush(stdout);
        const std::size_t methods = look(
            corvane::testing::damaged(*original, offset, whole.metadata().size(), number), runtime);
        std::printf(" %zu\n", methods);
    }
    return 0;
}
