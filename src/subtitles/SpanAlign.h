#pragma once

#include <optional>
#include <vector>

#include "subtitles/Cue.h"

namespace lumerix {

// How one subtitle's times map onto another's: other = rate × own + shift.
struct SpanFit {
  double rate = 1;
  double shift = 0;
  double overlap = 0;  // of the mapped spans with the reference's, 0 to 1
  int matched = 0;     // cues that found a partner
};

// Lines up the cue spans of `own` with those of `reference` (two
// translations of one video, timed for different releases): the usual
// frame-rate ratios are tried, each with the shift most cue starts agree
// on, and the best is refined by a fit over the cues that then overlap.
// Absent when no candidate is convincing: most of the shorter subtitle's
// time must overlap and enough cues must pair up, since a wrong answer
// would be worse than none.
std::optional<SpanFit> alignSpans(const std::vector<Cue>& own, const std::vector<Cue>& reference);

}  // namespace lumerix
