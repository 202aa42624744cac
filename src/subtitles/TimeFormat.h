#pragma once

#include <string>

namespace lumerix {

// Clock text for the status line and messages: "MM:SS" below an hour,
// "H:MM:SS" from an hour on. Seconds are truncated toward zero; negative
// values and NaN show as 00:00, values beyond a 64-bit count of seconds
// (infinity too) as the largest such count.
std::string fmtTime(double seconds);

}  // namespace lumerix
