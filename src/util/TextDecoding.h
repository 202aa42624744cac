#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumerix {

// Converts bytes in the named iconv encoding to UTF-8. All or nothing: any
// byte sequence the encoding does not define, or a sequence cut off at the
// end, fails the whole conversion. Also fails when the system has no
// converter for the encoding.
std::optional<std::string> convertToUtf8(std::string_view bytes, const char* encoding);

}  // namespace lumerix
