#include "tools/corvane/install_record.h"

#include "profiler/wide_text.h"
#include "tools/corvane/utf8.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace corvane::tool {
namespace {

using Json = nlohmann::ordered_json;

Json json_of(const std::optional<std::wstring>& text) {
    return text ? Json(to_utf8(*text)) : Json(nullptr);
}

std::wstring text_of(const Json& json) {
    return to_wide(json.get<std::string>());
}

std::optional<std::wstring> optional_text_of(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional(text_of(json));
}

std::optional<std::wstring> value_in(const Environment& environment, const std::wstring& name) {
    const auto found = environment.find(name);
    return found == environment.end() ? std::nullopt : std::optional(found->second);
}

// Whether a path stays in its folder.
bool is_inside(const std::wstring& path) {
    return !path.empty() && path.front() != L'\\' && path.find(L':') == path.npos &&
           path.find(L"..") == path.npos && path.find(L'/') == path.npos;
}

// Of NAME=VALUE. A name may begin with the sign.
std::wstring name_of(const std::wstring& assignment) {
    return assignment.substr(0, assignment.find(L'=', 1));
}

} // namespace

std::string to_json(const InstallRecord& record) {
    Json json = {{"record", 1},
                 {"made_folder", record.made_folder},
                 {"permissions_before", to_utf8(record.permissions_before)},
                 {"files", Json::array()},
                 {"registers", record.registers},
                 {"registered_before", to_utf8(record.registered_before)},
                 {"targets", Json::array()}};
    for (const RecordedFile& file : record.files) {
        json["files"].push_back({{"path", to_utf8(file.path)}, {"sha256", file.sum}});
    }
    for (const RecordedTarget& target : record.targets) {
        Json variables = Json::array();
        for (const RecordedVariable& variable : target.variables) {
            variables.push_back({{"name", to_utf8(variable.name)},
                                 {"value", json_of(variable.value)},
                                 {"before", json_of(variable.before)}});
        }
        json["targets"].push_back({{"kind", target.is_pool ? "pool" : "service"},
                                   {"name", to_utf8(target.name)},
                                   {"variables", variables}});
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::optional<InstallRecord> parse_record(std::string_view text) {
    try {
        const Json json = Json::parse(text);
        if (json.at("record").get<int>() != 1) {
            return std::nullopt;
        }
        InstallRecord record;
        record.made_folder = json.at("made_folder").get<bool>();
        record.permissions_before = text_of(json.at("permissions_before"));
        for (const Json& file : json.at("files")) {
            record.files.push_back(
                {text_of(file.at("path")), file.at("sha256").get<std::string>()});
            if (!is_inside(record.files.back().path)) {
                return std::nullopt;
            }
        }
        record.registers = json.at("registers").get<bool>();
        record.registered_before = text_of(json.at("registered_before"));
        for (const Json& target : json.at("targets")) {
            RecordedTarget read{
                target.at("kind").get<std::string>() == "pool", text_of(target.at("name")), {}};
            for (const Json& variable : target.at("variables")) {
                read.variables.push_back({text_of(variable.at("name")),
                                          optional_text_of(variable.at("value")),
                                          optional_text_of(variable.at("before"))});
            }
            record.targets.push_back(std::move(read));
        }
        return record;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

RecordedFile* find_file(InstallRecord& record, const std::wstring& path) {
    const auto found = std::ranges::find_if(record.files, [&](const RecordedFile& file) {
        return equals_ignore_case(file.path, path);
    });
    return found == record.files.end() ? nullptr : &*found;
}

RecordedTarget& target_of(InstallRecord& record, bool is_pool, const std::wstring& name) {
    const auto found = std::ranges::find_if(record.targets, [&](const RecordedTarget& target) {
        return target.is_pool == is_pool && equals_ignore_case(target.name, name);
    });
    return found != record.targets.end()
               ? *found
               : record.targets.emplace_back(RecordedTarget{is_pool, name, {}});
}

std::vector<RecordedVariable> recorded_with(const std::vector<RecordedVariable>& recorded,
                                            const Environment& current, const Changes& changes) {
    std::vector<RecordedVariable> result = recorded;
    for (const auto& [name, value] : changes) {
        const auto is_current = value_in(current, name);
        const auto known =
            std::ranges::find_if(result, [&name = name](const RecordedVariable& variable) {
                return equals_ignore_case(variable.name, name);
            });
        if (known == result.end()) {
            result.push_back({name, value, is_current});
        } else {
            known->before = is_current == known->value ? known->before : is_current;
            known->value = value;
        }
    }
    return result;
}

TakingBack taking_back(const std::vector<RecordedVariable>& recorded, const Environment& current) {
    TakingBack result;
    for (const RecordedVariable& variable : recorded) {
        const auto is_current = value_in(current, variable.name);
        if (is_current == variable.before) {
            continue;
        }
        if (is_current == variable.value) {
            result.changes.emplace_back(variable.name, variable.before);
        } else {
            result.left.push_back(variable.name);
        }
    }
    return result;
}

Changes differing(const Changes& changes, const Environment& current) {
    Changes result;
    std::ranges::copy_if(changes, std::back_inserter(result), [&](const auto& change) {
        return value_in(current, change.first) != change.second;
    });
    return result;
}

Words with_changes(Words assignments, const Changes& changes) {
    for (const auto& [name, value] : changes) {
        const auto place =
            std::ranges::find_if(assignments, [&name = name](const std::wstring& assignment) {
                return equals_ignore_case(name_of(assignment), name);
            });
        if (value && place != assignments.end()) {
            *place = name + L'=' + *value;
        } else if (value) {
            assignments.push_back(name + L'=' + *value);
        } else if (place != assignments.end()) {
            assignments.erase(place);
        }
    }
    return assignments;
}

Environment as_environment(const Words& assignments) {
    Environment environment;
    for (const std::wstring& assignment : assignments) {
        const std::wstring name = name_of(assignment);
        if (name.size() < assignment.size()) {
            environment[name] = assignment.substr(name.size() + 1);
        }
    }
    return environment;
}

} // namespace corvane::tool
