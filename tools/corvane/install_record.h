// The record of an installation, from which it is taken back: what was put where, and what stood
// there before. Pure.
#pragma once

#include "tools/corvane/environment.h"
#include "tools/corvane/words.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::tool {

struct RecordedFile {
    std::wstring path; // in the folder
    std::string sum;   // of its bytes
    bool operator==(const RecordedFile&) const = default;
};

struct RecordedVariable {
    std::wstring name;
    std::optional<std::wstring> value;  // as it was set; none: it was removed
    std::optional<std::wstring> before; // none: there was none
    bool operator==(const RecordedVariable&) const = default;
};

// A service, or an application pool.
struct RecordedTarget {
    bool is_pool = false;
    std::wstring name;
    std::vector<RecordedVariable> variables;
    bool operator==(const RecordedTarget&) const = default;
};

struct InstallRecord {
    bool made_folder = false;
    std::wstring permissions_before; // of a folder that was there
    std::vector<RecordedFile> files;
    bool registers = false;
    std::wstring registered_before; // a path; empty: nothing was registered
    std::vector<RecordedTarget> targets;
    bool operator==(const InstallRecord&) const = default;
};

std::string to_json(const InstallRecord& record);

// Nothing for a text that is no record.
std::optional<InstallRecord> parse_record(std::string_view text);

RecordedFile* find_file(InstallRecord& record, const std::wstring& path);
RecordedTarget& target_of(InstallRecord& record, bool is_pool, const std::wstring& name);

// What the changes make of the record of a target's variables. Where a value is the one that was
// set, the one before it stays the one to go back to.
std::vector<RecordedVariable> recorded_with(const std::vector<RecordedVariable>& recorded,
                                            const Environment& current, const Changes& changes);

// What takes the variables back; and those with values that somebody else gave them since, which
// are left.
struct TakingBack {
    Changes changes;
    std::vector<std::wstring> left;
};
TakingBack taking_back(const std::vector<RecordedVariable>& recorded, const Environment& current);

// Those that would make a difference.
Changes differing(const Changes& changes, const Environment& current);

// A list NAME=VALUE after the changes. The others keep their places.
Words with_changes(Words assignments, const Changes& changes);
Environment as_environment(const Words& assignments);

} // namespace corvane::tool
