#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "listen/Aligner.h"
#include "listen/Hearing.h"
#include "platform/SoundCapture.h"

namespace lumerix::listen {

// What the player said at one tick, as far as listening cares.
struct PlayerMoment {
  std::optional<double> position;  // extrapolated to now
  bool playing = false;            // and not holding a position
  bool gone = false;               // the followed player stopped or quit
};

// One listening, from the key (or the next window of keeping in sync) to
// a sure timing or a reason to stop. It decides; the controller applies.
class ListenSession {
 public:
  enum class Purpose {
    sync,  // the user asked: rate and offset, up to the give-up time
    keep,  // a short window at the rate in force, to notice a new offset
  };
  struct Options {
    double giveUp = 90;      // seconds of playing without a sure answer
    // ... unless the offset is sure and only rates a thousandth apart are
    // still in the running: telling those apart takes longer.
    double giveUpOnRate = 180;
    double window = 45;      // a keeping window's longest; it ends once sure
    double quietLimit = 20;  // seconds of playing with nothing heard at all
    double hold = 5;         // a sure answer must stay the same this long
    double every = 1;        // seconds of playing between two alignments
    AlignerOptions aligner;
  };
  enum class Phase {
    listening,
    paused,  // the player paused or has no position
    synced,  // timing() holds the answer
    unsure,  // played long enough without a sure answer
    quiet,   // nothing to hear: muted, or a capture that hears only silence
    lost,    // the capture stopped delivering
    ended,   // the player went away
  };

  ListenSession(std::vector<Span> cues, std::vector<double> rates, Purpose purpose, Options options);
  ListenSession(std::vector<Span> cues, std::vector<double> rates, Purpose purpose)
      : ListenSession(std::move(cues), std::move(rates), purpose, defaults(purpose)) {}
  // A keeping window tries one rate only, where chance has fewer places to
  // hide, and a move needs two windows that agree: fewer lines make a sure
  // answer there.
  static Options defaults(Purpose purpose) {
    Options o;
    if (purpose == Purpose::keep) {
      o.aligner.minOnsets = 6;
      o.aligner.minMargin = 2;
      o.hold = 0;  // the next window is the second opinion
    }
    return o;
  }

  // One tick. frames: heard since the last; capture: the capture's state
  // now. Once the phase is neither listening nor paused it stays.
  Phase step(double now, const PlayerMoment& player, std::span<const HeardFrame> frames, CaptureState capture);

  Phase phase() const { return current; }
  Purpose purpose() const { return why; }
  const std::optional<Timing>& timing() const { return answer; }
  double playedSeconds() const { return played; }
  int lines() const { return hearing.lines(); }
  // The latest alignment, sure or not (for the log).
  const Alignment& latest() const { return last; }

 private:
  void evaluate();
  bool finished() const { return current != Phase::listening && current != Phase::paused; }

  const std::vector<Span> cues;
  const std::vector<double> rates;
  const Purpose why;
  const Options options;
  Hearing hearing;
  Phase current = Phase::listening;
  std::optional<double> lastNow;
  double played = 0;
  double evaluatedAt = 0;
  double quietSince = 0;  // played seconds when something was last heard
  double loudSoFar = 0;
  Alignment last;
  std::optional<Timing> streak;  // the sure answer the last alignments agreed on
  double streakSince = 0;
  std::optional<Timing> answer;
};

// Keeping in sync: a short window of listening every so often while the
// player plays, and a new offset only when two windows in a row found the
// same one, well away from the timing in force.
class KeepInSync {
 public:
  static constexpr double every = 120;   // seconds of playing from one window's start to the next
  static constexpr double firstAfter = 15;
  static constexpr double moveAtLeast = 0.3;
  static constexpr double agreeWithin = 0.1;

  // Seconds of playing since the last call; true when a window should
  // open now.
  bool due(double playedSeconds);
  // A window ended, with a sure timing or none; current: the timing in
  // force. The timing to apply, when two windows agree on a move at
  // `position`.
  std::optional<Timing> windowEnded(const std::optional<Timing>& found, Timing current, double position);

 private:
  double sinceWindow = every - firstAfter;
  std::optional<Timing> previous;
};

// The words of listening, in the C locale.
namespace texts {
inline constexpr std::string_view started = "Listening… play a stretch with dialogue";
inline constexpr std::string_view stopped = "Stopped listening — nothing changed";
inline constexpr std::string_view unsure = "Could not hear enough speech to sync — nothing changed";
inline constexpr std::string_view quiet = "Stopped listening: no sound to listen to — nothing changed";
inline constexpr std::string_view lost = "Stopped listening: the sound went away — nothing changed";
inline constexpr std::string_view ended = "Stopped listening: the player stopped — nothing changed";
inline constexpr std::string_view noSubtitle = "Open a subtitle first, then press l to sync by listening";
inline constexpr std::string_view fewCues = "Too few spoken lines in this subtitle to sync by listening";
inline constexpr std::string_view noServer = "Cannot listen: no sound server";
inline constexpr std::string_view noTap = "Cannot listen: the sound that plays cannot be captured";
inline constexpr std::string_view needsNewerMac = "Sync by listening needs macOS 14.2 or later";
inline constexpr std::string_view nothingToUndo = "Nothing to undo";
// "Listening… 14 s, 6 lines heard"; "(paused)" while the player is.
std::string progress(double seconds, int lines, bool paused);
// "Synced by listening: offset +2.35 s, rate 1.0427"
std::string synced(Timing timing);
// "Kept in sync by listening: offset +2.35 s (was +0.40 s)"
std::string kept(Timing timing, double was);
// "Sync undone: offset +0.00 s, rate 1.0000"
std::string undone(Timing timing);
}  // namespace texts

// Below this many spoken lines a subtitle cannot be told apart from chance.
inline constexpr std::size_t fewestCues = 5;

}  // namespace lumerix::listen
