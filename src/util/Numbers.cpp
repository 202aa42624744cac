#include "util/Numbers.h"

#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <cmath>
#include <cstdint>
#include <limits>
#if defined(__APPLE__)
#include <xlocale.h>  // newlocale and strtod_l live here on macOS
#endif

namespace lumerix {

namespace {

locale_t cLocale() {
  static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return c;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// -?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?
bool isCDecimal(std::string_view s) {
  std::size_t i = 0;
  auto digits = [&] {
    const std::size_t from = i;
    while (i < s.size() && isDigit(s[i])) ++i;
    return i - from;
  };
  if (i < s.size() && s[i] == '-') ++i;
  std::size_t mantissa = digits();
  if (i < s.size() && s[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    if (digits() == 0) return false;
  }
  return i == s.size();
}

}  // namespace

std::optional<double> parseDecimal(std::string_view text) {
  // The grammar is checked here so that both C libraries see only text they
  // agree on; strtod_l then does the correctly rounded conversion.
  if (!isCDecimal(text)) return std::nullopt;
  const locale_t c = cLocale();
  if (!c) return std::nullopt;
  const std::string copy(text);  // strtod wants a terminated string
  char* end = nullptr;
  const double value = strtod_l(copy.c_str(), &end, c);
  if (end != copy.c_str() + copy.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::string truncatedInteger(double value) {
  if (std::isnan(value)) return "0";
  constexpr double limit = 9223372036854775807.0;  // rounds up to 2^63
  if (value >= limit) return std::to_string(std::numeric_limits<std::int64_t>::max());
  if (value <= -limit) return std::to_string(std::numeric_limits<std::int64_t>::min());
  return std::to_string(static_cast<std::int64_t>(value));
}

int saturatedInt(double value) {
  if (std::isnan(value)) return 0;
  if (value >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
  if (value <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
  return static_cast<int>(std::lround(value));
}

namespace {

int cFormatList(char* buf, std::size_t size, const char* format, va_list args) {
  // uselocale is per thread: no other thread's formatting changes meanwhile.
  const locale_t c = cLocale();
  const locale_t previous = c ? uselocale(c) : static_cast<locale_t>(0);
  const int n = vsnprintf(buf, size, format, args);
  if (previous) uselocale(previous);
  return n;
}

}  // namespace

int cFormatInto(char* buf, std::size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = cFormatList(buf, size, format, args);
  va_end(args);
  return n;
}

std::string cFormat(const char* format, ...) {
  char buf[256];
  va_list args;
  va_start(args, format);
  const int n = cFormatList(buf, sizeof buf, format, args);
  va_end(args);
  return n < 0 ? std::string() : std::string(buf);
}

}  // namespace lumerix
