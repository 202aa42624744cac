// The second subtitle: a file shown with the first (a language the viewer
// reads well under the original, say), timed, remembered and following the
// episode on its own, drawn by the same layers in a block of its own.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "app/Controller.h"
#include "app/EpisodeMatch.h"
#include "app/Hints.h"
#include "app/SettingsKeys.h"
#include "app/SubtitleFiles.h"
#include "app/TickPlan.h"
#include "overlay/TextLayers.h"
#include "subtitles/SpanAlign.h"
#include "util/Numbers.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

const std::string kNone;

struct Found {
  const Cue* shown = nullptr;
  std::size_t next = 0;  // index of the first cue starting after t
};

// The same choice as the tick makes for the first: the last cue started by
// t that still runs, looking at most four cues back.
Found cueAt(const std::vector<Cue>& cues, const std::vector<double>& starts, double t) {
  std::size_t lo = 0, hi = starts.size();
  while (lo < hi) {
    const std::size_t mid = (lo + hi) / 2;
    if (starts[mid] <= t) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  Found found{nullptr, lo};
  for (std::size_t k = 1; k <= 4 && k <= lo; ++k) {
    const Cue& cue = cues[lo - k];
    if (cue.start <= t && t <= cue.end) {
      found.shown = &cue;
      break;
    }
  }
  return found;
}

// Two names for one file: the same path after composition, or the same
// file on disk (a relative and an absolute name, a link).
bool sameFile(const std::string& a, const std::string& b) {
  if (unicode::composed(a) == unicode::composed(b)) return true;
  char* ra = ::realpath(a.c_str(), nullptr);
  char* rb = ::realpath(b.c_str(), nullptr);
  const bool same = ra && rb && std::string_view(ra) == std::string_view(rb);
  std::free(ra);
  std::free(rb);
  return same;
}

}  // namespace

// ---- which timing the keys move ------------------------------------------------------

Controller::Timing Controller::firstTiming() noexcept {
  return {s.offset, s.scale, s.scaleIdx, s.calPoints, s.lastShownT, s.subPath, s.encodingChoice};
}

Controller::Timing Controller::secondTiming() noexcept {
  Second& d = s.second;
  return {d.offset, d.scale, d.scaleIdx, d.calPoints, d.lastShownT, d.path, d.encodingChoice};
}

Controller::Timing Controller::adjusted() noexcept {
  return s.adjustSecond && s.second.path ? secondTiming() : firstTiming();
}

std::string_view Controller::adjustedSuffix() const noexcept {
  return s.adjustSecond && s.second.path ? " (second)" : "";
}

void Controller::switchAdjusted() noexcept {
  if (!s.second.path) {
    s.adjustSecond = false;
    showHint(hints::noSecond);
    return;
  }
  s.adjustSecond = !s.adjustSecond;
  showHint(s.adjustSecond ? hints::adjustingSecond : hints::adjustingFirst);
}

// ---- loading and removing ------------------------------------------------------------

void Controller::loadSecondSubtitle(const std::string& path) noexcept {
  if (!s.subPath) {
    loadSubtitle(path);
    return;
  }
  if (sameFile(path, *s.subPath)) {
    showHint(hints::secondIsFirst);
    return;
  }
  const auto side = loading::readSideFile(path + ".sync.json");
  auto parsed = loading::readGuarded(path, loading::encodingPreference(side ? side->encoding : std::nullopt, services.defaults));
  if (!parsed) {
    // The second loaded before, if any, stays with its timing.
    showHint(hints::failedToLoad(describe(parsed.error())));
    return;
  }
  // Its own timing, its own calibration: nothing carries over from the
  // file it replaces.
  Second& d = s.second;
  secondNow = {};  // it points into the cues replaced here
  d = Second{};
  d.cues = std::move(parsed).value().cues;
  d.starts.reserve(d.cues.size());
  for (const Cue& cue : d.cues) d.starts.push_back(cue.start);
  d.path = path;
  d.name = path::lastComponent(path);
  if (side) {
    std::tie(d.offset, d.scale) = std::pair{side->offset, side->scale};
    d.encodingChoice = side->encoding;
  }
  services.defaults.set(keys::secondSubtitlePath, path);
  services.defaults.set(keys::secondPairedWith, *s.subPath);
  s.curText.reset();
  ++menuRevisionCount;
  showHint(hints::loadedSecond(d.name, d.cues.size(), d.offset, d.scale));
}

void Controller::removeSecondSubtitle() noexcept {
  if (!s.second.path) return;
  saveTiming(secondTiming());
  s.second = Second{};
  s.adjustSecond = false;
  secondNow = {};
  s.curText.reset();
  services.defaults.set(keys::secondSubtitlePath, std::string());
  services.defaults.set(keys::secondPairedWith, std::string());
  ++menuRevisionCount;
  showHint(hints::secondRemoved);
}

void Controller::openSecondFileDialog() noexcept {
  if (const auto path = chooseSubtitleFile()) loadSecondSubtitle(*path);
}

void Controller::fileDropped(const std::string& path, bool asSecond) noexcept {
  asSecond ? loadSecondSubtitle(path) : fileDropped(path);
}

void Controller::startSecond(const std::optional<std::string>& secondPath) noexcept {
  if (secondPath) {
    loadSecondSubtitle(*secondPath);
    return;
  }
  // The pair shown when the program last ran comes back with its first.
  const auto second = services.defaults.stringFor(keys::secondSubtitlePath);
  const auto pairedWith = services.defaults.stringFor(keys::secondPairedWith);
  if (!s.subPath || !second || second->empty() || !pairedWith || !sameFile(*pairedWith, *s.subPath)) return;
  loadSecondSubtitle(*second);
}

void Controller::followEpisode(long long episode) noexcept {
  // The rule is how the pair's names differ: the pair shown now, else the
  // one remembered from the last run.
  const auto second = services.defaults.stringFor(keys::secondSubtitlePath);
  const auto pairedWith = services.defaults.stringFor(keys::secondPairedWith);
  if (!second || second->empty() || !pairedWith || pairedWith->empty() || !s.subPath) return;
  // Only a first that moved to this episode takes the second along.
  if (!episode::nameMatches(unicode::lowercased(s.subName), episode)) return;
  std::optional<std::string> found;
  if (const auto name = episode::pairedName(path::lastComponent(*pairedWith), path::lastComponent(*second), s.subName)) {
    // Never a file of another episode, whatever the names made of the rule.
    if (episode::nameMatches(unicode::lowercased(*name), episode)) found = episode::findNamed(path::parent(*second), *name);
  }
  // The first's "Loaded" hint stays up; what became of the second waits
  // its turn.
  const std::string firstHint = shownStatus;
  const double until = s.hintUntil;
  auto afterFirst = [&](const std::string& note) {
    if (note == firstHint) return;
    postNote(note);
    setStatus(firstHint);
    s.hintUntil = until;
  };
  if (found && (!s.second.path || !sameFile(*s.second.path, *found))) {
    loadSecondSubtitle(*found);
    afterFirst(std::string(shownStatus));
  }
  if (found && s.second.path && sameFile(*s.second.path, *found)) {
    services.defaults.set(keys::secondPairedWith, *s.subPath);
    return;
  }
  // None, or one that would not load: rather no second than the last
  // episode's under this one.
  if (s.second.path) {
    removeSecondSubtitle();
    afterFirst(hints::noSecondFor(s.subName));
  }
  services.defaults.set(keys::secondSubtitlePath, std::string());
  services.defaults.set(keys::secondPairedWith, std::string());
}

void Controller::alignSecondToFirst() noexcept {
  if (!s.second.path) {
    showHint(hints::noSecond);
    return;
  }
  const auto fit = alignSpans(s.second.cues, s.cues);
  // The first's time is rate × its own + shift; the player's position then
  // maps through the first's timing onto the second's.
  const double scale = fit ? s.scale / fit->rate : 0;
  if (!fit || !(scale >= 0.9 && scale <= 1.1)) {
    showHint(hints::secondUnmatched);
    return;
  }
  Second& d = s.second;
  d.scale = scale;
  d.offset = (s.offset - fit->shift) / fit->rate;
  d.calPoints.clear();
  saveTiming(secondTiming());
  showHint(hints::secondTimed(d.scale, d.offset));
}

// ---- what the tick shows ------------------------------------------------------------

const std::string& Controller::secondTextAt(double position) noexcept {
  Second& d = s.second;
  double t = position * d.scale + d.offset;
  if (d.lastShownT && t < *d.lastShownT && *d.lastShownT - t < 0.4) t = *d.lastShownT;
  d.lastShownT = t;
  const Found found = cueAt(d.cues, d.starts, t);
  return found.shown ? found.shown->text : kNone;
}

void Controller::planSecondExtraTick(double position) {
  const Second& d = s.second;
  if (!snap.playing || snap.holding || !d.lastShownT) return;
  const Found found = cueAt(d.cues, d.starts, *d.lastShownT);
  if (found.next < d.starts.size()) {
    textDueIn(tickplan::untilSubtitleTime(d.starts[found.next], position, snap.rate, d.scale, d.offset));
  }
  if (found.shown) textDueIn(tickplan::untilSubtitleTime(found.shown->end, position, snap.rate, d.scale, d.offset));
}

std::optional<std::string_view> Controller::secondShown() const noexcept {
  if (!s.second.path) return std::nullopt;
  return secondNow;
}

// ---- drawing ---------------------------------------------------------------------------

double Controller::secondFontSize() const noexcept {
  if (s.secondLook.fontSize > 0) return s.secondLook.fontSize;
  return std::clamp(std::round(s.fontSize * 8) / 10, 12.0, 80.0);
}

void Controller::renderPair(const std::string& text) noexcept {
  OverlayHost& host = services.host;
  s.curSecondText.emplace(secondNow);
  const double w = s.winW - 60;
  const double fontSize = secondFontSize();
  // A block without a cue keeps one line's place, so that the other's
  // lines stay where they are when a cue comes or goes.
  auto oneLine = [&](const std::vector<TextLayer>& layers) { return host.measureText(layers.back(), {w, 2000}); };

  std::vector<TextLayer> first;
  Size firstSize;
  if (!text.empty()) {
    first = attributedLayers(text, false, s.fontSize, s.strokeWidth, s.bgMode);
    firstSize = host.measureText(first.back(), {w, 2000});
  }
  const Size firstPlace = text.empty() ? oneLine(attributedLayers("Ag", false, s.fontSize, 0, 1)) : firstSize;
  const double firstHeight = std::ceil(firstPlace.height) + 6;

  std::vector<TextLayer> second;
  Size secondSize;
  if (!secondNow.empty()) {
    second = secondLayers(std::string(secondNow), fontSize, s.strokeWidth, s.bgMode, s.secondLook.color);
    secondSize = host.measureText(second.back(), {w, 2000});
  }
  const Size secondPlace = secondNow.empty() ? oneLine(attributedLayers("Ag", false, fontSize, 0, 1)) : secondSize;
  const double secondHeight = std::ceil(secondPlace.height) + 6;

  // Bottom up from where the single block sits.
  constexpr double bottom = 26, gap = 2;
  const double lowerHeight = s.secondLook.above ? firstHeight : secondHeight;
  const double upperY = bottom + lowerHeight + gap;
  const Rect firstFrame{(s.winW - w) / 2, s.secondLook.above ? bottom : upperY, w, firstHeight};
  const Rect secondFrame{(s.winW - w) / 2, s.secondLook.above ? upperY : bottom, w, secondHeight};

  // The bar grows to hold both blocks under the status line; it never
  // shrinks by itself, since the user may have made it this big.
  const double needed = std::ceil(upperY + (s.secondLook.above ? secondHeight : firstHeight) + 30);
  if (needed > s.winH) {
    const Rect frame = host.panelFrame();
    s.winH = needed;
    host.setPanelFrame({frame.x, frame.y, s.winW, s.winH});
    host.setStatusFrame({0, 4, s.winW, 17});
    s.curStyle->winH = s.winH;
  }

  host.setTextLayers(first, false);
  host.setTextFrame(firstFrame);
  host.setSecondText(second, secondFrame);
  if (s.bgMode != 1 || (first.empty() && second.empty())) {
    host.setBandHidden(true);
    return;
  }
  // One band behind whichever blocks have text.
  double top = 0, low = INFINITY, widest = 0;
  if (!first.empty()) {
    top = std::max(top, firstFrame.maxY());
    low = std::min(low, firstFrame.y);
    widest = std::max(widest, std::ceil(firstSize.width));
  }
  if (!second.empty()) {
    top = std::max(top, secondFrame.maxY());
    low = std::min(low, secondFrame.y);
    widest = std::max(widest, std::ceil(secondSize.width));
  }
  host.setBandFrame({(s.winW - widest) / 2 - 16, low - 7, widest + 32, top - low + 12});
  host.setBandHidden(false);
}

// ---- its look, from the settings and the preferences window ----------------------------

void Controller::readSecondLook() noexcept {
  SettingsStore& defaults = services.defaults;
  s.secondLook.fontSize = defaults.doubleFor(keys::secondFontSize);
  const auto color = defaults.stringFor(keys::secondColor);
  s.secondLook.color = colorFromHex(color.value_or("")).value_or(*colorFromHex(prefs::secondColors[0].hex));
  s.secondLook.above = defaults.stringFor(keys::secondPosition).value_or("") == "above";
}

void Controller::setSecondFontSize(double size) noexcept {
  s.secondLook.fontSize = size;
  services.defaults.set(keys::secondFontSize, size);
  s.curText.reset();
}

void Controller::setSecondColor(const std::string& hex) noexcept {
  const auto color = colorFromHex(hex);
  if (!color) return;
  s.secondLook.color = *color;
  services.defaults.set(keys::secondColor, hexFromColor(*color));
  s.curText.reset();
}

void Controller::setSecondAbove(bool above) noexcept {
  s.secondLook.above = above;
  services.defaults.set(keys::secondPosition, std::string(above ? "above" : "below"));
  s.curText.reset();
}

prefs::Values::Second Controller::secondValues() const noexcept {
  prefs::Values::Second v;
  v.loaded = s.second.path.has_value();
  v.file = v.loaded ? s.second.name : std::string(prefs::secondNone);
  v.fontSize = secondFontSize();
  v.position = s.secondLook.above ? 1 : 0;
  for (std::size_t i = 0; i < std::size(prefs::secondColors); ++i) {
    if (colorFromHex(prefs::secondColors[i].hex) == s.secondLook.color) v.color = static_cast<long long>(i);
  }
  return v;
}

bool Controller::menuItemShown(MenuAction action) const noexcept {
  const bool needsSecond = action == MenuAction::removeSecond || action == MenuAction::secondToFirst;
  return !needsSecond || s.second.path.has_value();
}

}  // namespace lumerix
