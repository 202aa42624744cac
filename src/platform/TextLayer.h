#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace lumerix {

// A font by preference: the first family the platform has, else the system
// font at the given weight.
struct FontRequest {
  enum class SystemWeight { bold, black };
  std::vector<std::string> families;
  double size = 0;
  SystemWeight fallback = SystemWeight::bold;
  bool operator==(const FontRequest&) const = default;
};

struct Shadow {
  RGBA color;
  double blur = 0;
  double dx = 0, dy = 0;
  bool operator==(const Shadow&) const = default;
};

// One attributed string of the overlay, painted over the ones before it.
// Always centred. A shell turns it into its own attributed text.
struct TextLayer {
  std::string text;
  FontRequest font{};
  std::optional<RGBA> foreground = std::nullopt;  // absent: the drawing context's colour
  std::optional<RGBA> strokeColor = std::nullopt;
  double strokeWidth = 0;  // percent of the font size; positive strokes without filling
  std::optional<Shadow> shadow = std::nullopt;
  double kerning = 0;  // extra points between characters
  bool operator==(const TextLayer&) const = default;
};

}  // namespace lumerix
