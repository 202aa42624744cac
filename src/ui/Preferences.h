#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumerix::prefs {

// The preferences window as data: a fixed-size window with five rows in a
// grid (label, control, value label); every control acts at once.
inline constexpr std::string_view windowTitle = "Lumerix Preferences";
inline constexpr double windowWidth = 460, windowHeight = 240;
inline constexpr double rowSpacing = 14, columnSpacing = 12;  // the first column aligns trailing
inline constexpr double sliderWidth = 220;                    // continuous: acts while dragged
inline constexpr double valueLabelWidth = 44;                 // secondary label colour
inline constexpr double folderLabelMaxWidth = 200;            // truncates in the middle

struct SliderRow {
  std::string_view title;
  double minimum, maximum, initial;
};
inline constexpr SliderRow fontRow{"Text size", 12, 60, 28};
inline constexpr SliderRow strokeRow{"Outline", 0, 12, 7};
inline constexpr SliderRow alphaRow{"Opacity", 0.2, 1.0, 0.92};

inline constexpr std::string_view backgroundTitle = "Background";
// The item's index is the background mode.
inline constexpr std::string_view backgroundItems[] = {"Transparent + outline", "Black band"};

inline constexpr std::string_view folderTitle = "Subtitle folder";
inline constexpr std::string_view folderInitial = "—";
inline constexpr std::string_view chooseTitle = "Choose…";
// A check box: listen in short windows while playing and correct the offset
// when the sound and the subtitle drift apart; with what that means for
// the sound, in smaller type under it.
inline constexpr std::string_view listenAlwaysTitle = "Keep in sync by listening";
inline constexpr std::string_view listenPrivacy =
    "Sound is examined in memory only while listening, never written or sent anywhere.";
// The row's height, box and line, beyond the others.
inline constexpr double listenRowHeight = 40;
// Linux: a check box that adds Lumerix to the desktop's autostart.
inline constexpr std::string_view startAtLoginTitle = "Start at Login";

// Value labels, from the sliders' values: the font size truncated ("28"),
// the outline with one decimal ("7.0"), the opacity as a truncated percentage
// ("92%"; a product just below an integer shows one less, as it should).
std::string fontValueLabel(double value);
std::string strokeValueLabel(double value);
std::string alphaValueLabel(double value);
// The folder row: the full path, or how to get one.
std::string folderLabel(const std::optional<std::string>& folder);

// What the window shows when it is (re)opened.
struct Values {
  double fontSize = 0;
  double strokeWidth = 0;
  double alpha = 0;
  long long bgMode = 0;  // the pop-up's index
  std::string folder;    // the folder label's text
  bool listenAlways = false;
};

}  // namespace lumerix::prefs
