// Any bytes a user can hand us must give cues that the rest of the program
// can trust, never a crash.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "FuzzCheck.h"
#include "app/CommandLine.h"
#include "subtitles/SRTParser.h"
#include "subtitles/TimeFormat.h"
#include "util/Unicode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto cues = lumerix::SRTParser::parseBytes(std::string(reinterpret_cast<const char*>(data), size));
  // Latin-1 accepts every byte, so decoding never fails with the system's converters.
  check(cues.ok(), "bytes were not decoded");
  const auto& list = cues.value();
  // Two digits of hours, minutes and seconds, three of fraction, at most;
  // a SubStation script (which needs a '[') may have hours without end.
  constexpr double latest = 99 * 3600 + 99 * 60 + 99 + 0.999;
  const bool maybeScript = std::memchr(data, '[', size) != nullptr;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const auto& cue = list[i];
    check(!cue.text.empty(), "empty text");
    check(lumerix::unicode::isValidUtf8(cue.text), "text is not UTF-8");
    check(std::isfinite(cue.start) && std::isfinite(cue.end) && cue.start >= 0 && cue.end >= 0, "time out of range");
    check(maybeScript || (cue.start <= latest && cue.end <= latest), "time out of range");
    check(i == 0 || list[i - 1].start <= cue.start, "not sorted");
    (void)lumerix::fmtTime(cue.start);
  }
  std::ostringstream json;
  lumerix::writeCuesJson(list, json);
  const auto back = nlohmann::json::parse(json.str(), nullptr, false);
  check(back.is_array() && back.size() == list.size(), "the cues do not read back as JSON");
  return 0;
}
