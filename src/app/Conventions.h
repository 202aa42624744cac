#pragma once

#include "ui/Menu.h"
#include "ui/Texts.h"

namespace lumerix {

// How the episode of a track name is found: the first number in it, or,
// where players report file names, an "S01E02" tag first.
enum class EpisodeRule { firstNumber, seasonEpisodeTag };

// What differs between the platforms' builds beyond their services: their
// words and one rule. Each platform's services supply theirs.
struct Conventions {
  UiTexts texts = macUiTexts();
  EpisodeRule episodes = EpisodeRule::firstNumber;
  MenuStyle menu = MenuStyle::commandShortcuts;
};

}  // namespace lumerix
