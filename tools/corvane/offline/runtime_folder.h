// Which runtime lends its metadata engine and its assemblies to the offline view of an assembly.
#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace corvane::tool {

// "10.0.12"; a preview of a version stands before it. Nothing for another text. Pure.
struct RuntimeVersion {
    std::array<unsigned, 3> numbers{};
    bool is_release = true;
    auto operator<=>(const RuntimeVersion&) const = default;
};
std::optional<RuntimeVersion> parse_version(std::wstring_view text);

// Of these folder names the newest version, of the major version if there is one of it. Nothing
// where none is a version. Pure.
std::optional<std::size_t> best_version(const std::vector<std::wstring>& names,
                                        std::optional<unsigned> major);

// The folder of the runtime's library. Looks into the folder that was asked for and into no other;
// else beside the assembly, then where DOTNET_ROOT says, then where the system has .NET. An asked
// folder is one with that library, or one that .NET is installed in. Nothing where there is none.
std::optional<std::filesystem::path>
find_runtime(const std::filesystem::path& assembly,
             const std::optional<std::filesystem::path>& asked);

// The folders whose assemblies count as loaded: the runtime's, and those of the frameworks of the
// same version that are installed with it.
std::vector<std::filesystem::path> framework_folders(const std::filesystem::path& runtime);

} // namespace corvane::tool
