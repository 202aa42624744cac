// The controller's side of choosing subtitle files: loading one, restoring
// its timing, and picking the next episode's file by itself.

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "app/Controller.h"
#include "app/EpisodeMatch.h"
#include "app/Hints.h"
#include "app/SettingsKeys.h"
#include "app/SubtitleFiles.h"
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

namespace loading {

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

encoding::Preference encodingPreference(const std::optional<std::string>& chosen, const SettingsStore& defaults) {
  encoding::Preference preference;
  if (chosen) preference.chosen = *chosen;
  preference.fallback = defaults.stringFor(keys::fallbackEncoding).value_or("");
  return preference;
}

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

}  // namespace loading

void Controller::loadSubtitle(const std::string& path) noexcept {
  // The side file first: it may say which encoding the user chose.
  const auto side = loading::readSideFile(path + ".sync.json");
  auto parsed =
      loading::readGuarded(path, loading::encodingPreference(side ? side->encoding : std::nullopt, services.defaults));
  if (!parsed) {
    // The previous file, its timing and the folder all stay in force.
    showHint(hints::failedToLoad(describe(parsed.error())));
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
  // What was read in an encoding other than UTF-8 says which, so that a
  // wrong guess is seen and can be corrected from the menu.
  const std::string encodingName = s.subEncoding == "UTF-8" ? "" : encoding::displayName(s.subEncoding);
  if (s.cues.empty()) {
    showHint(hints::noSubtitlesFound(s.subName, encodingName));
    return;
  }
  // With the restored timing too, the encoding would not fit the status
  // line: it follows on its own.
  const bool restored = s.offset != 0 || s.scale != 1.0;
  showHint(hints::loaded(s.subName, s.cues.size(), restored ? "" : encodingName, s.offset, s.scale));
  if (restored && !encodingName.empty()) postNote(hints::readAs(s.subName, encodingName));
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
    if (!s.subPath || unicode::composed(*s.subPath) != unicode::composed(*found)) {
      loadSubtitle(*found);
      followEpisode(*number);
    }
    return;
  }
  if (!s.cues.empty()) return;  // keep what is loaded rather than nag
  showHint(hints::noSubtitleFor(track));
}

std::optional<std::string> Controller::findEpisodeSubtitle(long long episode) noexcept {
  const auto folder = services.defaults.stringFor(keys::subtitleFolder);
  if (!folder) return std::nullopt;
  return episode::findInFolder(*folder, episode);
}

void Controller::openFileDialog() noexcept {
  if (const auto path = chooseSubtitleFile()) fileDropped(*path);
}

std::optional<std::string> Controller::chooseSubtitleFile() noexcept {
  services.app.activate();
  return services.dialogs.chooseFile(filetypes::subtitleExtensionList());
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
  showHint(hints::folderSet(path::lastComponent(folder)));
}

}  // namespace lumerix
