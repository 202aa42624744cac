#include "app/Controller.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "app/EpisodeMatch.h"
#include "app/Hints.h"
#include "app/SettingsKeys.h"
#include "app/TickPlan.h"
#include "overlay/TextLayers.h"
#include "platform/KeyCodes.h"
#include "subtitles/TimeFormat.h"
#include "ui/Texts.h"
#include "util/Files.h"
#include "util/Numbers.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

const std::string kBrand{texts::brandName};
const std::string kEmpty;

double clamp(double v, double lo, double hi) {
  return std::min(std::max(v, lo), hi);
}

}  // namespace

Controller::Controller(ControllerServices services, std::unique_ptr<SyncSource> source,
                       std::optional<std::string> subtitlePath, Conventions conventions,
                       std::optional<std::string> secondPath)
    : services(services), conventions(std::move(conventions)), sync(std::move(source)) {
  s.autoPick = !subtitlePath.has_value();
  SettingsStore& defaults = services.defaults;
  defaults.registerDefaults(
      {{keys::fontSize, 28.0}, {keys::panelAlpha, 0.92}, {keys::bgMode, 0LL}, {keys::strokeWidth, 7.0}});
  registerGlobalKeyDefaults(defaults, keyNamesFor(this->conventions.menu));
  // Limits apply when a value is changed, never when it is read.
  s.fontSize = defaults.doubleFor(keys::fontSize);
  s.alpha = defaults.doubleFor(keys::panelAlpha);
  s.bgMode = defaults.integerFor(keys::bgMode);
  s.strokeWidth = defaults.doubleFor(keys::strokeWidth);
  s.debugLog = defaults.boolFor(keys::debugLog);
  readSecondLook();
  listening.always = defaults.boolFor(keys::listenAlways);
  sync->start();
  buildPanel();
  if (subtitlePath) loadSubtitle(*subtitlePath);
  startSecond(secondPath);
  showHint(this->conventions.texts.startHint);
}

// ---- the tick ----------------------------------------------------------------

void Controller::tickOnce() noexcept {
  sync->snapshotInto(snap);
  const bool issue = sync->permissionIssue();
  if (issue && !s.lastPermissionIssue && !s.permissionAlertOpen) {
    s.lastPermissionIssue = true;
    s.permissionAlertOpen = true;
    presentPermissionAlert();
    s.permissionAlertOpen = false;
  } else {
    s.lastPermissionIssue = issue;
  }
  if (snap.playing) maybeAutoPick(snap.track);
  tickListening();

  s.lastPosition = snap.position;
  s.extraTickIn.reset();
  s.textDueIn = INFINITY;
  if (!snap.position) {
    secondNow = {};
    render(kBrand, true);
    showGlint();
    if (!(now() > s.hintUntil) || showNextNote() || showListeningProgress()) return;
    statusLine.assign("◌ ").append(snap.status);
    setStatus(statusLine);
    return;
  }

  // The rate applies to the player's position; the offset is in subtitle seconds.
  double t = *snap.position * s.scale + s.offset;
  // Small backward steps are the clocks correcting each other, not seeks.
  if (s.lastShownT && t < *s.lastShownT && *s.lastShownT - t < 0.4) t = *s.lastShownT;
  s.lastShownT = t;

  std::size_t lo = 0, hi = s.starts.size();
  while (lo < hi) {
    const std::size_t mid = (lo + hi) / 2;
    if (s.starts[mid] <= t) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  // Four cues back is enough for overlaps in real files; a long cue under
  // four later ones is deliberately not shown.
  const std::string* text = &kEmpty;
  const Cue* shown = nullptr;
  for (std::size_t k = 1; k <= 4 && k <= lo; ++k) {
    const Cue& cue = s.cues[lo - k];
    if (cue.start <= t && t <= cue.end) {
      text = &cue.text;
      shown = &cue;
      break;
    }
  }
  secondNow = s.second.path ? std::string_view(secondTextAt(*snap.position)) : std::string_view();
  render(*text, false);
  planExtraTick(*snap.position, lo < s.starts.size() ? &s.starts[lo] : nullptr, shown);
  if (s.second.path) planSecondExtraTick(*snap.position);
  if (!(now() > s.hintUntil) || showNextNote() || showListeningProgress()) return;

  statusLine.assign(snap.playing ? "⇄" : "⏸").append(" ").append(snap.track).append("  ");
  statusLine.append(fmtTime(*snap.position));  // the player's clock, not subtitle time
  // The timing shown is the one the keys move.
  if (s.adjustSecond) {
    statusLine.append(" · second: ").append(s.second.name);
  } else {
    statusLine.append(" · ").append(s.subPath ? std::string_view(s.subName) : texts::noSubtitle);
  }
  const Timing a = adjusted();
  char extra[64];
  if (a.offset != 0) {
    cFormatInto(extra, sizeof extra, "  offset %+.1fs", a.offset);
    statusLine.append(extra);
  }
  if (std::fabs(a.scale - 1) > 1e-6) {
    cFormatInto(extra, sizeof extra, "  rate %.4f", a.scale);
    statusLine.append(extra);
  }
  setStatus(statusLine);
}

void Controller::planExtraTick(double position, const double* nextStart, const Cue* shown) {
  // Only a clock that moves reaches a boundary by itself.
  if (!snap.playing || snap.holding) return;
  // The shown text changes when the next cue starts (a cue shows from its
  // start on) or just after the shown one ends (it shows up to its end).
  if (nextStart) textDueIn(tickplan::untilSubtitleTime(*nextStart, position, snap.rate, s.scale, s.offset));
  if (shown) textDueIn(tickplan::untilSubtitleTime(shown->end, position, snap.rate, s.scale, s.offset));
}

void Controller::showHint(std::string_view text) {
  setStatus(text);
  s.hintUntil = now() + 3.0;
}

void Controller::postNote(std::string_view text) noexcept {
  notes.emplace_back(text);
}

bool Controller::showNextNote() {
  if (notes.empty()) return false;
  showHint(notes.front());
  notes.erase(notes.begin());
  return true;
}

void Controller::setStatus(std::string_view text) {
  // The tick rebuilds the line again and again; a label need not
  // hear of it unless the words change.
  if (text == shownStatus) return;
  shownStatus.assign(text);
  services.host.setStatusText(shownStatus);
}

// ---- keys and adjustments -------------------------------------------------------

bool Controller::handleKey(int keyCode, bool shift, std::string_view characters) noexcept {
  switch (keyCode) {
    case keycode::escape:  // whatever the modifiers
      quit();
      return true;
    case keycode::left:
      shift ? resize(-60, 0) : bumpOffset(-0.5);
      return true;
    case keycode::right:
      shift ? resize(+60, 0) : bumpOffset(+0.5);
      return true;
    case keycode::down:  // with Shift the panel grows taller, as users learnt it
      shift ? resize(0, +30) : bumpScale(-0.0005);
      return true;
    case keycode::up:
      shift ? resize(0, -30) : bumpScale(+0.0005);
      return true;
    default:
      break;
  }
  // Exact and case-sensitive: "O", "Q", "F" and "T" are not shortcuts.
  const std::string_view c = unicode::firstGrapheme(characters);
  if (c == ",") {
    bumpOffset(-0.1);
  } else if (c == ".") {
    bumpOffset(+0.1);
  } else if (c == "f") {
    cycleFPS();
  } else if (c == "1" || c == "2") {
    markPoint(c == "1" ? 1 : 2);
  } else if (c == "t") {
    toggleBG();
  } else if (c == "9") {
    bumpAlpha(-0.05);
  } else if (c == "0") {
    bumpAlpha(+0.05);
  } else if (c == "+" || c == "=") {
    bumpFont(+2);
  } else if (c == "-") {
    bumpFont(-2);
  } else if (c == "o") {
    openFileDialog();
  } else if (c == "a") {
    menuAutoPick();
  } else if (c == "h") {
    toggleBar();
  } else if (c == "l") {
    toggleListening();
  } else if (c == "q") {
    quit();
  } else if (c == "s") {
    switchAdjusted();
  } else {
    return false;
  }
  return true;
}

void Controller::bumpOffset(double delta) noexcept {
  const Timing a = adjusted();
  a.offset += delta;
  saveCalibration();
  showHint(hints::timingOffset(a.offset).append(adjustedSuffix()));
}

void Controller::bumpScale(double delta) noexcept {
  const Timing a = adjusted();
  a.scale = clamp(a.scale + delta, 0.9, 1.1);
  saveCalibration();
  showHint(hints::rate(a.scale).append(adjustedSuffix()));
}

void Controller::cycleFPS() noexcept {
  const Timing a = adjusted();
  a.scaleIdx = (a.scaleIdx + 1) % static_cast<int>(std::size(scalePresets));
  a.scale = scalePresets[a.scaleIdx].factor;
  saveCalibration();
  showHint(hints::frameRateRatio(scalePresets[a.scaleIdx].label).append(adjustedSuffix()));
}

void Controller::toggleBG() noexcept {
  s.bgMode = (s.bgMode + 1) % 2;
  services.defaults.set(keys::bgMode, s.bgMode);
  s.curText.reset();
  showHint(s.bgMode == 1 ? texts::bandOn : texts::bandOff);
}

void Controller::bumpAlpha(double delta) noexcept {
  s.alpha = clamp(s.alpha + delta, 0.2, 1.0);
  services.defaults.set(keys::panelAlpha, s.alpha);
  services.host.setPanelAlpha(s.alpha);
  showHint(hints::opacity(prefs::alphaValueLabel(s.alpha)));
}

void Controller::bumpFont(double delta) noexcept {
  s.fontSize = clamp(s.fontSize + delta, 12, 80);
  services.defaults.set(keys::fontSize, s.fontSize);
  s.curText.reset();
  showHint(hints::fontSize(prefs::fontValueLabel(s.fontSize)));
}

void Controller::resize(double dw, double dh) noexcept {
  const Rect frame = services.host.panelFrame();
  s.winW = std::max(frame.width + dw, 320.0);
  s.winH = std::max(frame.height + dh, 90.0);
  services.host.setPanelFrame({frame.x, frame.y, s.winW, s.winH});
  services.host.setStatusFrame({0, 4, s.winW, 17});
  s.curText.reset();
}

void Controller::saveCalibration() noexcept {
  saveTiming(adjusted());
}

void Controller::saveTiming(const Timing& timing) noexcept {
  timing.lastShownT.reset();  // the next tick may jump back freely
  if (!timing.path) return;
  nlohmann::json side = {{"offset", std::round(timing.offset * 1000) / 1000},
                         {"scale", std::round(timing.scale * 1000000) / 1000000}};
  if (timing.encodingChoice) side["encoding"] = *timing.encodingChoice;
  writeFileAtomically(*timing.path + ".sync.json", side.dump());  // failures are not the user's problem now
}

void Controller::quit() noexcept {
  endListening({});
  saveTiming(firstTiming());
  saveTiming(secondTiming());
  sync->cancel();
  services.app.terminate();
}

// ---- two-point calibration --------------------------------------------------------

void Controller::markPoint(int n) noexcept {
  const SyncSnapshot snap = sync->snapshot();
  if (!snap.position) {
    showHint(conventions.texts.notConnected);
    return;
  }
  const Timing a = adjusted();
  const double v = *snap.position;
  const double t = v * a.scale + a.offset;
  a.calPoints[n] = {v, t};
  if (n == 1) {
    showHint(hints::markedFirstPoint(fmtTime(v)));
    return;
  }
  const auto first = a.calPoints.find(1);
  if (first == a.calPoints.end()) {
    showHint(texts::needFirstPoint);
    return;
  }
  const CalPoint p1 = first->second;
  if (std::fabs(v - p1.v) < 30.0) {
    showHint(texts::pointsTooClose);
    return;
  }
  const double rate = (t - p1.t) / (v - p1.v);
  if (rate < 0.85 || rate > 1.15 || std::isnan(rate)) {
    showHint(hints::rateLooksWrong(rate));
    return;
  }
  a.scale = rate;
  a.offset = p1.t - p1.v * rate;
  a.calPoints.clear();
  saveCalibration();
  showHint(hints::calibrated(rate, a.offset).append(adjustedSuffix()));
}

// ---- the panel ------------------------------------------------------------------

void Controller::buildPanel() {
  const std::optional<Size> screen = services.host.mainScreenSize();
  const double sw = screen ? screen->width : 1440;
  const double w = std::round(sw * 0.425);
  const PanelConfig config{
      // The screen frame's origin is deliberately not added.
      .frame = {(sw - w) / 2, screen ? screen->height * 0.1 : 90, w, 125},
      .aboveFullScreen = true,
      .onAllSpaces = true,
      .nonActivating = true,
      .resizable = true,
      .movableByBackground = true,
      .alpha = s.alpha,
      .minSize = {320, 90},
      .autosaveName = keys::panelFrame,
      .backdropFill = RGBA::white(0.1, 0.22),
      .backdropBorder = RGBA::white(1.0, 0.45),
      .backdropBorderWidth = 1.5,
      .backdropCornerRadius = 14,
      .backdropAlpha = 0,  // until hovered
      .bandFill = RGBA::white(0.0, 0.78),
      .bandCornerRadius = 10,
      .bandFrame = {0, 0, 10, 10},
      .bandHidden = true,
      .statusFontSize = 12,
      .statusColor = {0.81, 0.91, 1.0, 1.0},
  };
  services.host.createPanel(config);
  const Rect frame = services.host.panelFrame();  // a saved frame wins
  s.winW = frame.width;
  s.winH = frame.height;
  services.host.setTextFrame({0, 30, s.winW, s.winH - 40});
  services.host.setStatusFrame({0, 4, s.winW, 17});
}

void Controller::hoverChanged(bool inside) noexcept {
  s.hovering = inside;
  updateFrameVisibility();
}

void Controller::keyWindowChanged() noexcept {
  updateFrameVisibility();
}

void Controller::panelResized() noexcept {
  const Rect frame = services.host.panelFrame();
  s.winW = frame.width;
  s.winH = frame.height;
  services.host.setStatusFrame({0, 4, s.winW, 17});
  s.curText.reset();
}

void Controller::updateFrameVisibility() {
  // Only the pointer decides the backdrop; being key changes the words.
  services.host.fadeBackdrop(s.hovering ? 1.0 : 0.0, 0.15);
  if (s.hovering) showHint(services.host.panelIsKey() ? texts::hoverKeyHint : texts::hoverHint);
}

void Controller::render(const std::string& text, bool brand) noexcept {
  Style style{s.bgMode, s.fontSize, s.strokeWidth, s.winW, s.winH, brand};
  if (s.second.path && !brand) style.second = {true, secondFontSize(), s.secondLook.color, s.secondLook.above};
  if (s.curText && *s.curText == text && s.curStyle && *s.curStyle == style &&
      (!style.second.shown || (s.curSecondText && *s.curSecondText == secondNow))) {
    return;
  }
  s.curText = text;
  s.curStyle = style;
  if (style.second.shown) {
    renderPair(text);
    return;
  }
  OverlayHost& host = services.host;
  if (s.curSecondText) {  // the second was drawn and is gone now
    s.curSecondText.reset();
    host.setSecondText({}, {});
  }
  if (text.empty()) {
    host.setTextLayers({}, brand);
    host.setBandHidden(true);
    return;
  }
  const auto layers = attributedLayers(text, brand, s.fontSize, s.strokeWidth, s.bgMode);
  host.setTextLayers(layers, brand);
  if (brand) {
    host.setTextFrame({0, 22, s.winW, s.winH - 28});
    host.setBandHidden(true);
    return;
  }
  const double w = s.winW - 60;
  const Size measured = host.measureText(layers.back(), {w, 2000});
  const double h = std::ceil(measured.height) + 6;
  host.setTextFrame({(s.winW - w) / 2, 26, w, h});
  if (s.bgMode != 1) {
    host.setBandHidden(true);
    return;
  }
  const double tw = std::ceil(measured.width);
  host.setBandFrame({(s.winW - tw) / 2 - 16, 19, tw + 32, h + 12});
  host.setBandHidden(false);
}

// ---- preferences --------------------------------------------------------------------

prefs::Values Controller::preferenceValues() const noexcept {
  // A value written by hand (defaults write) may be anything: the window
  // offers two choices, and anything but the band draws as the outline.
  return {s.fontSize, s.strokeWidth, s.alpha, s.bgMode == 1 ? 1 : 0,
          prefs::folderLabel(services.defaults.stringFor(keys::subtitleFolder)), secondValues(), fallbackEncodingIndex(),
          listening.always};
}

// The sliders' ranges are the limits here: values are stored as given.
void Controller::setFontSize(double size) noexcept {
  s.fontSize = size;
  services.defaults.set(keys::fontSize, size);
  s.curText.reset();
}

void Controller::setStrokeWidth(double width) noexcept {
  s.strokeWidth = width;
  services.defaults.set(keys::strokeWidth, width);
  s.curText.reset();
}

void Controller::setAlpha(double alpha) noexcept {
  s.alpha = alpha;
  services.defaults.set(keys::panelAlpha, alpha);
  services.host.setPanelAlpha(alpha);  // the text keeps its layout
}

void Controller::setBgMode(long long mode) noexcept {
  s.bgMode = mode;
  services.defaults.set(keys::bgMode, mode);
  s.curText.reset();
}

bool Controller::chooseSubtitleFolder() noexcept {
  const auto folder = services.dialogs.chooseFolder();
  if (!folder) return false;
  applySubtitleFolder(*folder);
  return true;
}

// ---- menu and dialogs --------------------------------------------------------------

void Controller::perform(MenuAction action) noexcept {
  if (const auto choice = reopenEncodingChoice(action)) {
    performEncodingChoice(*choice);
    return;
  }
  switch (action) {
    case MenuAction::none:
    case MenuAction::reopenEncoding:  // taken above
      break;
    case MenuAction::open:
      openFileDialog();
      break;
    case MenuAction::autoPick:
      menuAutoPick();
      break;
    case MenuAction::openSecond:
      openSecondFileDialog();
      break;
    case MenuAction::removeSecond:
      removeSecondSubtitle();
      break;
    case MenuAction::secondToFirst:
      alignSecondToFirst();
      break;
    case MenuAction::offsetM5:  // the 5 is half a second
      bumpOffset(-0.5);
      break;
    case MenuAction::offsetM1:
      bumpOffset(-0.1);
      break;
    case MenuAction::offsetP1:
      bumpOffset(+0.1);
      break;
    case MenuAction::offsetP5:
      bumpOffset(+0.5);
      break;
    case MenuAction::fontUp:
      bumpFont(+2);
      break;
    case MenuAction::fontDown:
      bumpFont(-2);
      break;
    case MenuAction::toggleBG:
      toggleBG();
      break;
    case MenuAction::prefs:
      services.app.showPreferences();
      break;
    case MenuAction::checkUpdates:
      services.app.activate();
      services.app.checkForUpdates();
      break;
    case MenuAction::grantPermission:
      menuGrantPermission();
      break;
    case MenuAction::howTo:
      menuHowTo();
      break;
    case MenuAction::about:
      menuAbout();
      break;
    case MenuAction::quit:
      quit();
      break;
    case MenuAction::listen:
      toggleListening();
      break;
    case MenuAction::undoSync:
      undoListening();
      break;
  }
}

void Controller::presentPermissionAlert() noexcept {
  services.app.activate();
  const UiTexts& t = conventions.texts;
  if (services.dialogs.runAlert(t.permissionAlert) == 0 && !t.permissionSettingsURL.empty()) {
    services.app.openURL(t.permissionSettingsURL);
  }
}

void Controller::menuGrantPermission() noexcept {
  if (!conventions.texts.permissionSettingsURL.empty()) services.app.openURL(conventions.texts.permissionSettingsURL);
  showHint(conventions.texts.grantHint);
}

void Controller::menuAbout() noexcept {
  services.app.activate();
  services.dialogs.runAlert(conventions.texts.aboutAlert);
}

void Controller::menuHowTo() noexcept {
  showOnboarding();
}

void Controller::showOnboarding() noexcept {
  services.app.activate();
  services.dialogs.runAlert(conventions.texts.onboardingAlert);
}

std::string Controller::debugLine(const PanelDiagnostics& p) {
  char buf[256];
  cFormatInto(buf, sizeof buf,
              "PXDBG onActiveSpace=%d visible=%d occlusion=%lu key=%d level=%ld frame=", p.onActiveSpace, p.visible,
              p.occlusion, p.key, p.level);
  if (!p.frameText.empty()) return buf + p.frameText;
  char frame[128];
  cFormatInto(frame, sizeof frame, "{{%g, %g}, {%g, %g}}", p.frame.x, p.frame.y, p.frame.width, p.frame.height);
  return std::string(buf) + frame;
}

// ---- launching ------------------------------------------------------------------------

std::optional<std::string> startupSubtitlePath(const std::vector<std::string>& argv) {
  struct stat st {};
  if (argv.size() >= 2 && ::stat(argv[1].c_str(), &st) == 0) return argv[1];
  return std::nullopt;
}

void showGuideOnFirstLaunch(Controller& controller, SettingsStore& defaults) noexcept {
  if (defaults.boolFor(keys::didOnboard)) return;
  defaults.set(keys::didOnboard, true);
  controller.showOnboarding();
}

}  // namespace lumerix
