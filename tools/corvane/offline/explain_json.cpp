#include "tools/corvane/offline/explain_json.h"

#include "tools/corvane/utf8.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <utility>

namespace corvane::tool {
namespace {

using Json = nlohmann::ordered_json;

std::string dump(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json json_of(const IlText& body) {
    if (!body) {
        return nullptr;
    }
    Json lines = Json::array();
    for (const IlLine& line : *body) {
        std::string text(line.depth * std::size_t{2}, ' ');
        text += line.label.empty() ? line.text : line.label + "  " + line.text;
        lines.push_back(std::move(text));
    }
    return lines;
}

} // namespace

std::string json_head(const ExplainedAssembly& assembly, Totals totals) {
    Json head;
    head["assembly"] = assembly.path;
    head["strict"] = assembly.strict;
    head["runtime"] = assembly.runtime;
    head["taken_as_loaded"] = {{"beside", assembly.neighbours.beside},
                               {"of_framework", assembly.neighbours.of_runtime}};
    for (const Fate fate : {Fate::kInstrumented, Fate::kLeft, Fate::kNotChosen}) {
        head["counts"][text_of(fate)] = totals.methods[fate];
    }
    std::string text = dump(head);
    text.pop_back();
    return text + ",\"methods\":[";
}

std::string json_of(const Decided& method, const Bodies* bodies, MetadataNames& names) {
    char number[16] = {};
    static_cast<void>(
        std::snprintf(number, sizeof number, "0x%08lx", static_cast<unsigned long>(method.token)));
    Json json;
    json["token"] = number;
    json["method"] = names.full_method_name(method.token);
    json["signature"] = names.method(method.token, false);
    json["outcome"] = text_of(method.fate.fate);
    if (method.fate.rule != Rule::kNone) {
        json["rule"] = text_of(method.fate.rule);
    }
    if (method.fate.fate == Fate::kLeft) {
        json["reason"] = to_utf8(method.fate.reason);
    }
    if (bodies != nullptr) {
        json["before"] = json_of(bodies->before);
        if (bodies->after) {
            json["after"] = json_of(*bodies->after);
        }
    }
    return dump(json);
}

} // namespace corvane::tool
