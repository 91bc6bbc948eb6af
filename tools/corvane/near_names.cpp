#include "tools/corvane/near_names.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <algorithm>
#include <numeric>

namespace corvane::tool {
namespace {

// Without what people leave out or put in.
std::string bare(std::string name) {
    name = name.substr(name.find_last_of("\\/") + 1); // npos + 1 is 0
    boost::trim(name);
    boost::to_lower(name);
    for (const char* const extension : {".txt", ".xml", ".exe", ".dll"}) {
        if (name.ends_with(extension)) {
            name.resize(name.size() - 4);
        }
    }
    return name;
}

// How many letters have to be inserted, removed or replaced.
std::size_t distance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t before = row[0]; // of the row above, one to the left
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min(
                {above + 1, row[j - 1] + 1, before + (left[i - 1] == right[j - 1] ? 0U : 1U)});
            before = above;
        }
    }
    return row.back();
}

} // namespace

std::optional<std::string> near_name(const std::string& name,
                                     const std::vector<std::string>& names) {
    const std::string meant = bare(name);
    const std::string* nearest = nullptr;
    std::size_t least = std::min<std::size_t>(2, meant.size() / 3) + 1;
    for (const std::string& candidate : names) {
        if (candidate.size() > 300) {
            continue; // no name of a file
        }
        const std::size_t far = distance(meant, bare(candidate));
        if (far < least) {
            least = far;
            nearest = &candidate;
        }
    }
    return nearest == nullptr ? std::nullopt : std::optional(*nearest);
}

} // namespace corvane::tool
