#include "subtitles/TimeFormat.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>

namespace lumerix {

std::string fmtTime(double seconds) {
  // 2^63 as a double; anything at or beyond it does not fit an int64 and
  // shows as the largest clock there is. NaN and negatives show as zero.
  constexpr double limit = 9223372036854775808.0;
  std::int64_t s = 0;
  if (seconds >= limit) {
    s = std::numeric_limits<std::int64_t>::max();
  } else if (seconds > 0) {
    s = static_cast<std::int64_t>(seconds);  // truncates toward zero
  }
  char buf[48];
  if (s >= 3600) {
    std::snprintf(buf, sizeof buf, "%" PRId64 ":%02d:%02d", s / 3600, static_cast<int>((s % 3600) / 60),
                  static_cast<int>(s % 60));
  } else {
    std::snprintf(buf, sizeof buf, "%02d:%02d", static_cast<int>(s / 60), static_cast<int>(s % 60));
  }
  return buf;
}

}  // namespace lumerix
