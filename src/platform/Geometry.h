#pragma once

namespace lumerix {

// Points, origin bottom left, as the panel's views use them.
struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

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
  double minX() const { return x; }
  double maxX() const { return x + width; }
  double minY() const { return y; }
  double maxY() const { return y + height; }
  double midY() const { return y + height / 2; }
  bool operator==(const Rect&) const = default;
};

struct RGBA {
  double r = 0, g = 0, b = 0, a = 1;
  // A grey: level 0 is black, 1 white.
  static constexpr RGBA white(double level, double alpha) { return {level, level, level, alpha}; }
  bool operator==(const RGBA&) const = default;
};

}  // namespace lumerix
