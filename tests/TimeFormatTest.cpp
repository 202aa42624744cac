#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "subtitles/TimeFormat.h"

namespace lumerix {
namespace {

TEST(TimeFormat, ClockTextAcrossTheHourBoundary) {
  const std::pair<double, const char*> cases[] = {
      {0, "00:00"},
      {59.99, "00:59"},
      {65.2, "01:05"},
      {3599, "59:59"},
      {3599.999, "59:59"},
      {3600, "1:00:00"},
      {3723.9, "1:02:03"},
      {36000, "10:00:00"},
      {-0.5, "00:00"},
      {-4, "00:00"},
      {-3600, "00:00"},
      {360000 + 59, "100:00:59"},
      {9.2e18, "2555555555555555:33:20"},
  };
  for (const auto& [seconds, text] : cases) EXPECT_EQ(fmtTime(seconds), text) << seconds;
}

TEST(TimeFormat, ValuesNoClockCanShowAreClamped) {
  const char* largest = "2562047788015215:30:07";
  EXPECT_EQ(fmtTime(std::numeric_limits<double>::quiet_NaN()), "00:00");
  EXPECT_EQ(fmtTime(-std::numeric_limits<double>::infinity()), "00:00");
  EXPECT_EQ(fmtTime(std::numeric_limits<double>::infinity()), largest);
  EXPECT_EQ(fmtTime(1e19), largest);
  EXPECT_EQ(fmtTime(1e300), largest);
}

}  // namespace
}  // namespace lumerix
