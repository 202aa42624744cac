#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "sync/SourceTexts.h"
#include "ui/Texts.h"

// The hints the controller puts on the status line, in words of their own
// here so that every one of them can be listed and measured.
namespace lumerix::hints {

std::string failedToLoad(std::string_view why);
// offset and scale: the timing restored from the side file.
// encoding: the name of one other than UTF-8, so that a wrong guess is seen.
std::string loaded(std::string_view name, std::size_t cues, std::string_view encoding, double offset, double scale);
std::string readAs(std::string_view name, std::string_view encoding);
std::string noSubtitlesFound(std::string_view name, std::string_view encoding);
std::string noSubtitleFor(std::string_view track);
std::string folderSet(std::string_view folderName);
std::string timingOffset(double offset);
std::string rate(double scale);
std::string frameRateRatio(std::string_view label);
std::string opacity(std::string_view label);
std::string fontSize(std::string_view label);
std::string markedFirstPoint(std::string_view time);
std::string rateLooksWrong(double rate);
std::string calibrated(double rate, double offset);

// The second subtitle's.
inline constexpr std::string_view noSecond = "No second subtitle — open one from the menu";
inline constexpr std::string_view adjustingSecond = "Adjusting: second subtitle";
inline constexpr std::string_view adjustingFirst = "Adjusting: first subtitle";
inline constexpr std::string_view secondIsFirst = "That file is the first subtitle already — choose another for the second";
inline constexpr std::string_view secondRemoved = "Second subtitle removed";
inline constexpr std::string_view secondUnmatched = "Second to First: no sure match with the first — timing unchanged";
std::string loadedSecond(std::string_view name, std::size_t cues, double offset, double scale);
std::string secondTimed(double rate, double offset);
std::string noSecondFor(std::string_view firstName);

// Every status text and hint a platform's bar shows, with names and
// numbers as they usually come (a file name of a common length, the
// longest numbers a hint takes). notes: what the shell says about its
// desktop at start.
std::vector<std::string> everyStatusText(const UiTexts& ui, const SourceTexts& sources,
                                         const std::vector<std::string_view>& notes);

}  // namespace lumerix::hints
