#pragma once

namespace lumerix {

// Points, origin bottom left, as the panel's views use them.
struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const Rect&) const = default;
};

struct RGBA {
  double r = 0, g = 0, b = 0, a = 1;
  static constexpr RGBA white(double level, double alpha) { return {level, level, level, alpha}; }
  bool operator==(const RGBA&) const = default;
};

}  // namespace lumerix
