#include "util/JsonText.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>

namespace lumerix::json {

namespace {

// Whether any of the eight bytes is a control character, a quote or a
// backslash: the bytes JSON wants escaped.
bool needsEscape(std::uint64_t w) {
  constexpr std::uint64_t ones = 0x0101010101010101ULL, highs = 0x8080808080808080ULL;
  auto hasZero = [](std::uint64_t v) { return (v - ones) & ~v & highs; };
  const std::uint64_t control = (w - ones * 0x20) & ~w & highs;  // a byte below 0x20
  return control | hasZero(w ^ (ones * '"')) | hasZero(w ^ (ones * '\\'));
}

}  // namespace

void appendString(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '"';
  std::size_t run = 0;  // start of the bytes not yet copied
  for (std::size_t i = 0; i < text.size(); ++i) {
    // Most text needs no escape at all: pass it eight bytes at a time.
    while (i + 8 <= text.size()) {
      std::uint64_t w;
      std::memcpy(&w, text.data() + i, 8);
      if (needsEscape(w)) break;
      i += 8;
    }
    if (i >= text.size()) break;
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(text.data() + run, i - run);
    run = i + 1;
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += "\\u00";
        out += hex[c >> 4];
        out += hex[c & 15];
    }
  }
  out.append(text.data() + run, text.size() - run);
  out += '"';
}

namespace {

// Subtitle times are whole milliseconds: when the value is exactly the
// double nearest to some n/1000, "S.mmm" without trailing zeros is its
// shortest round-trip text, and writing it needs no general conversion.
bool appendMilliseconds(std::string& out, double value) {
  const double magnitude = std::fabs(value);
  if (!(magnitude < 1e9)) return false;
  const long long ms = std::llround(magnitude * 1000);
  if (static_cast<double>(ms) / 1000.0 != magnitude) return false;
  char buf[32];
  char* end = buf + sizeof buf;
  char* p = end;
  long long whole = ms / 1000;
  int frac = static_cast<int>(ms % 1000);
  int decimals = 3;
  while (decimals > 1 && frac % 10 == 0) {
    frac /= 10;
    --decimals;
  }
  for (int d = 0; d < decimals; ++d, frac /= 10) *--p = static_cast<char>('0' + frac % 10);
  *--p = '.';
  do {
    *--p = static_cast<char>('0' + whole % 10);
    whole /= 10;
  } while (whole);
  if (std::signbit(value)) *--p = '-';
  out.append(p, static_cast<std::size_t>(end - p));
  return true;
}

}  // namespace

void appendNumber(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  if (appendMilliseconds(out, value)) return;
  // The JSON library's own shortest round-trip conversion (Grisu2 with its
  // exactness fallback): portable, where std::to_chars for doubles is not.
  char buf[64];
  char* end = nlohmann::detail::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, static_cast<std::size_t>(end - buf));
}

bool nestingWithin(std::string_view text, std::size_t maxDepth) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;  // whatever is escaped, it is not the end of the string
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) return false;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return true;
}

}  // namespace lumerix::json
