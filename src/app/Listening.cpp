#include <algorithm>
#include <cmath>

#include "app/Controller.h"
#include "app/SettingsKeys.h"

namespace lumerix {

namespace {

using listen::ListenSession;
namespace words = listen::texts;

}  // namespace

void Controller::setSoundCapture(std::unique_ptr<SoundCapture> capture) noexcept {
  endListening({});
  listening.capture = std::move(capture);
}

bool Controller::isListening() const noexcept {
  return listening.session && listening.session->purpose() == ListenSession::Purpose::sync;
}

bool Controller::canUndoSync() const noexcept {
  return listening.undo && listening.undoPath == s.subPath;
}

void Controller::toggleListening() noexcept {
  if (isListening()) {
    endListening(words::stopped);
  } else {
    startListening();
  }
}

void Controller::startListening() noexcept {
  if (isListening()) return;
  endListening({});  // a window of keeping in sync gives way
  if (!s.subPath) {
    showHint(words::noSubtitle);
    return;
  }
  if (listen::spokenCueCount(s.cues) < listen::fewestCues) {
    showHint(words::fewCues);
    return;
  }
  if (!openCapture()) return;
  std::vector<double> rates;
  for (const ScalePreset& p : scalePresets) rates.push_back(p.factor);
  // The rate in force may be one the keys made; it is a candidate too.
  if (std::none_of(rates.begin(), rates.end(), [&](double r) { return std::fabs(r - s.scale) < 1e-9; })) {
    rates.push_back(s.scale);
  }
  beginSession(ListenSession::Purpose::sync, std::move(rates));
  showHint(words::started);
}

bool Controller::openCapture() {
  SoundCapture* capture = listening.capture.get();
  if (capture && capture->start()) return true;
  const CaptureState why = capture ? capture->state() : CaptureState::noServer;
  // The macOS build, which taps the player's process, has no sound server.
  const bool mac = conventions.menu == MenuStyle::commandShortcuts;
  showHint(why == CaptureState::unsupported ? words::needsNewerMac : mac ? words::noTap : words::noServer);
  return false;
}

void Controller::beginSession(listen::ListenSession::Purpose purpose, std::vector<double> rates) {
  listening.session = std::make_unique<ListenSession>(listen::spokenCueSpans(s.cues), std::move(rates), purpose);
  listening.sessionPath = s.subPath;
  if (purpose == ListenSession::Purpose::sync) ++listening.menuRevision;
}

void Controller::endListening(std::string_view hint) noexcept {
  if (listening.session) {
    const bool shown = listening.session->purpose() == ListenSession::Purpose::sync;
    listening.session.reset();
    if (shown) ++listening.menuRevision;
    // What was heard is gone with the session; the capture stops at once.
    if (listening.capture) listening.capture->stop();
  }
  if (!hint.empty()) showHint(hint);
}

void Controller::undoListening() noexcept {
  if (!canUndoSync()) {
    showHint(words::nothingToUndo);
    return;
  }
  const listen::Timing before = *listening.undo;
  listening.undo.reset();
  ++listening.menuRevision;
  setTiming(before);
  showHint(words::undone(before));
}

void Controller::setListenAlways(bool on) noexcept {
  listening.always = on;
  services.defaults.set(keys::listenAlways, on);
  if (!on && listening.session && !isListening()) endListening({});
}

void Controller::setTiming(listen::Timing timing) {
  s.scale = std::clamp(timing.rate, 0.9, 1.1);  // the keys' limits
  s.offset = timing.offset;
  for (std::size_t i = 0; i < std::size(scalePresets); ++i) {
    if (std::fabs(scalePresets[i].factor - s.scale) < 1e-9) s.scaleIdx = static_cast<int>(i);
  }
  saveCalibration();
  s.curText.reset();
}

void Controller::applyListened(listen::Timing timing) {
  const std::optional<std::string> path = s.subPath;
  listening.undo = listen::Timing{s.scale, s.offset};
  listening.undoPath = path;
  ++listening.menuRevision;
  setTiming(timing);
}

void Controller::tickListening() noexcept {
  if (listening.undo && listening.undoPath != s.subPath) {
    listening.undo.reset();  // another subtitle: nothing of it to undo
    ++listening.menuRevision;
  }
  const bool playing = snap.position && snap.playing && !snap.holding;
  if (!listening.session) {
    keepListening(playing);
    return;
  }
  ListenSession& session = *listening.session;
  const bool sync = session.purpose() == ListenSession::Purpose::sync;
  if (listening.sessionPath != s.subPath) {
    endListening(sync ? words::stopped : std::string_view());  // it listened for other lines
    return;
  }
  listening.frames.clear();
  if (listening.capture) listening.capture->takeFrames(listening.frames);
  const CaptureState capture = listening.capture ? listening.capture->state() : CaptureState::lost;
  const auto phase = session.step(now(), {snap.position, playing, snap.idle}, listening.frames, capture);
  using Phase = ListenSession::Phase;
  if (phase == Phase::listening || phase == Phase::paused) return;
  const std::optional<listen::Timing> found = session.timing();
  if (sync) {
    if (phase == Phase::synced && found) {
      endListening({});
      applyListened(*found);
      showHint(words::synced(*found));
      return;
    }
    endListening(phase == Phase::unsure  ? words::unsure
                 : phase == Phase::quiet ? words::quiet
                 : phase == Phase::lost  ? words::lost
                                         : words::ended);
    return;
  }
  // A window of keeping in sync: only a move is worth a word.
  endListening({});
  if (phase == Phase::lost && !listening.keepFailed) {
    listening.keepFailed = true;
    showHint(words::lost);
  }
  if (!snap.position) return;
  const double was = s.offset;
  if (auto move = listening.keep.windowEnded(found, {s.scale, s.offset}, *snap.position)) {
    applyListened(*move);
    showHint(words::kept(*move, was));
  }
}

void Controller::keepListening(bool playing) {
  const double at = now();
  // Ticks come up to longestTickGap apart; a longer gap is the program held
  // up (a dialog, a machine asleep), not play.
  const double longest = longestTickGap + tickInterval;
  const double played = playing && listening.lastKeepTick ? std::clamp(at - *listening.lastKeepTick, 0.0, longest) : 0;
  listening.lastKeepTick = at;
  if (!listening.always || !playing || !s.subPath || !listening.capture) return;
  if (listen::spokenCueCount(s.cues) < listen::fewestCues) return;
  if (!listening.keep.due(played)) return;
  if (!listening.capture->start()) {
    if (!listening.keepFailed) openCapture();  // says why, once
    listening.keepFailed = true;
    return;
  }
  beginSession(ListenSession::Purpose::keep, {s.scale});
}

bool Controller::showListeningProgress() {
  if (!isListening()) return false;
  const ListenSession& session = *listening.session;
  setStatus(words::progress(session.playedSeconds(), session.lines(),
                            session.phase() == ListenSession::Phase::paused));
  return true;
}

}  // namespace lumerix
