#include "sync/TVSync.h"

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
  } else {
    s.position.reset();
    s.status = statusText;
    s.idle = idleFlag;
    s.holding = false;
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

void TVSync::main() {
  nameCurrentThread("TVSync", true);
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
    applyPoll(answer ? answer->out : "", answer ? answer->err : "", t0, t1);
    if (!worker.pause(options.pollInterval)) break;
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
    const double previous = lastRawPos.value_or(INFINITY);
    lastRawPos = raw;
    stallPolls = std::fabs(*raw - previous) < 0.001 ? stallPolls + 1 : 0;
    // The player answered somewhere inside the run; its middle is the best guess.
    const double m = (t0 + t1) * 0.5;
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
