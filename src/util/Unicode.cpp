#include "util/Unicode.h"

#include <utf8proc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace lumerix::unicode {

bool isValidUtf8(std::string_view bytes) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  while (i < n) {
    // Plain ASCII dominates subtitle files; skip it eight bytes at a time.
    while (i + 8 <= n) {
      std::uint64_t w;
      std::memcpy(&w, p + i, 8);
      if (w & 0x8080808080808080ULL) break;
      i += 8;
    }
    if (i >= n) break;
    const unsigned char c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t len;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      if (c == 0xE0) lo = 0xA0;  // overlong
      if (c == 0xED) hi = 0x9F;  // surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      if (c == 0xF0) lo = 0x90;  // overlong
      if (c == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
      return false;
    }
    if (i + len > n) return false;
    if (p[i + 1] < lo || p[i + 1] > hi) return false;
    for (std::size_t k = 2; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
    }
    i += len;
  }
  return true;
}

bool isSeparatorCategory(char32_t cp) {
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(cp))) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return true;
    default:
      return false;
  }
}

bool isSpaceCategory(char32_t cp) {
  return utf8proc_category(static_cast<utf8proc_int32_t>(cp)) == UTF8PROC_CATEGORY_ZS;
}

std::string_view firstGrapheme(std::string_view s) {
  if (s.empty() || !isValidUtf8(s)) return s.substr(0, s.empty() ? 0 : 1);
  std::size_t i = 0;
  utf8proc_int32_t state = 0;
  char32_t prev = next(s, i);
  while (i < s.size()) {
    std::size_t k = i;
    const char32_t cp = next(s, k);
    if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(prev), static_cast<utf8proc_int32_t>(cp),
                                         &state)) {
      break;
    }
    prev = cp;
    i = k;
  }
  return s.substr(0, i);
}

bool isDecimalDigit(char32_t cp) {
  if (cp < 0x80) return cp >= '0' && cp <= '9';
  return utf8proc_category(static_cast<utf8proc_int32_t>(cp)) == UTF8PROC_CATEGORY_ND;
}

std::string composed(std::string_view s) {
  utf8proc_uint8_t* out = nullptr;
  const auto n =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(s.data()), static_cast<utf8proc_ssize_t>(s.size()), &out,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (n < 0) return std::string(s);
  std::string result(reinterpret_cast<char*>(out), static_cast<std::size_t>(n));
  std::free(out);
  return result;
}

namespace {

std::string mapEach(std::string_view s, utf8proc_int32_t (*map)(utf8proc_int32_t)) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    utf8proc_uint8_t buf[4];
    const auto cp = map(static_cast<utf8proc_int32_t>(next(s, i)));
    out.append(reinterpret_cast<char*>(buf), static_cast<std::size_t>(utf8proc_encode_char(cp, buf)));
  }
  return out;
}

}  // namespace

std::string lowercased(std::string_view s) {
  return mapEach(s, utf8proc_tolower);
}
std::string uppercased(std::string_view s) {
  return mapEach(s, utf8proc_toupper);
}

}  // namespace lumerix::unicode
