#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace lumerix {

// A decimal number written the C way, whatever locale the process runs in:
// an optional minus sign, digits with an optional point, an optional
// exponent; the whole text and nothing else. No leading space or plus sign,
// no hexadecimal, no infinities or NaN, and nothing that overflows a double
// (such text is refused, not read as infinity).
std::optional<double> parseDecimal(std::string_view text);

// The value truncated toward zero, in decimal ("28" for 28.9, "-3" for
// -3.7). Values past what a 64-bit integer holds are written as its limit,
// and NaN as 0: settings files may hold any number.
std::string truncatedInteger(double value);

// The nearest int, with values beyond an int's range (and infinities) held
// at its ends and NaN as 0: for handing sizes from settings to interfaces
// that count in ints, where an out-of-range conversion is undefined.
int saturatedInt(double value);

// printf formatting in the C locale, whatever locale the process runs in: the
// numbers we store and show in our own words always have a decimal point
// (GTK sets the user's locale at start, where "%.1f" would write "7,0").
// Longer results are cut at 255 bytes.
std::string cFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The same into a caller's buffer, for paths that must not allocate; returns
// what vsnprintf returns.
int cFormatInto(char* buf, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace lumerix
