#include "profiler/xml_depth.h"

#include <algorithm>

namespace corvane {
namespace {

constexpr std::string_view kBlanks = " \t\n\r";
constexpr std::string_view kElementNameEnd = " \t\n\r/>?";
constexpr std::string_view kAttributeNameEnd = " \t\n\r!/<=>?";

// Moves along the text. What it looks for and does not find puts it at the end.
class Cursor {
public:
    explicit Cursor(std::string_view text) : rest_(text) {}

    bool at_end() const { return rest_.empty(); }
    bool starts_with(std::string_view text) const { return rest_.starts_with(text); }

    void skip(std::size_t count) { rest_.remove_prefix(std::min(count, rest_.size())); }
    void skip_to(std::string_view text) { skip(rest_.find(text)); }
    void skip_to_any(std::string_view characters) { skip(rest_.find_first_of(characters)); }
    void skip_past(std::string_view text) {
        skip_to(text);
        skip(text.size());
    }
    void skip_blanks() { skip(rest_.find_first_not_of(kBlanks)); }

    bool accept(std::string_view text) {
        const bool found = starts_with(text);
        if (found) {
            skip(text.size());
        }
        return found;
    }

    // One of the characters, if it is the next; it is not skipped.
    bool is_next_any(std::string_view characters) const {
        return !rest_.empty() && characters.find(rest_.front()) != std::string_view::npos;
    }

private:
    std::string_view rest_;
};

// Behind "<!DOCTYPE": up to the ">" that is outside all brackets.
void skip_doctype(Cursor& cursor) {
    int brackets = 0;
    for (;;) {
        cursor.skip_to_any("[]>");
        if (cursor.at_end()) {
            return;
        }
        if (cursor.accept("[")) {
            ++brackets;
        } else if (cursor.accept("]")) {
            brackets -= brackets > 0 ? 1 : 0;
        } else {
            cursor.skip(1);
            if (brackets == 0) {
                return;
            }
        }
    }
}

// Behind the "<" of a start tag: past its end. True when it opens an element that is to be closed.
bool skip_start_tag(Cursor& cursor) {
    cursor.skip_to_any(kElementNameEnd);
    cursor.skip_blanks();
    while (!cursor.at_end() && !cursor.is_next_any(kAttributeNameEnd)) {
        cursor.skip_to_any(kAttributeNameEnd);
        cursor.skip_blanks();
        if (!cursor.accept("=")) {
            return false; // malformed
        }
        cursor.skip_blanks();
        if (cursor.accept("\"")) {
            cursor.skip_past("\"");
        } else if (cursor.accept("'")) {
            cursor.skip_past("'");
        } else {
            return false; // malformed
        }
        cursor.skip_blanks();
    }
    return cursor.accept(">");
}

} // namespace

bool nests_deeper_than(std::string_view xml, int limit) {
    Cursor cursor(xml.substr(0, xml.find('\0'))); // the parser takes a zero byte for the end
    int depth = 0;
    for (cursor.skip_to("<"); !cursor.at_end(); cursor.skip_to("<")) {
        if (cursor.accept("<!--")) {
            cursor.skip_past("-->");
        } else if (cursor.accept("<![CDATA[")) {
            cursor.skip_past("]]>");
        } else if (cursor.accept("<?")) {
            cursor.skip_past("?>");
        } else if (cursor.accept("<!DOCTYPE")) {
            // Without a blank it is one more unknown declaration.
            if (cursor.is_next_any(kBlanks)) {
                skip_doctype(cursor);
            } else {
                cursor.skip_past(">");
            }
        } else if (cursor.accept("<!")) {
            cursor.skip_past(">");
        } else if (cursor.accept("</")) {
            cursor.skip_past(">");
            if (--depth < 0) {
                return false; // malformed
            }
        } else if (cursor.accept("<") && skip_start_tag(cursor) && ++depth > limit) {
            return true;
        }
    }
    return false;
}

} // namespace corvane
