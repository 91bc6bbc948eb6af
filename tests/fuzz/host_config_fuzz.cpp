// Any text as applicationHost.config. A variable that is set is there with its value, the others
// are what they were, and without it all is as before. An input is the text; its pool is P.
#include "tests/fuzz/require.h"
#include "tools/corvane/host_config.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using corvane::require;
    using namespace corvane::tool;
    const std::string config(reinterpret_cast<const char*>(data), size);
    const auto own = [](const std::string& text) {
        const auto pool = read_pool(text, L"P");
        return pool ? std::optional(pool->own) : std::nullopt;
    };
    const auto before = own(config);
    require(is_well_formed(config) || !before, "a pool is read only in what is well-formed");
    const std::wstring value = L"<\"a\" & 'b'>";
    const auto set = with_pool_variables(config, L"P", {{L"NEW", value}});
    require(set.has_value() == before.has_value(), "a pool that is read can be changed");
    if (!set) {
        return 0;
    }
    auto after = own(*set);
    require(after.has_value(), "the pool is still there");
    require(after->contains(L"NEW") && after->find(L"NEW")->second == value,
            "the variable is there");
    Environment others = *before;
    others.erase(L"NEW");
    after->erase(L"NEW");
    require(*after == others, "the others are what they were");
    const auto removed = with_pool_variables(*set, L"P", {{L"NEW", std::nullopt}});
    require(removed.has_value(), "the pool is still there");
    if (!before->contains(L"NEW")) {
        require(own(*removed) == before, "all is as before");
    }
    return 0;
}
