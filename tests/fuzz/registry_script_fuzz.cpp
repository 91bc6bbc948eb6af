// Any text as a registry script. What is accepted is what a plain statement of the grammar accepts,
// the tree that is read can be written and read again, and no part of a script is one.
#include "profiler/registry_script.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane {
namespace {

using Replacements = std::map<std::wstring, std::wstring>;

const Replacements kReplacements = {{L"APPID", L"{1}"}, {L"M", L"C:\\it's {here}%"}};
const std::wstring kBlanks = L" \t\r\n";

std::optional<RegistryKey> parse(const std::wstring& script, const Replacements& replacements) {
    try {
        return parse_registry_script(script, replacements);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

// --- The grammar, stated without recursion

// A quoted word keeps the quote in front, so that it is neither a sign nor a keyword. Nothing when
// a quote is not closed.
std::optional<std::vector<std::wstring>> words_of(const std::wstring& script) {
    std::vector<std::wstring> words;
    for (std::size_t i = 0; i < script.size();) {
        std::wstring word;
        if (script[i] == L'\'') {
            word = script[i++];
            for (bool open = true; open; ++i) {
                if (i == script.size()) {
                    return std::nullopt;
                }
                if (script[i] != L'\'') {
                    word += script[i];
                } else if (i + 1 < script.size() && script[i + 1] == L'\'') {
                    word += script[i++];
                } else {
                    open = false;
                }
            }
            words.push_back(word);
        } else if (kBlanks.find(script[i]) != std::wstring::npos) {
            ++i;
        } else {
            while (i < script.size() && kBlanks.find(script[i]) == std::wstring::npos) {
                word += script[i++];
            }
            words.push_back(word);
        }
    }
    return words;
}

// Signs of percent stand in pairs, with the name of a replacement between them; one that has no
// partner stands for itself.
bool can_be_replaced(std::wstring word) {
    while (std::count(word.begin(), word.end(), L'%') > 1) {
        const std::size_t open = word.find(L'%');
        const std::size_t close = word.find(L'%', open + 1);
        if (!kReplacements.contains(word.substr(open + 1, close - open - 1))) {
            return false;
        }
        word.erase(0, close + 1);
    }
    return true;
}

bool is_script(const std::wstring& script) {
    const auto words = words_of(script);
    if (!words) {
        return false;
    }
    std::size_t next = 0;
    const auto accept = [&](const std::wstring& word) {
        const bool found = next < words->size() && (*words)[next] == word;
        next += found ? 1 : 0;
        return found;
    };
    const auto name = [&] {
        if (next == words->size()) {
            return false;
        }
        const std::wstring& word = (*words)[next++];
        return word != L"{" && word != L"}" && word != L"=" && can_be_replaced(word);
    };
    const auto text = [&] { return accept(L"s") && name(); };

    if (!accept(L"HKCR") || !accept(L"{")) {
        return false;
    }
    for (int depth = 1; depth > 0;) {
        if (accept(L"}")) {
            --depth;
        } else if (accept(L"val")) {
            if (!name() || !accept(L"=") || !text()) {
                return false;
            }
        } else {
            accept(L"NoRemove");
            if (!name() || (accept(L"=") && !text())) {
                return false;
            }
            depth += accept(L"{") ? 1 : 0;
        }
    }
    return next == words->size();
}

// --- Writing a tree

const Replacements kPercent = {{L"", L"%"}}; // lets "%%" stand for one

std::wstring quoted(const std::wstring& text) {
    std::wstring result = L"'";
    for (const wchar_t c : text) {
        result += std::wstring(c == L'\'' || c == L'%' ? 2 : 1, c);
    }
    return result + L"' ";
}

std::wstring block_of(const RegistryKey& key) {
    std::wstring text = L"{ ";
    for (const auto& [name, value] : key.values) {
        text += L"val " + quoted(name) + L"= s " + quoted(value);
    }
    for (const RegistryKey& inner : key.keys) {
        text += (inner.keep ? L"NoRemove " : L"") + quoted(inner.name);
        text += inner.default_value ? L"= s " + quoted(*inner.default_value) : L"";
        text += block_of(inner);
    }
    return text + L"} ";
}

bool same(const RegistryKey& a, const RegistryKey& b) {
    return a.name == b.name && a.keep == b.keep && a.default_value == b.default_value &&
           a.values == b.values && std::ranges::equal(a.keys, b.keys, same);
}

void check(const std::wstring& script) {
    const auto root = parse(script, kReplacements);
    require(root.has_value() == is_script(script), "what the grammar says is accepted");
    if (!root) {
        return;
    }
    require(root->name.empty() && !root->keep && !root->default_value, "the root has no name");
    const auto again = parse(L"HKCR " + block_of(*root), kPercent);
    require(again && same(*root, *again), "a tree that is written is read again");

    require(!parse(script + L" x", kReplacements), "nothing follows a script");
    const std::size_t end = script.find_last_not_of(kBlanks);
    require(!parse(script.substr(0, end), kReplacements), "a script has its last word");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::wide({data, size}));
    return 0;
}
