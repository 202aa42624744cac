#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumerix::filetypes {

// The extensions of the files Lumerix reads, lower case, without the dot:
// wherever a file is offered, dropped, picked or named, these count.
inline constexpr std::string_view subtitleExtensions[] = {"srt", "vtt", "ass", "ssa"};

// Whether a lower-cased extension (no dot) is one of them.
inline bool isSubtitleExtension(std::string_view extension) {
  for (std::string_view e : subtitleExtensions) {
    if (extension == e) return true;
  }
  return false;
}

// Whether a lower-cased file name ends with ".srt", ".vtt", ".ass" or ".ssa".
inline bool hasSubtitleExtension(std::string_view lowercasedName) {
  const std::size_t dot = lowercasedName.rfind('.');
  return dot != std::string_view::npos && isSubtitleExtension(lowercasedName.substr(dot + 1));
}

// For the open dialogs.
inline std::vector<std::string> subtitleExtensionList() {
  return {std::begin(subtitleExtensions), std::end(subtitleExtensions)};
}

}  // namespace lumerix::filetypes
