// The nesting depth of the elements of an XML document. It is computed without recursion and before
// the parser sees the text: the parser and its tree recurse once per level.
#pragma once

#include <string_view>

namespace corvane {

// Reads markup by the rules of PropertyTree's parser, lenient ones included: where the two
// differed, a document could hide its depth. On malformed text it may give any answer from the
// first mistake on, since the parser stops there.
bool nests_deeper_than(std::string_view xml, int limit);

} // namespace corvane
