#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumerix::episode {

// The first run of decimal digits (of any script) in a track name, when it
// is made of ASCII digits and fits a 64-bit integer: "Episode 12" gives 12,
// "Part 2: Chapter 7" gives 2.
std::optional<long long> numberIn(std::string_view track);

// The episode of an "S01E02" tag, S\d{1,2}E(\d+) in either case with ASCII
// digits, first match anywhere: players that report file names
// ("Show.S01E02.mkv") put the episode there, not in the first number.
std::optional<long long> seasonEpisodeIn(std::string_view track);

// Whether a lower-cased file name contains  s\d{1,2}e0*<episode>(\D|$) ,
// matched case-insensitively (so the long s, U+017F, counts as "s").
bool nameMatches(std::string_view lowercasedName, long long episode);

// The subtitle file (.srt, .vtt, .ass, .ssa) of that episode in folder: every entry is
// considered, hidden ones too; names are tried in code-point order after
// canonical composition, and the first match wins. Absent when the folder
// cannot be listed or nothing matches.
std::optional<std::string> findInFolder(const std::string& folder, long long episode);

// The name that stands to newFirst as second stands to first: what lies
// between their common beginning and their common end is swapped, either at
// newFirst's end ("Show.S01E02.en.srt" and "Show.S01E02.zh.srt" make
// "Show.S01E03.en.srt" into "Show.S01E03.zh.srt") or at its beginning
// ("en.Show.S01E02.srt"). Absent when newFirst has neither shape.
std::optional<std::string> pairedName(std::string_view first, std::string_view second, std::string_view newFirst);

// The entry of folder named name (compared after canonical composition), as
// listed; absent when there is none or the folder cannot be listed.
std::optional<std::string> findNamed(const std::string& folder, std::string_view name);

}  // namespace lumerix::episode
