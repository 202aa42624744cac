#pragma once

// Code-point level helpers over UTF-8 text. Everything here assumes its
// input is valid UTF-8 (the reader validates or converts before it scans),
// so decoding never has to report errors.

#include <cstddef>
#include <string>
#include <string_view>

namespace lumerix::unicode {

// Decodes the code point starting at s[i] and advances i past it.
inline char32_t next(std::string_view s, std::size_t& i) {
  auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char c = b(i);
  if (c < 0x80) {
    ++i;
    return c;
  }
  if (c < 0xE0) {
    char32_t cp = (char32_t(c & 0x1F) << 6) | (b(i + 1) & 0x3F);
    i += 2;
    return cp;
  }
  if (c < 0xF0) {
    char32_t cp = (char32_t(c & 0x0F) << 12) | (char32_t(b(i + 1) & 0x3F) << 6) | (b(i + 2) & 0x3F);
    i += 3;
    return cp;
  }
  char32_t cp = (char32_t(c & 0x07) << 18) | (char32_t(b(i + 1) & 0x3F) << 12) | (char32_t(b(i + 2) & 0x3F) << 6) |
                (b(i + 3) & 0x3F);
  i += 4;
  return cp;
}

// Decodes the code point that ends just before s[i] and moves i back to its start.
inline char32_t previous(std::string_view s, std::size_t& i) {
  std::size_t k = i - 1;
  while (k > 0 && (static_cast<unsigned char>(s[k]) & 0xC0) == 0x80) --k;
  std::size_t j = k;
  char32_t cp = next(s, j);
  i = k;
  return cp;
}

// True when bytes are well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF, no truncated sequence.
bool isValidUtf8(std::string_view bytes);

bool isSeparatorCategory(char32_t cp);  // general category Zs, Zl or Zp
bool isSpaceCategory(char32_t cp);      // general category Zs

// The regex class \s as the patterns mean it: [\t\n\f\r\p{Z}].
inline bool isPatternSpace(char32_t cp) {
  if (cp < 0x80) return cp == ' ' || cp == '\t' || cp == '\n' || cp == '\f' || cp == '\r';
  return isSeparatorCategory(cp);
}

// "Whitespace": category Zs plus tab. Line ends are not included.
inline bool isWhitespace(char32_t cp) {
  if (cp < 0x80) return cp == ' ' || cp == '\t';
  return isSpaceCategory(cp);
}

// "Whitespace and line ends": category Z, tab, U+000A-U+000D and U+0085.
// Zl and Zp carry U+2028 and U+2029.
inline bool isWhitespaceOrLineEnd(char32_t cp) {
  if (cp < 0x80) return cp == ' ' || cp == '\t' || (cp >= 0x0A && cp <= 0x0D);
  return cp == 0x85 || isSeparatorCategory(cp);
}

// The first user-perceived character (a code point and whatever joins it,
// such as combining marks); empty for empty text.
std::string_view firstGrapheme(std::string_view s);

// Decimal digit of any script (general category Nd).
bool isDecimalDigit(char32_t cp);

// Unicode canonical composition (NFC); the text unchanged if it is not UTF-8.
std::string composed(std::string_view s);

// Lower or upper case by the simple one-to-one mapping of each code point.
std::string lowercased(std::string_view s);
std::string uppercased(std::string_view s);

// Trims code points matching pred from both ends.
template <class Pred>
std::string_view trim(std::string_view s, Pred pred) {
  std::size_t b = 0;
  while (b < s.size()) {
    std::size_t k = b;
    if (!pred(next(s, k))) break;
    b = k;
  }
  std::size_t e = s.size();
  while (e > b) {
    std::size_t k = e;
    if (!pred(previous(s, k))) break;
    e = k;
  }
  return s.substr(b, e - b);
}

// True when every code point of s satisfies pred (and so for an empty s).
template <class Pred>
bool all(std::string_view s, Pred pred) {
  for (std::size_t i = 0; i < s.size();) {
    if (!pred(next(s, i))) return false;
  }
  return true;
}

}  // namespace lumerix::unicode
