// The controller's side of choosing subtitle files: loading one, restoring
// its timing, and picking the next episode's file by itself.

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "app/Controller.h"
#include "app/EpisodeMatch.h"
#include "app/SettingsKeys.h"
#include "subtitles/Encodings.h"
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

struct SideFile {
  double offset = 0;
  double scale = 1.0;
  std::optional<std::string> encoding;
};

// The side file, when it holds a JSON object of numbers only, but for its
// "encoding", a string.
std::optional<SideFile> readSideFile(const std::string& sidePath) {
  std::string text;
  if (!readWholeFile(sidePath, text)) return std::nullopt;
  if (!json::nestingWithin(text, json::maxNesting)) return std::nullopt;
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (!json.is_object()) return std::nullopt;
  for (const auto& [key, value] : json.items()) {
    if (key == "encoding" ? !value.is_string() : !value.is_number()) return std::nullopt;
  }
  SideFile side{json.value("offset", 0.0), json.value("scale", 1.0), std::nullopt};
  if (json.contains("encoding")) side.encoding = json["encoding"].get<std::string>();
  return side;
}

// A file too big for memory is a failed load like any other, not the end
// of the program.
Result<SubtitleFile, SubtitleReadError> readGuarded(const std::string& path,
                                                    const encoding::Preference& preference) noexcept {
  using R = Result<SubtitleFile, SubtitleReadError>;
  try {
    return SRTParser::read(path, preference);
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  return R::failure(FileReadError{ENOMEM, std::strerror(ENOMEM)});
}

}  // namespace

void Controller::loadSubtitle(const std::string& path) noexcept {
  // The side file first: it may say which encoding the user chose.
  const auto side = readSideFile(path + ".sync.json");
  encoding::Preference preference;
  if (side && side->encoding) preference.chosen = *side->encoding;
  preference.fallback = services.defaults.stringFor(keys::fallbackEncoding).value_or("");
  auto parsed = readGuarded(path, preference);
  if (!parsed) {
    // The previous file, its timing and the folder all stay in force.
    showHint("Failed to load: " + describe(parsed.error()));
    return;
  }
  SubtitleFile file = std::move(parsed).value();
  s.cues = std::move(file.cues);
  s.subEncoding = std::move(file.encoding);
  s.encodingChoice = side ? side->encoding : std::nullopt;
  s.starts.clear();
  for (const Cue& cue : s.cues) s.starts.push_back(cue.start);
  s.subPath = path;
  s.subName = path::lastComponent(path);
  s.curText.reset();
  s.lastShownT.reset();
  s.offset = 0;
  s.scale = 1.0;
  services.defaults.set(keys::subtitleFolder, path::parent(path));
  if (side) std::tie(s.offset, s.scale) = std::pair{side->offset, side->scale};
  char suffix[96] = "";
  if (s.offset != 0 || s.scale != 1.0) {
    cFormatInto(suffix, sizeof suffix, " (restored offset %+.2fs, rate %.4f)", s.offset, s.scale);
  }
  // What was read in an encoding other than UTF-8 says which, so that a
  // wrong guess is seen and can be corrected from the menu.
  const std::string encodingNote = s.subEncoding == "UTF-8" ? "" : " · " + encoding::displayName(s.subEncoding);
  if (s.cues.empty()) {
    showHint("No subtitles found in " + s.subName + encodingNote);
    return;
  }
  showHint("Loaded " + s.subName + " · " + std::to_string(s.cues.size()) + " cues" + encodingNote + suffix);
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
