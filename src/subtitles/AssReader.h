#pragma once

#include <string_view>
#include <vector>

#include "subtitles/Cue.h"

namespace lumerix::ass {

// Whether decoded text is an Advanced SubStation or SubStation script: its
// first line that is not blank is "[Script Info]" (any case, spaces around
// ignored), whatever the file is called.
bool isScript(std::string_view text);

// The dialogue of a script with "\n" line ends: the [Events] section's
// Dialogue lines, their text freed of override blocks and drawings, events
// shown together at the same times merged into one cue, sorted by start
// (ties in file order). Malformed lines are skipped, never an error.
// Scripts longer than splitAbove bytes are read in two halves on two threads.
std::vector<Cue> readScript(std::string_view text, std::size_t splitAbove = 8 << 20);

}  // namespace lumerix::ass
