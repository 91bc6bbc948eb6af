// Any text as a list of scopes. The parts of a scope put together give the line back, a scope that
// is written out is read as the same one, and a list is its lines, each on its own.
#include "selection/excluded_scopes.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {
namespace {

bool same(const ExcludedScope& a, const ExcludedScope& b) {
    return a.assembly == b.assembly && a.path == b.path;
}

std::wstring joined(const std::vector<std::wstring>& path) {
    std::wstring text;
    for (const std::wstring& name : path) {
        text += (&name == path.data() ? L"" : L".") + name;
    }
    return text;
}

ExcludedScope check_line(const std::wstring& line) {
    const ExcludedScope scope = parse_scope(line);
    const std::wstring names = joined(scope.path);
    const auto count = [](const std::wstring& text, wchar_t c) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
    };

    require(line.ends_with(names), "the names end the line");
    require(scope.path.size() == (names.empty() ? 0 : count(names, L'.') + 1),
            "every dot divides two names");
    const std::wstring before = line.substr(0, line.size() - names.size());
    require(before.empty() ? count(line, L']') == 0 : before.back() == L']',
            "the names begin behind the last bracket");
    require(count(names, L']') == 0, "no bracket closes among the names");

    const std::size_t open = std::min(line.find(L'['), line.size());
    if (before.empty() || open == line.size()) {
        require(scope.assembly.empty(), "an assembly stands in brackets");
    } else if (open < before.size()) {
        require(line.substr(0, open) + L'[' + scope.assembly + L']' + names == line,
                "the parts give the line back");
    } else {
        require(line.substr(0, open) + L'[' + scope.assembly == line,
                "an open name runs to the end");
    }
    require(same(parse_scope(L'[' + scope.assembly + L']' + names), scope),
            "a scope that is written is read again");
    return scope;
}

void check(const std::wstring& text) {
    std::vector<ExcludedScope> expected = {{L"there", {L"before"}}};
    std::wstring line;
    for (const wchar_t c : text + L'\n') {
        if (c != L'\n') {
            line += c;
            continue;
        }
        const ExcludedScope scope = check_line(line);
        if (line.substr(0, 1) != L"/" && !scope.assembly.empty() && !scope.path.empty()) {
            expected.push_back(scope);
        }
        line.clear();
    }
    std::wistringstream stream(text);
    std::vector<ExcludedScope> scopes = {{L"there", {L"before"}}};
    append_scopes(stream, scopes);
    require(std::ranges::equal(scopes, expected, same), "a list is its lines");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::wide({data, size}));
    return 0;
}
