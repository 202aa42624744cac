#pragma once

#include <string>
#include <string_view>

namespace lumerix::json {

// Appends text as a JSON string, quotes included. The text must be UTF-8;
// it is copied as it is apart from the characters JSON requires escaped
// (quote, backslash, controls), written as \" \\ \b \f \n \r \t or \u00XX.
void appendString(std::string& out, std::string_view text);

// Appends the shortest decimal text that reads back to exactly this double,
// with ".0" on whole numbers ("1.0", "0.001", "1e+21"); NaN and the
// infinities, which JSON cannot hold, as null.
void appendNumber(std::string& out, double value);

// Whether the text nests arrays and objects no deeper than maxDepth (text
// inside strings does not count). The JSON library copies and writes
// nested values recursively, so a file nested tens of thousands deep would
// overflow the stack: such text is refused before it is parsed.
bool nestingWithin(std::string_view text, std::size_t maxDepth);

// Settings and helper messages are flat; this leaves plenty of room.
inline constexpr std::size_t maxNesting = 64;

}  // namespace lumerix::json
