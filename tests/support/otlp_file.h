// The spans in a file of OTLP's JSON, read back.
#pragma once

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::testing {

struct OtlpSpan {
    std::string trace;
    std::string id;
    std::string parent; // empty for none
    std::string scope;  // who made it
    std::string name;
    int kind = 0;
    int status = 0;
    unsigned long long started = 0; // in nanoseconds
    unsigned long long ended = 0;
    std::map<std::string, std::string> attributes;

    // Empty if there is no such one.
    std::string operator[](const std::string& attribute) const {
        const auto found = attributes.find(attribute);
        return found == attributes.end() ? "" : found->second;
    }
};

inline OtlpSpan read_otlp_span(const boost::property_tree::ptree& tree) {
    OtlpSpan span;
    span.trace = tree.get<std::string>("traceId");
    span.id = tree.get<std::string>("spanId");
    span.parent = tree.get<std::string>("parentSpanId", "");
    span.name = tree.get<std::string>("name");
    span.kind = tree.get<int>("kind");
    span.status = tree.get<int>("status.code", 0);
    span.started = tree.get<unsigned long long>("startTimeUnixNano");
    span.ended = tree.get<unsigned long long>("endTimeUnixNano");
    const boost::property_tree::ptree none;
    for (const auto& [unnamed, attribute] : tree.get_child("attributes", none)) {
        const auto& value = attribute.get_child("value");
        span.attributes[attribute.get<std::string>("key")] = value.begin()->second.data();
    }
    return span;
}

// One document a line.
inline std::vector<OtlpSpan> read_otlp_file(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(file.string() + " is not there");
    }
    std::vector<OtlpSpan> spans;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream text(line);
        boost::property_tree::ptree tree;
        boost::property_tree::read_json(text, tree);
        for (const auto& [first, resource] : tree.get_child("resourceSpans")) {
            for (const auto& [second, scope] : resource.get_child("scopeSpans")) {
                for (const auto& [third, span] : scope.get_child("spans")) {
                    spans.push_back(read_otlp_span(span));
                    spans.back().scope = scope.get<std::string>("scope.name");
                }
            }
        }
    }
    return spans;
}

} // namespace corvane::testing
