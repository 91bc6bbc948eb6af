// Configuration trees for fuzz targets, read by the parser alone and looked through by plain loops.
#pragma once

#include "profiler/agent_config.h"

#include <boost/property_tree/xml_parser.hpp>

#include <optional>
#include <sstream>
#include <string>

namespace corvane {

// Nothing for a text that the parser refuses.
inline std::optional<AgentConfig> parse_xml(const std::string& text) {
    std::istringstream stream(text);
    AgentConfig tree;
    try {
        boost::property_tree::read_xml(stream, tree, boost::property_tree::xml_parser::no_comments);
    } catch (const boost::property_tree::xml_parser_error&) {
        return std::nullopt;
    }
    return tree;
}

// The first child of that name, or null; of null, null.
inline const AgentConfig* child(const AgentConfig* parent, const std::string& name) {
    if (parent != nullptr) {
        for (const auto& [child_name, tree] : *parent) {
            if (child_name == name) {
                return &tree;
            }
        }
    }
    return nullptr;
}

inline std::optional<std::string> attribute(const AgentConfig& element, const std::string& name) {
    const AgentConfig* const found = child(child(&element, "<xmlattr>"), name);
    return found != nullptr ? std::optional(found->data()) : std::nullopt;
}

// Letters of ASCII only.
template <class Text>
Text lower(Text text) {
    for (auto& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c += 'a' - 'A';
        }
    }
    return text;
}

} // namespace corvane
