// The controller's side of choosing subtitle files: loading one, restoring
// its timing, and picking the next episode's file by itself.

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "app/Controller.h"
#include "app/EpisodeMatch.h"
#include "app/SettingsKeys.h"
#include "subtitles/FileTypes.h"
#include "subtitles/SRTParser.h"
#include "ui/Texts.h"
#include "util/Files.h"
#include "util/JsonText.h"
#include "util/Numbers.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

// The side file's offset and scale, when it holds a JSON object of numbers only.
std::optional<std::pair<double, double>> readTiming(const std::string& sidePath) {
  std::string text;
  if (!readWholeFile(sidePath, text)) return std::nullopt;
  if (!json::nestingWithin(text, json::maxNesting)) return std::nullopt;
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (!json.is_object()) return std::nullopt;
  for (const auto& [key, value] : json.items()) {
    if (!value.is_number()) return std::nullopt;
  }
  return std::pair{json.value("offset", 0.0), json.value("scale", 1.0)};
}

// A file too big for memory is a failed load like any other, not the end
// of the program.
Result<std::vector<Cue>, SubtitleReadError> parseGuarded(const std::string& path) noexcept {
  using R = Result<std::vector<Cue>, SubtitleReadError>;
  try {
    return SRTParser::parse(path);
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  return R::failure(FileReadError{ENOMEM, std::strerror(ENOMEM)});
}

}  // namespace

void Controller::loadSubtitle(const std::string& path) noexcept {
  auto parsed = parseGuarded(path);
  if (!parsed) {
    // The previous file, its timing and the folder all stay in force.
    showHint("Failed to load: " + describe(parsed.error()));
    return;
  }
  s.cues = std::move(parsed).value();
  s.starts.clear();
  for (const Cue& cue : s.cues) s.starts.push_back(cue.start);
  s.subPath = path;
  s.subName = path::lastComponent(path);
  s.curText.reset();
  s.lastShownT.reset();
  s.offset = 0;
  s.scale = 1.0;
  services.defaults.set(keys::subtitleFolder, path::parent(path));
  if (auto timing = readTiming(path + ".sync.json")) std::tie(s.offset, s.scale) = *timing;
  char suffix[96] = "";
  if (s.offset != 0 || s.scale != 1.0) {
    cFormatInto(suffix, sizeof suffix, " (restored offset %+.2fs, rate %.4f)", s.offset, s.scale);
  }
  showHint("Loaded " + s.subName + " · " + std::to_string(s.cues.size()) + " cues" + suffix);
}

void Controller::maybeAutoPick(const std::string& track) noexcept {
  if (s.lastTrack && *s.lastTrack == track) return;
  // Remembered even while auto-pick is off, so that turning it on does not
  // react to a track that was already playing.
  s.lastTrack = track;
  if (!s.autoPick || track.empty()) return;
  std::optional<long long> number;
  if (conventions.episodes == EpisodeRule::seasonEpisodeTag) number = episode::seasonEpisodeIn(track);
  if (!number) number = episode::numberIn(track);
  if (!number) return;
  if (const auto found = findEpisodeSubtitle(*number)) {
    if (!s.subPath || unicode::composed(*s.subPath) != unicode::composed(*found)) loadSubtitle(*found);
    return;
  }
  if (!s.cues.empty()) return;  // keep what is loaded rather than nag
  showHint("No subtitle found for “" + track + "” — press O to choose one");
}

std::optional<std::string> Controller::findEpisodeSubtitle(long long episode) noexcept {
  const auto folder = services.defaults.stringFor(keys::subtitleFolder);
  if (!folder) return std::nullopt;
  return episode::findInFolder(*folder, episode);
}

void Controller::openFileDialog() noexcept {
  services.app.activate();
  if (const auto path = services.dialogs.chooseFile(filetypes::subtitleExtensionList())) fileDropped(*path);
}

std::optional<std::string> Controller::subtitlePathFrom(const std::vector<std::string>& paths) noexcept {
  for (const std::string& p : paths) {
    if (filetypes::isSubtitleExtension(path::extensionLowercased(p))) return p;
  }
  return std::nullopt;
}

void Controller::fileDropped(const std::string& path) noexcept {
  // The user chose this file: the track playing now must not replace it,
  // the next one may.
  s.autoPick = true;
  s.lastTrack = sync->snapshot().track;
  loadSubtitle(path);
}

void Controller::menuAutoPick() noexcept {
  s.autoPick = true;
  s.lastTrack.reset();  // so the track playing now is picked on the next tick
  showHint(texts::autoPickOn);
}

void Controller::applySubtitleFolder(const std::string& folder) noexcept {
  services.defaults.set(keys::subtitleFolder, folder);
  s.lastTrack.reset();
  showHint("Subtitle folder set: " + path::lastComponent(folder));
}

}  // namespace lumerix
