#pragma once

#include <string>

namespace lumerix {

// One timed subtitle. Times are seconds from the beginning of the media.
// Nothing ties end to start: a file may say end < start, and cues may
// overlap; they are kept as written.
struct Cue {
  double start = 0;
  double end = 0;
  std::string text;  // lines joined by a single "\n"; never empty

  bool operator==(const Cue&) const = default;
};

}  // namespace lumerix
