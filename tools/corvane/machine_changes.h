// What an installation changes on this machine beside its own files: permissions, variables of
// services and of application pools. Everything here throws Failure.
#pragma once

#include "tools/corvane/environment.h"

#include <filesystem>
#include <optional>
#include <string>

namespace corvane::tool {

// The owner and the permissions of a folder, as the system writes them down.
std::wstring permissions_of(const std::filesystem::path& folder);
void set_permissions(const std::filesystem::path& folder, const std::wstring& permissions);

// The variables in the settings of a service or of a pool alone. Nothing if there is none of that
// name.
std::optional<Environment> target_variables(bool is_pool, const std::wstring& name);

// What a pool has from the defaults of all pools, and no longer once it has variables of its own.
Environment inherited_variables(const std::wstring& pool);

void change_target(bool is_pool, const std::wstring& name, const Changes& changes);

// SHA-256, as hexadecimal digits.
std::string sum_of(std::string_view bytes);

std::optional<std::string> read_file(const std::filesystem::path& file);
void write_file(const std::filesystem::path& file, std::string_view bytes);

[[noreturn]] void fail(const std::string& what, unsigned long error);

} // namespace corvane::tool
