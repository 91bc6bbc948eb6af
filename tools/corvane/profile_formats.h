// The forms of a profile that the commands can write, as the managed library knows them.
#pragma once

#include <array>
#include <optional>
#include <string>

namespace corvane::tool {

struct ProfileFormat {
    const char* option;
    const char* value;
    const char* name;         // in a request
    const wchar_t* extension; // of the library's own files
    const char* description;
};

inline constexpr std::array kProfileFormats = {
    ProfileFormat{"--flame", "FILE.svg", "svg", L".svg",
                  "Samples of the stacks as a flame graph, for any browser"},
    ProfileFormat{"--speedscope", "FILE", "speedscope", L".speedscope.json",
                  "Samples of the stacks for speedscope"},
    ProfileFormat{"--pprof", "FILE", "pprof", L".pb.gz", "Samples of the stacks for pprof"},
    ProfileFormat{"--folded", "FILE", "folded", L".folded",
                  "Samples of the stacks as text, a line for each stack"},
};

// What is asked for, in the order of the list.
template <class Value>
using ForEachFormat = std::array<Value, kProfileFormats.size()>;
using ProfileNames = ForEachFormat<std::optional<std::wstring>>;

} // namespace corvane::tool
