#include "tools/corvane/pool_settings.h"

#include "profiler/wide_text.h"
#include "tools/corvane/utf8.h"

#include <boost/property_tree/xml_parser.hpp>

namespace corvane::tool {
namespace {

using boost::property_tree::ptree;
using Path = ptree::path_type;

const ptree& child(const ptree& parent, const char* path) {
    static const ptree none;
    const auto found = parent.get_child_optional(Path(path, '/')); // names have dots
    return found ? *found : none;
}

} // namespace

std::optional<PoolSettings> read_pool(std::istream& config, const std::wstring& name) {
    ptree tree;
    boost::property_tree::read_xml(config, tree, boost::property_tree::xml_parser::no_comments);
    const ptree& pools = child(tree, "configuration/system.applicationHost/applicationPools");
    const ptree& defaults = child(pools, "applicationPoolDefaults");
    for (const auto& [element, pool] : pools) {
        if (element != "add" ||
            !equals_ignore_case(to_wide(pool.get("<xmlattr>.name", "")), name)) {
            continue;
        }
        PoolSettings settings;
        const char* const width = "<xmlattr>.enable32BitAppOnWin64";
        settings.is_32_bit = pool.get(width, defaults.get(width, "false")) == "true";
        // What a pool has takes the place of the whole list of the defaults.
        const char* const list = "environmentVariables";
        for (const auto& [kind, variable] : child(pool.count(list) != 0 ? pool : defaults, list)) {
            if (kind == "add") {
                settings.variables[to_wide(variable.get("<xmlattr>.name", ""))] =
                    to_wide(variable.get("<xmlattr>.value", ""));
            }
        }
        return settings;
    }
    return std::nullopt;
}

} // namespace corvane::tool
