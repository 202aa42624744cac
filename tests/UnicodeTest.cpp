#include <gtest/gtest.h>

#include <random>

#include "util/TextDecoding.h"
#include "util/Unicode.h"

namespace lumerix {
namespace {

// The system converter still takes the retired forms above U+10FFFF
// (lead bytes F5 and up, or F4 followed by 90 and up); strict UTF-8 does not.
bool strictUtf8Oracle(const std::string& s) {
  if (!convertToUtf8(s, "UTF-8")) return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c >= 0xF5) return false;
    if (c == 0xF4 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) >= 0x90) return false;
  }
  return true;
}

// The validator decides whether a file is UTF-8 at all; it must agree with
// the system's converter on every byte string, less the forms above.
TEST(Utf8Validation, AgreesWithTheSystemConverter) {
  const std::pair<std::string, bool> cases[] = {
      {"", true},
      {"plain ascii", true},
      {"\xC3\xA9", true},
      {"\xF0\x9F\x8E\xAC", true},
      {"\xEF\xBF\xBE", true},       // a noncharacter is still valid
      {"\xC0\xAF", false},          // overlong
      {"\xE0\x80\xAF", false},      // overlong
      {"\xF0\x80\x80\xAF", false},  // overlong
      {"\xED\xA0\x80", false},      // surrogate
      {"\xF4\x90\x80\x80", false},  // above U+10FFFF
      {"\xF5\x80\x80\x80", false},
      {"\xC3", false},              // cut off
      {"abcdefgh\xE2\x82", false},  // cut off after the ASCII fast path
      {"\x80", false},
      {"\xFF", false},
  };
  for (const auto& [bytes, valid] : cases) {
    EXPECT_EQ(unicode::isValidUtf8(bytes), valid) << testing::PrintToString(bytes);
    EXPECT_EQ(strictUtf8Oracle(bytes), valid) << testing::PrintToString(bytes);
  }
  std::mt19937 rng(7);
  const unsigned char interesting[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                       0xC1, 0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
  for (int n = 0; n < 50000; ++n) {
    std::string s(rng() % 12, '\0');
    for (char& c : s) c = static_cast<char>(interesting[rng() % sizeof interesting]);
    ASSERT_EQ(unicode::isValidUtf8(s), strictUtf8Oracle(s)) << testing::PrintToString(s);
  }
}

}  // namespace
}  // namespace lumerix
