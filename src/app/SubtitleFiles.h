#pragma once

#include <optional>
#include <string>

#include "platform/SettingsStore.h"
#include "subtitles/Encodings.h"
#include "subtitles/SRTParser.h"
#include "util/Result.h"

// What loading the first and the second subtitle share: the side file and
// the reading of the file itself.
namespace lumerix::loading {

struct SideFile {
  double offset = 0;
  double scale = 1.0;
  std::optional<std::string> encoding;  // the user's choice for this file
};

// The side file, when it holds a JSON object of numbers only, but for its
// "encoding", a string.
std::optional<SideFile> readSideFile(const std::string& sidePath);

// How a file is to be read: its own chosen encoding, else the guess, with
// the user's fallback when the guess is unsure.
encoding::Preference encodingPreference(const std::optional<std::string>& chosen, const SettingsStore& defaults);

// Reads a subtitle file of any kind the reader knows; running out of memory
// is a failed load like any other.
Result<SubtitleFile, SubtitleReadError> readGuarded(const std::string& path,
                                                    const encoding::Preference& preference) noexcept;

}  // namespace lumerix::loading
