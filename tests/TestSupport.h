#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "subtitles/SRTParser.h"

namespace lumerix::test {

inline std::string fixture(const std::string& name) {
  return std::string(LUMERIX_FIXTURES) + "/" + name;
}

// Cues of in-memory text; the text is valid UTF-8 in every caller, so a
// decoding failure is a test fault.
inline std::vector<Cue> cuesOf(std::string text) {
  auto cues = SRTParser::parseBytes(std::move(text));
  EXPECT_TRUE(cues.ok());
  return cues ? cues.value() : std::vector<Cue>{};
}

inline std::vector<Cue> cuesOfFile(const std::string& name) {
  auto cues = SRTParser::parse(fixture(name));
  EXPECT_TRUE(cues.ok()) << name << ": " << (cues ? "" : describe(cues.error()));
  return cues ? cues.value() : std::vector<Cue>{};
}

}  // namespace lumerix::test

namespace lumerix {
inline void PrintTo(const Cue& c, std::ostream* os) {
  *os << "{" << c.start << ", " << c.end << ", \"" << c.text << "\"}";
}
}  // namespace lumerix
