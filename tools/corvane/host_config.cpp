#include "tools/corvane/host_config.h"

#include "profiler/wide_text.h"
#include "tools/corvane/utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <vector>

namespace corvane::tool {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::size_t kMaxDepth = 64;

// Places in a text.
struct Element {
    std::string_view name;
    std::size_t begin = 0;
    std::size_t tag_end = 0; // behind the first tag
    std::size_t close = 0;   // the closing tag; of an empty tag its end
    std::size_t end = 0;
    bool is_empty_tag = false;
};

std::size_t behind(std::string_view text, std::string_view mark, std::size_t from) {
    const std::size_t at = text.find(mark, from);
    return at == text.npos ? text.npos : at + mark.size();
}

// Behind what is no element at a "<"; its own place if it is one; npos if it has no end.
std::size_t behind_other(std::string_view text, std::size_t at) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) {
        return behind(text, "-->", at + 4);
    }
    if (rest.starts_with("<![CDATA[")) {
        return behind(text, "]]>", at);
    }
    if (rest.starts_with("<?")) {
        return behind(text, "?>", at);
    }
    return rest.starts_with("<!") ? behind(text, ">", at) : at;
}

// Behind the ">" of a tag: one in quotes is none.
std::size_t behind_tag(std::string_view text, std::size_t at) {
    for (char quote = '\0'; at < text.size(); ++at) {
        const char c = text[at];
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return at + 1;
        }
    }
    return text.npos;
}

std::string_view name_at(std::string_view text, std::size_t at) {
    const std::string_view rest = text.substr(at);
    return rest.substr(0, rest.find_first_of(" \t\r\n=/>"));
}

// The elements between two places that are in no other one between them; nothing if the text is
// malformed.
std::optional<std::vector<Element>> elements(std::string_view text, std::size_t from,
                                             std::size_t to) {
    text = text.substr(0, to);
    std::vector<Element> found;
    std::vector<std::string_view> open;
    for (std::size_t at = text.find('<', from); at != text.npos; at = text.find('<', at)) {
        const std::size_t next = behind_other(text, at);
        if (next == text.npos) {
            return std::nullopt;
        }
        if (next != at) {
            at = next;
            continue;
        }
        const std::size_t end = behind_tag(text, at);
        if (end == text.npos) {
            return std::nullopt;
        }
        const bool closes = text[at + 1] == '/';
        const std::string_view name = name_at(text, at + (closes ? 2 : 1));
        if (closes) {
            if (open.empty() || open.back() != name) {
                return std::nullopt;
            }
            open.pop_back();
            if (open.empty()) {
                found.back().close = at;
                found.back().end = end;
            }
        } else {
            const bool is_empty_tag = text[end - 2] == '/';
            if (name.empty() || open.size() == kMaxDepth) {
                return std::nullopt;
            }
            if (open.empty()) {
                found.push_back({name, at, end, end, end, is_empty_tag});
            }
            if (!is_empty_tag) {
                open.push_back(name);
            }
        }
        at = end;
    }
    return open.empty() ? std::optional(found) : std::nullopt;
}

std::vector<Element> children(std::string_view text, const Element& parent) {
    return elements(text, parent.tag_end, parent.close).value_or(std::vector<Element>());
}

// Where the value of an attribute stands, between its quotes.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

std::optional<Range> attribute(std::string_view text, const Element& element,
                               std::string_view wanted) {
    text = text.substr(0, element.tag_end);
    std::size_t at = element.begin + 1 + element.name.size();
    for (;;) {
        at = text.find_first_not_of(kBlanks, at);
        if (at == text.npos || text[at] == '/' || text[at] == '>') {
            return std::nullopt;
        }
        const std::string_view name = name_at(text, at);
        at = text.find_first_not_of(kBlanks, at + name.size());
        if (name.empty() || at == text.npos || text[at] != '=') {
            return std::nullopt;
        }
        at = text.find_first_not_of(kBlanks, at + 1);
        const char quote = at == text.npos ? '\0' : text[at];
        if (quote != '"' && quote != '\'') {
            return std::nullopt;
        }
        const std::size_t end = text.find(quote, at + 1);
        if (end == text.npos) {
            return std::nullopt;
        }
        if (name == wanted) {
            return Range{at + 1, end};
        }
        at = end + 1;
    }
}

// --- Texts in attributes

struct Entity {
    char character;
    std::string_view text;
};
constexpr std::array kEntities = {Entity{'&', "&amp;"}, Entity{'<', "&lt;"}, Entity{'>', "&gt;"},
                                  Entity{'"', "&quot;"}, Entity{'\'', "&apos;"}};

std::string escaped(const std::wstring& wide) {
    std::string text;
    for (const char c : to_utf8(wide)) {
        const auto entity = std::ranges::find(kEntities, c, &Entity::character);
        text += entity == kEntities.end() ? std::string(1, c) : std::string(entity->text);
    }
    return text;
}

// "#10" or "#xA" as a character; nothing if it is none.
std::optional<std::wstring> numbered(std::string_view number) {
    const bool is_hexadecimal = number.starts_with("#x");
    number.remove_prefix(std::min<std::size_t>(number.size(), is_hexadecimal ? 2 : 1));
    std::uint32_t code = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), code,
                                              is_hexadecimal ? 16 : 10);
    if (error != std::errc() || end != number.data() + number.size() || code == 0 ||
        code > 0xFFFF) {
        return std::nullopt; // IIS writes none beyond
    }
    return std::wstring(1, static_cast<wchar_t>(code));
}

std::wstring unescaped(std::string_view text) {
    std::wstring wide;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t mark = std::min(text.find('&', at), text.size());
        wide += to_wide(text.substr(at, mark - at));
        at = mark;
        if (at == text.size()) {
            break;
        }
        const std::size_t end = std::min(text.find(';', at), text.size() - 1);
        const std::string_view whole = text.substr(at, end - at + 1);
        const auto entity = std::ranges::find(kEntities, whole, &Entity::text);
        if (entity != kEntities.end()) {
            wide += static_cast<wchar_t>(entity->character);
        } else if (whole.starts_with("&#")) {
            wide += numbered(whole.substr(1, whole.size() - 2)).value_or(to_wide(whole));
        } else {
            wide += to_wide(whole);
        }
        at = end + 1;
    }
    return wide;
}

std::wstring value_of(std::string_view text, const Element& element, std::string_view name) {
    const auto range = attribute(text, element, name);
    return range ? unescaped(text.substr(range->begin, range->end - range->begin)) : std::wstring();
}

// --- The pool

std::optional<Element> child(std::string_view text, const Element& parent, std::string_view name,
                             std::optional<std::wstring_view> named = std::nullopt) {
    for (const Element& element : children(text, parent)) {
        if (element.name == name &&
            (!named || equals_ignore_case(value_of(text, element, "name"), *named))) {
            return element;
        }
    }
    return std::nullopt;
}

std::optional<Element> find_pools(std::string_view text) {
    const auto top = elements(text, 0, text.size());
    if (!top) {
        return std::nullopt;
    }
    for (Element element : *top) {
        if (element.name != "configuration") {
            continue;
        }
        for (const char* const name : {"system.applicationHost", "applicationPools"}) {
            const auto next = child(text, element, name);
            if (!next) {
                return std::nullopt;
            }
            element = *next;
        }
        return element;
    }
    return std::nullopt;
}

std::optional<Element> find_pool_element(std::string_view text, std::wstring_view pool) {
    const auto pools = find_pools(text);
    return pools ? child(text, *pools, "add", pool) : std::nullopt;
}

constexpr std::string_view kList = "environmentVariables";

Environment variables_in(std::string_view text, const Element& list) {
    Environment variables;
    for (const Element& variable : children(text, list)) {
        if (variable.name == "add") {
            variables.emplace(value_of(text, variable, "name"),
                              value_of(text, variable, "value")); // the first one counts
        }
    }
    return variables;
}

// --- Changes of the text

bool is_blank(std::string_view text) {
    return text.find_first_not_of(kBlanks) == text.npos;
}

// The blanks in front of a place, if nothing else is in its line.
std::string indent_of(std::string_view text, std::size_t at) {
    const std::size_t line = text.rfind('\n', at);
    const std::size_t begin = line == text.npos ? 0 : line + 1;
    const std::string_view front = text.substr(begin, at - begin);
    return is_blank(front) ? std::string(front) : std::string();
}

std::size_t blanks_before(std::string_view text, std::size_t at) {
    const std::size_t last = text.substr(0, at).find_last_not_of(kBlanks);
    return last == text.npos ? 0 : last + 1;
}

void insert_child(std::string& text, const Element& parent, const std::string& xml) {
    const std::string line = text.find("\r\n") == text.npos ? "\n" : "\r\n";
    const std::string indent = indent_of(text, parent.begin);
    const std::string own = line + indent + "    " + xml;
    if (parent.is_empty_tag) {
        const std::size_t mark = blanks_before(text, parent.end - 2);
        text.replace(mark, parent.end - mark,
                     ">" + own + line + indent + "</" + std::string(parent.name) + ">");
        return;
    }
    const std::vector<Element> others = children(text, parent);
    if (others.empty()) {
        const bool has_line =
            text.substr(parent.tag_end, parent.close - parent.tag_end).find('\n') !=
            std::string::npos;
        text.insert(parent.tag_end, own + (has_line ? "" : line + indent));
    } else {
        text.insert(others.back().end, line + indent_of(text, others.back().begin) + xml);
    }
}

// With the blanks before it; a parent that then has nothing left becomes an empty tag.
void remove_child(std::string& text, const Element& parent, const Element& removed) {
    const std::size_t begin = blanks_before(text, removed.begin);
    const std::string left = text.substr(parent.tag_end, begin - parent.tag_end) +
                             text.substr(removed.end, parent.close - removed.end);
    if (is_blank(left)) {
        text.replace(parent.tag_end - 1, parent.end - parent.tag_end + 1, " />");
    } else {
        text.erase(begin, removed.end - begin);
    }
}

void set_variable(std::string& text, std::wstring_view pool, const std::wstring& name,
                  const std::wstring& value) {
    const std::string xml =
        "<add name=\"" + escaped(name) + "\" value=\"" + escaped(value) + "\" />";
    const Element element = *find_pool_element(text, pool);
    const auto list = child(text, element, kList);
    if (!list) {
        insert_child(text, element, "<" + std::string(kList) + " />");
        return set_variable(text, pool, name, value);
    }
    const auto variable = child(text, *list, "add", name);
    if (!variable) {
        insert_child(text, *list, xml);
    } else if (const auto range = attribute(text, *variable, "value")) {
        text.replace(range->begin, range->end - range->begin, escaped(value));
    } else {
        text.replace(variable->begin, variable->end - variable->begin, xml);
    }
}

void remove_variable(std::string& text, std::wstring_view pool, const std::wstring& name) {
    const auto list = child(text, *find_pool_element(text, pool), kList);
    const auto variable = list ? child(text, *list, "add", name) : std::nullopt;
    if (!variable) {
        return;
    }
    remove_child(text, *list, *variable);
    const Element element = *find_pool_element(text, pool);
    const auto rest = child(text, element, kList);
    if (rest && rest->is_empty_tag) {
        remove_child(text, element, *rest);
    }
}

} // namespace

bool is_well_formed(std::string_view config) {
    return elements(config, 0, config.size()).has_value();
}

std::optional<PoolSettings> read_pool(std::string_view config, std::wstring_view pool) {
    const auto element = find_pool_element(config, pool);
    if (!element) {
        return std::nullopt;
    }
    constexpr std::string_view kWidth = "enable32BitAppOnWin64";
    const auto defaults = child(config, *find_pools(config), "applicationPoolDefaults");
    const bool has_width = !defaults || attribute(config, *element, kWidth);
    PoolSettings settings;
    settings.is_32_bit = value_of(config, has_width ? *element : *defaults, kWidth) == L"true";
    if (const auto list = child(config, *element, kList)) {
        settings.own = variables_in(config, *list);
    } else if (const auto all = defaults ? child(config, *defaults, kList) : std::nullopt) {
        settings.inherited = variables_in(config, *all);
    }
    return settings;
}

std::optional<std::string> with_pool_variables(std::string config, std::wstring_view pool,
                                               const Changes& changes) {
    if (!find_pool_element(config, pool)) {
        return std::nullopt;
    }
    for (const auto& [name, value] : changes) {
        if (value) {
            set_variable(config, pool, name, *value);
        } else {
            remove_variable(config, pool, name);
        }
    }
    return config;
}

} // namespace corvane::tool
