#include "sync/TVSync.h"

#include <algorithm>
#include <cmath>

#include "util/Numbers.h"
#include "util/TextDecoding.h"
#include "util/Thread.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

// osascript writes in the encoding its environment names: UTF-8 from a
// terminal, Mac OS Roman for an app opened from the Finder, which has no
// LANG. Any byte string is Mac OS Roman, so what is not UTF-8 is read as it.
std::string decodedAndTrimmed(const std::string& bytes) {
  std::optional<std::string> text = bytes;
  if (!unicode::isValidUtf8(bytes)) text = convertToUtf8(bytes, "MACINTOSH");
  if (!text) return {};
  return std::string(unicode::trim(*text, unicode::isWhitespaceOrLineEnd));
}

std::string_view trimSpaces(std::string_view s) {
  return unicode::trim(s, unicode::isWhitespace);
}

// A decimal number in the C locale (whatever locale the process runs in),
// the whole text and nothing else. A comma counts as the decimal point:
// the player prints numbers the way the user's locale does. Infinities,
// NaN and absurdly large positions are refused: no clock can show them.
std::optional<double> parsePosition(std::string_view field) {
  std::string text(trimSpaces(field));
  for (char& c : text) {
    if (c == ',') c = '.';
  }
  std::string_view digits = text;
  if (digits.starts_with('+') && digits.size() > 1 && digits[1] != '-' && digits[1] != '+') digits.remove_prefix(1);
  const auto value = parseDecimal(digits);
  if (!value || std::fabs(*value) > maxPlausiblePosition) return std::nullopt;
  return value;
}

}  // namespace

TVSync::TVSync(System& system, Options options)
    : system(system),
      options(std::move(options)),
      anchorTS(system.uptime()),
      statusText(this->options.texts.connecting) {}

void TVSync::start() {
  worker.start([this] { main(); });
}

void TVSync::cancel() {
  worker.stop();
}

void TVSync::snapshotInto(SyncSnapshot& s) {
  const double now = system.uptime();
  std::lock_guard<std::mutex> guard(lock);
  s.playing = playing;
  s.track = track;
  if (ok) {
    s.position = anchorPos + (playing && !stalled ? (now - anchorTS) * rate : 0.0);
    s.status.clear();
    s.idle = false;
    s.holding = stalled;
    s.rate = playing ? rate : 1.0;
  } else {
    s.position.reset();
    s.status = statusText;
    s.idle = idleFlag;
    s.holding = false;
    s.rate = 1.0;
  }
}

bool TVSync::permissionIssue() {
  std::lock_guard<std::mutex> guard(lock);
  return permissionDenied;
}

std::optional<CommandOutput> TVSync::runOsascript(const std::vector<std::string>& argv, std::optional<double> timeout) {
  auto output = worker.processes().run(argv, timeout);
  if (!output) return std::nullopt;
  return CommandOutput{decodedAndTrimmed(output->out), decodedAndTrimmed(output->err)};
}

double TVSync::steppedPollGap(int n, double interval) {
  // The golden ratio's fractions never repeat: answers land at every phase
  // of a player's steps instead of at the same few.
  const double spread = std::fmod(n * 0.6180339887498949, 1.0);
  return interval + (spread - 0.5) * 0.1;
}

void TVSync::main() {
  nameCurrentThread("TVSync", true);
  int polls = 0;
  while (!worker.stopped()) {
    maybeRequestConsent();
    const double t0 = system.uptime();
    std::optional<CommandOutput> answer;
    if (options.resident) {
      if (auto line = worker.processes().ask(options.pollCommand, "poll", options.pollTimeout)) {
        answer = CommandOutput{decodedAndTrimmed(*line), {}};
      }
    } else {
      answer = runOsascript(options.pollCommand, options.pollTimeout);
    }
    const double t1 = system.uptime();
    if (worker.stopped()) break;
    updating([&] { applyPoll(answer ? answer->out : "", answer ? answer->err : "", t0, t1); });
    const double gap = options.stepEdges ? steppedPollGap(++polls, options.pollInterval) : options.pollInterval;
    if (!worker.pause(gap)) break;
  }
  worker.processes().closeResident();
}

void TVSync::applyPoll(std::string_view out, std::string_view err, double t0, double t1) {
  // What is not UTF-8 reads as no answer at all, as runOsascript decodes it.
  if (!unicode::isValidUtf8(out)) out = {};
  if (!unicode::isValidUtf8(err)) err = {};
  // The answer is "state|position|name", or "state|position|rate|name"
  // where answers carry the rate; the name may itself hold "|".
  std::optional<double> raw;
  bool playingNow = false;
  double rateNow = 1.0;
  std::string_view name;
  if (!out.empty() && !out.starts_with("err") && out != "off") {
    const std::size_t bar1 = out.find('|');
    const std::size_t bar2 = bar1 == std::string_view::npos ? bar1 : out.find('|', bar1 + 1);
    const std::size_t bar3 =
        !options.answerCarriesRate || bar2 == std::string_view::npos ? bar2 : out.find('|', bar2 + 1);
    if (bar3 != std::string_view::npos) {
      raw = parsePosition(out.substr(bar1 + 1, bar2 - bar1 - 1));
      playingNow = trimSpaces(out.substr(0, bar1)) == "true";
      name = trimSpaces(out.substr(bar3 + 1));
      if (options.answerCarriesRate) {
        const auto r = parsePosition(out.substr(bar2 + 1, bar3 - bar2 - 1));
        if (!r || *r < 0 || *r > maxPlausibleRate) raw.reset();
        rateNow = r.value_or(1.0);
      }
    }
  }

  std::lock_guard<std::mutex> guard(lock);
  if (raw) {
    permissionDenied = false;
    consentGranted = true;
    idleFlag = false;
    // The player answered somewhere inside the run; its middle is the best guess.
    const double m = (t0 + t1) * 0.5;
    const double previous = lastRawPos.value_or(INFINITY);
    stallPolls = std::fabs(*raw - previous) < 0.001 ? stallPolls + 1 : 0;
    if (options.stepEdges) {
      applySteppedPoll(*raw, playingNow, rateNow, m);
    } else {
      lastRawPos = raw;
      if (playingNow && ok && stallPolls >= 2) {
        stalled = true;
        anchorPos = *raw;
        anchorTS = m;
        playing = true;
      } else {
        stalled = false;
        const double predicted = anchorPos + (playing ? (m - anchorTS) * rate : 0.0);
        // Small disagreements are jitter: move part of the way. Anything
        // else (first sample, play/pause, a new speed, a seek) is taken as it is.
        const bool smooth = playingNow == playing && rateNow == rate && ok && std::fabs(*raw - predicted) <= 0.4;
        anchorPos = smooth ? predicted + (*raw - predicted) * 0.3 : *raw;
        anchorTS = m;
        playing = playingNow;
        rate = rateNow;
      }
    }
    track = std::string(name);
    failedPolls = 0;
    ok = true;
    statusText.clear();
    return;
  }

  if (err.find("-1743") != std::string_view::npos || out.find("-1743") != std::string_view::npos) {
    // The system refused the request: say so at once, no grace.
    ok = false;
    permissionDenied = true;
    consentGranted = false;
    idleFlag = false;
    statusText = options.texts.permission;
    failedPolls = 0;
    return;
  }
  // One or two failures in a row keep the clock running from the last anchor.
  if (++failedPolls < 3) return;
  ok = false;
  // A player that says it plays but gives no position (a stream loading, a
  // player between files) is not idle: the stream may know better.
  const bool saysPlaying = options.answerCarriesRate && out.starts_with("true|");
  idleFlag =
      out == "off" || out.starts_with("err") || (out.find("missing value") != std::string_view::npos && !saysPlaying);
  statusText = permissionDenied ? options.texts.permission : idleFlag ? options.texts.idle : options.texts.unreadable;
}

// A player's position at an answer is never ahead of where it really was:
// one that counts in steps reports the last step it passed, up to a step
// behind. So the clock is placed from the answers of the last few seconds
// together, on the step edges, rather than up to a step behind each
// rounded answer. A precise player is followed as closely as before.
void TVSync::applySteppedPoll(double raw, bool playingNow, double rateNow, double m) {
  constexpr double window = 4.0;           // s of answers kept: a dozen
  constexpr std::size_t stepSamples = 20;  // steps the player's step is learnt from
  const bool changed = !lastRawPos || std::fabs(raw - *lastRawPos) >= 0.001;
  const bool moving = playingNow && rateNow > 0;
  // The same speed, give or take its rounding: VLC set to 1.5 says 1.5015 at times.
  const bool sameRate = std::fabs(rateNow - rate) <= 0.005 * rate;
  if (changed && lastRawPos && ok && playing && !stalled && moving && sameRate) {
    // How long the last value was seen, in the player's time: a precise
    // player's hardly at all, a whole-second player's up to a second.
    spans.push_back((anchorTS - unchangedSince) * rate);
    if (spans.size() > stepSamples) spans.pop_front();
  }
  if (changed) unchangedSince = m;
  const double moved = lastRawPos ? raw - *lastRawPos : 0.0;
  lastRawPos = raw;
  // The player's step, for what counts as a seek or a stall: the longest a
  // value lasted and the gap before the answer that saw it change, or the
  // spread of the last answers where every answer is new (VLC at 1.5x moves
  // half a second between answers a third of a second apart). Until a few
  // steps tell, the coarsest that players use: a second.
  double step = 1.0;
  if (spans.size() >= 6) {
    const double longest = *std::max_element(spans.begin(), spans.end());
    step = std::max(longest > 0 ? longest + (m - anchorTS) * rateNow : 0.0, spread);
  }

  const double predicted = anchorPos + (playing && !stalled ? (m - anchorTS) * rate : 0.0);
  const double shortfall = predicted - raw;
  // Still on the same step after longer than a step takes at this speed:
  // the player is stalled (buffering) while it says it plays.
  if (moving && ok && (m - unchangedSince) * rateNow > step + 0.5) {
    stalled = true;
    bounds.clear();
    anchorPos = raw;
    anchorTS = m;
    playing = true;
    rate = rateNow;
    return;
  }
  // A seek, a new speed, a pause or a first answer: what was learnt of the
  // player's clock no longer holds.
  const bool continues =
      ok && moving && playing && !stalled && sameRate && shortfall <= step + 0.35 && shortfall >= -1.5;
  if (!continues) {
    bounds.clear();
    moves.clear();
  } else if (changed) {
    moves.push_back(moved);
    if (moves.size() > 8) moves.pop_front();
  }
  const double previousTS = anchorTS;
  stalled = false;
  playing = playingNow;
  rate = rateNow;
  anchorTS = m;
  if (!moving) {
    anchorPos = raw;
    return;
  }
  // Each answer, carried forward at the player's speed to now, puts the
  // clock at or above it. Answers at random phases of a step spread over the
  // step below the true position: the highest is the closest bound, the
  // spread tells the step (a precise player's answers hardly spread at
  // all), and the position lies most likely in the middle of what is left.
  bounds.push_back({m, raw});
  while (bounds.front().at < m - window) bounds.pop_front();
  double low = INFINITY, high = -INFINITY;
  for (const Bound& b : bounds) {
    const double now = b.position + (m - b.at) * rateNow;
    low = std::min(low, now);
    high = std::max(high, now);
  }
  const double n = static_cast<double>(bounds.size());
  double stepSeen = n >= 4 ? (high - low) * (n + 1) / (n - 1) : 0.0;
  // Answers that come at nearly the player's own period all land at one
  // phase of its step, and their spread shows a step far smaller than it
  // is: the clock would then run up to half a step behind for seconds on
  // end. Moves in whole multiples of one size tell the step itself; a
  // spread wider still (VLC at 1x skips an update now and then) holds.
  stepSeen = std::max(stepSeen, stepOfMoves());
  if (n >= 4) spread = stepSeen;
  // Steps of a video frame or less (mpv's position moves frame by frame)
  // are the player's own clock as users see it: followed through their middle.
  double position = stepSeen < 0.06 ? (low + high) / 2 : high + (low + stepSeen - high) / 2;
  // When the best bound leaves the window the next may be lower: come down
  // to it by at most a tenth of the time passing, less than a tick of the
  // display moves on, so the shown clock never runs back.
  if (continues && position < predicted) position = std::max(position, predicted - 0.1 * rateNow * (m - previousTS));
  anchorPos = position;
}

double TVSync::stepOfMoves() const {
  if (moves.size() < 6) return 0;
  const double q = *std::min_element(moves.begin(), moves.end());
  if (!(q >= 0.06)) return 0;
  for (double move : moves) {
    if (std::fabs(move - std::round(move / q) * q) > std::min(0.01, 0.05 * q)) return 0;
  }
  return q;
}

void TVSync::maybeRequestConsent() {
  if (consentGranted) return;
  const double now = system.uptime();
  if (!(now - lastConsentAttempt > 20.0)) return;
  // Not running yet: ask on the first poll after it starts.
  if (!system.targetRunning()) return;
  lastConsentAttempt = now;
  const std::optional<int> result = system.requestAutomationPermission();
  if (!result) return;
  {
    std::lock_guard<std::mutex> guard(lock);
    permissionDenied = *result == -1743;
    if (*result == 0) {
      consentGranted = true;
      return;
    }
  }
  // Undecided: a real request makes the system put the question to the
  // user. Its answer does not matter, and no polls run while it waits.
  if (*result != -1743 && *result != -600 && !options.consentCommand.empty()) {
    worker.processes().run(options.consentCommand, std::nullopt);
  }
}

}  // namespace lumerix
