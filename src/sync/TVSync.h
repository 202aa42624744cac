#pragma once

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/System.h"
#include "sync/SourceTexts.h"
#include "sync/Subprocess.h"
#include "sync/SyncSource.h"
#include "sync/Worker.h"

namespace lumerix {

// The precise source for windowed playback: asks the player for position,
// state and track name about three times a second and turns the samples
// into a smoothly advancing clock.
class TVSync : public SyncSource {
 public:
  // Sent to osascript on macOS, byte for byte.
  static constexpr std::string_view pollScript =
      "if application \"TV\" is running then\n"
      "    tell application \"TV\"\n"
      "        try\n"
      "            set p to player position\n"
      "            set s to (player state is playing)\n"
      "            set n to \"\"\n"
      "            try\n"
      "                set n to name of current track\n"
      "            end try\n"
      "            return (s as text) & \"|\" & (p as text) & \"|\" & n\n"
      "        on error errm number errn\n"
      "            return \"err|\" & (errn as text)\n"
      "        end try\n"
      "    end tell\n"
      "else\n"
      "    return \"off\"\n"
      "end if";
  static constexpr std::string_view consentScript =
      "with timeout of 120 seconds\n"
      "    tell application \"TV\" to get player state\n"
      "end timeout";

  struct Options {
    // Prints one answer line: "true|12.5|Title", "off" or "err|N".
    std::vector<std::string> pollCommand;
    // Sends the player one real request so the system settles consent with
    // the user; empty where there is no such thing.
    std::vector<std::string> consentCommand;
    double pollInterval = 0.35;  // pause after each poll ends
    double pollTimeout = 5.0;
    PollerTexts texts = macSourceTexts().poller;
    // Linux: pollCommand stays running and answers a request line per poll
    // (one process for the whole session, not one a poll), and its answers
    // carry the player's rate: "true|12.5|1.5|Title". The clock then runs
    // at that rate; a rate of 0 while playing (stalled, seeking) stops it.
    bool resident = false;
    bool answerCarriesRate = false;
    // Linux: players whose positions come in steps (Firefox: whole
    // seconds; VLC and Totem: their update period) are followed on the
    // step edges rather than on each rounded answer. See applySteppedPoll.
    bool stepEdges = false;
  };

  TVSync(System& system, Options options);
  ~TVSync() override = default;  // the worker stops and joins first

  void start() override;
  void cancel() override;
  void snapshotInto(SyncSnapshot& into) override;
  bool permissionIssue() override;

  // Runs one command to completion within the poll timeout; both outputs
  // decoded as UTF-8 (anything else reads as empty) and trimmed. Absent
  // when it could not be launched, timed out or was cancelled.
  std::optional<CommandOutput> runOsascript(const std::vector<std::string>& argv, std::optional<double> timeout);

  // Folds one poll's answer into the clock. t0 and t1 are the uptimes
  // before and after the run. Poll thread (tests call it directly).
  void applyPoll(std::string_view out, std::string_view err, double t0, double t1);

  // The pause after poll n where answers may come in steps: the interval
  // give or take 50 ms, so that the answers fall at every phase of a step
  // (a steady rhythm can keep sampling the same part of each second).
  static double steppedPollGap(int n, double interval);

  // Before each poll: asks the system for consent to automate the player
  // until it is granted, at most every 20 s. Poll thread.
  void maybeRequestConsent();

 private:
  void main();
  // applyPoll's answer with a position, where options.stepEdges. Lock held.
  void applySteppedPoll(double raw, bool playingNow, double rateNow, double m);
  // The step the last moves are whole multiples of, or 0 when they are not.
  double stepOfMoves() const;

  System& system;
  const Options options;

  mutable std::mutex lock;  // guards every field from here to failedPolls
  bool ok = false;
  bool playing = false;
  double rate = 1.0;  // the player's, where its answers say
  double anchorPos = 0;
  double anchorTS;
  std::string track;
  std::string statusText;
  bool permissionDenied = false;
  bool idleFlag = false;
  std::optional<double> lastRawPos;
  int stallPolls = 0;
  bool stalled = false;
  int failedPolls = 0;
  // With stepEdges: the answers of the last seconds (when, position), how
  // long each of the last values lasted (the player's step, learnt), and
  // since when the position has not moved.
  struct Bound {
    double at, position;
  };
  std::deque<Bound> bounds;
  std::deque<double> spans;
  // How far the position moved between the last answers that saw it move:
  // a player that counts in steps moves by whole steps (VLC at 1.5x: half
  // a second, then a second), a precise one by any amount.
  std::deque<double> moves;
  double spread = 0;  // the step the last answers' spread showed
  double unchangedSince = 0;

  // Poll thread only.
  bool consentGranted = false;
  double lastConsentAttempt = 0;

  Worker worker;  // last: stopped and joined before the fields above go
};

}  // namespace lumerix
