#include "selection/excluded_scopes.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <utility>

namespace corvane {

std::vector<ExcludedScope> excluded_scopes;

ExcludedScope parse_scope(const std::wstring& line) {
    ExcludedScope scope;
    const std::size_t open = line.find(L'[');
    const std::size_t close = line.rfind(L']');
    if (open != std::wstring::npos && close != std::wstring::npos) {
        // A "]" before the "[" leaves the name open: it runs to the end of the line.
        scope.assembly =
            close > open ? line.substr(open + 1, close - open - 1) : line.substr(open + 1);
    }
    const std::wstring names = line.substr(close + 1); // npos + 1 is 0: without a "]", the line
    if (!names.empty()) {
        boost::split(scope.path, names, boost::is_any_of(L"."));
    }
    return scope;
}

void append_scopes(std::wistream& lines, std::vector<ExcludedScope>& scopes) {
    std::wstring line;
    while (std::getline(lines, line)) {
        if (line.empty() || line.front() == L'/') {
            continue;
        }
        ExcludedScope scope = parse_scope(line);
        if (!scope.assembly.empty() && !scope.path.empty()) {
            scopes.push_back(std::move(scope));
        }
    }
}

} // namespace corvane
