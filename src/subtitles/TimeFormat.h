#pragma once

#include <string>

namespace lumerix {

// Clock text for the status line and messages: "MM:SS" below an hour,
// "H:MM:SS" from an hour on. Seconds are truncated toward zero; negative
// values show as 00:00. A non-finite value, or one beyond a 64-bit count of
// seconds, is a programming error and stops the process: callers pass
// positions that went through validation.
std::string fmtTime(double seconds);

}  // namespace lumerix
