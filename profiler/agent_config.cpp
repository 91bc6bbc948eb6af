#include "profiler/agent_config.h"

#include "profiler/xml_depth.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace corvane {
namespace {

std::string read_text(const std::string& file_name) {
    std::ifstream stream(file_name);
    if (!stream) {
        throw std::runtime_error("cannot open " + file_name);
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace

bool LoadAgentConfig(AgentConfig& config, const LogSink& log) {
    config.clear();
    const char* const home = std::getenv(kHomeVariable);
    if (home == nullptr || *home == '\0') { // empty, it would name the program's current folder
        return false;
    }
    return load_agent_config(home, config, log);
}

bool load_agent_config(const std::string& home, AgentConfig& config, const LogSink& log) {
    config.clear();
    try {
        const std::string text =
            read_text((boost::filesystem::path(home) / "agent.config").string());
        if (nests_deeper_than(text, kMaxElementDepth)) {
            throw std::runtime_error("elements nest too deep");
        }
        std::istringstream stream(text);
        boost::property_tree::read_xml(stream, config,
                                       boost::property_tree::xml_parser::no_comments);
        return true;
    } catch (const std::exception&) {
        config.clear();
        log(1, L"CClrProfiler::LoadAgentConfig(): Could not find agent.config file");
        return false;
    }
}

bool check_key(const AgentConfig& config, std::string_view key, std::string_view value,
               const LogSink& log) {
    const auto settings = config.get_child_optional("configuration.appSettings");
    if (!settings) {
        log(4, L"CClrProfiler::CheckKey(): Could not find configuration.appSettings.add elements.");
        return false;
    }
    for (const auto& [element, entry] : *settings) {
        if (!boost::iequals(element, "add")) {
            continue;
        }
        const auto entry_key = entry.get_child_optional("<xmlattr>.key");
        if (!entry_key) {
            log(4, L"CClrProfiler::CheckKey(): configuration.appSettings.add element does not have "
                   L"key attribute.");
            continue;
        }
        if (entry_key->data() != key) {
            continue;
        }
        // The first entry with the key decides, whatever later ones say.
        const auto entry_value = entry.get_child_optional("<xmlattr>.value");
        if (!entry_value) {
            log(4, L"CClrProfiler::CheckKey(): configuration.appSettings.add element does not have "
                   L"value attribute.");
            return false;
        }
        return entry_value->data() == value;
    }
    return false;
}

} // namespace corvane
