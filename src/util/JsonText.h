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

}  // namespace lumerix::json
