#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "subtitles/Cue.h"
#include "subtitles/Encodings.h"
#include "util/Result.h"

namespace lumerix {

// The file's bytes decode in none of the encodings the reader knows.
enum class SRTParseError { unreadable };

std::string_view describe(SRTParseError error);

// The operating system refused to give us the file's bytes. The description
// is the system's own text for errno ("No such file or directory").
struct FileReadError {
  int code = 0;
  std::string description;

  bool operator==(const FileReadError&) const = default;
};

using SubtitleReadError = std::variant<FileReadError, SRTParseError>;

// A file's cues and the encoding its text was read in.
struct SubtitleFile {
  std::vector<Cue> cues;
  std::string encoding;  // a name from encoding::choices() or the detector's, "UTF-8" mostly
};

// The text a user is shown after "Failed to load: ".
std::string describe(const SubtitleReadError& error);

// Reads SubRip and WebVTT files with one tolerant grammar: blank-line
// separated blocks, a block is a cue when one of its lines carries a timing
// range, and everything else is skipped without complaint. A text that
// opens with "[Script Info]" is an (Advanced) SubStation script and is read
// by its own rules instead (subtitles/AssReader.h). Stateless; safe to call
// from any thread.
class SRTParser {
 public:
  SRTParser() = delete;

  // Far beyond any real subtitle file (a season is a few MiB): anything
  // bigger is refused rather than read into memory.
  static constexpr std::size_t maxFileBytes = std::size_t{256} << 20;

  // The cues of the file at path, sorted by start (ties keep file order).
  // A file with no recognisable cue gives an empty list, not an error; what
  // is not a regular file, or is bigger than maxFileBytes, is an error.
  static Result<std::vector<Cue>, SubtitleReadError> parse(const std::string& path);

  // The same, with the encoding the text was read in; the preference says
  // what the user chose (see encoding::decode for the whole order).
  static Result<SubtitleFile, SubtitleReadError> read(const std::string& path,
                                                      const encoding::Preference& preference = {});

  // The same for bytes already in memory.
  static Result<std::vector<Cue>, SRTParseError> parseBytes(std::string bytes);
  static Result<SubtitleFile, SRTParseError> readBytes(std::string bytes, const encoding::Preference& preference = {});

  // The cues of decoded text with "\n" line ends. Texts longer than
  // splitAbove bytes are read in two halves on two threads. In a text that
  // begins "WEBVTT", character references in cue text are decoded.
  static std::vector<Cue> parseDecoded(std::string_view text, std::size_t splitAbove = 8 << 20);
};

}  // namespace lumerix
