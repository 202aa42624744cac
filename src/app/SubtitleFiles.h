#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "subtitles/Cue.h"
#include "subtitles/SRTParser.h"
#include "util/Result.h"

namespace lumerix::loading {

// The side file's offset and scale, when it holds a JSON object of numbers only.
std::optional<std::pair<double, double>> readTiming(const std::string& sidePath);

// Reads a subtitle file of any kind the reader knows; running out of memory
// is a failed load like any other.
Result<std::vector<Cue>, SubtitleReadError> parseGuarded(const std::string& path) noexcept;

}  // namespace lumerix::loading
