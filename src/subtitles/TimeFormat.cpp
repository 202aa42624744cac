#include "subtitles/TimeFormat.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace lumerix {

std::string fmtTime(double seconds) {
  // 2^63 as a double; anything at or beyond it does not fit an int64.
  constexpr double limit = 9223372036854775808.0;
  if (!std::isfinite(seconds) || seconds >= limit || seconds < -limit) {
    std::fprintf(stderr, "lumerix: fmtTime called with %g seconds\n", seconds);
    std::abort();
  }
  std::int64_t s = static_cast<std::int64_t>(seconds);  // truncates toward zero
  if (s < 0) s = 0;
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
