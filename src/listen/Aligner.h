#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "subtitles/Cue.h"

namespace lumerix::listen {

// A stretch of time, in seconds: of speech on the player's clock, or of a
// cue on subtitle time.
struct Span {
  double start = 0;
  double end = 0;
  bool operator==(const Span&) const = default;
};

// The cues as spans to align against: sorted, overlaps joined, and without
// the lines nobody speaks ("♪♪", "[door slams]"): those would pull speech
// towards music and noises.
std::vector<Span> spokenCueSpans(const std::vector<Cue>& cues);
// How many cues are spoken lines, by the same rule.
std::size_t spokenCueCount(const std::vector<Cue>& cues);

// What was heard: speech, and the stretches of playing that were listened
// to at all (speech or not), both on the player's clock. The second tells
// a quiet stretch from one never heard.
struct Heard {
  std::vector<Span> speech;
  std::vector<Span> listened;
  double speechSeconds() const;
};

// The timing that puts what was heard under the cues: subtitle time t =
// position × rate + offset.
struct Timing {
  double rate = 1;
  double offset = 0;
};

// The doubt when the offset is clear but rates a thousandth apart are not.
inline constexpr std::string_view kRatesTooClose = "rates too close to tell apart yet";

struct Alignment {
  std::optional<Timing> timing;  // only when sure
  // Why not, in a few words (for the log and the tests); empty when sure.
  std::string_view doubt;
  // The best guess, sure or not, and how far ahead of the runner-up it
  // was, in standard deviations of the scores of every offset tried.
  Timing best;
  double margin = 0;
  int onsets = 0;  // speech onsets that met a cue's start
  // The rate the onsets say, and its standard error.
  double rateEstimate = 0, rateError = 0;
  // How far single onsets stray from the fitted line, in seconds.
  double onsetSpread = 0;
};

struct AlignerOptions {
  double step = 0.02;         // the offset sweep's resolution; the onsets then place it exactly
  double minSpeech = 8;       // seconds of speech before anything is said
  int minOnsets = 8;          // speech onsets matched to cue starts
  double minMargin = 2;       // best over the runner-up, in spreads of all scores
  double minLead = 2;         // ... and in seconds of speech
  double apart = 1;           // a runner-up is at least this far from the best
  double onsetReach = 0.6;    // how far an onset may lie from its cue's start
  double rateEvidence = 16;   // how much better the chosen rate must explain the onsets
};

// Finds, among rates, the timing under which most of the speech falls
// inside cues and least of the cued time listened to was quiet, over every
// offset that keeps the speech within the subtitle. Sure only when that
// timing is clearly ahead of every other (any rate, offsets a second or
// more away), enough onsets agree with cue starts, and the onsets tell the
// rate apart from its neighbours.
Alignment align(const Heard& heard, const std::vector<Span>& cues, std::span<const double> rates,
                const AlignerOptions& options = {});

}  // namespace lumerix::listen
