#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Canvas.h"

namespace lumerix::test {

// Writes down every drawing call, one short line each, numbers as %g. Text
// lines all have the same glyph bounds, set by the test.
class RecordingCanvas : public Canvas {
 public:
  std::vector<std::string> ops;
  Rect lineBounds;
  int depth = 0;  // saves not yet restored

  void save() override {
    ++depth;
    ops.push_back("save");
  }
  void restore() override {
    --depth;
    ops.push_back("restore");
  }
  void setFillColor(const RGBA& c) override { ops.push_back("fill " + color(c)); }
  void setStrokeColor(const RGBA& c) override { ops.push_back("stroke " + color(c)); }
  void setLineWidth(double w) override { ops.push_back("width " + num(w)); }
  void setLineJoin(LineJoin j) override { ops.push_back(j == LineJoin::round ? "join round" : "join miter"); }
  void setShadow(double dx, double dy, double blur, const RGBA& c) override {
    ops.push_back("shadow " + num(dx) + "," + num(dy) + " blur " + num(blur) + " " + color(c));
  }
  void setBlendMode(BlendMode m) override {
    ops.push_back(m == BlendMode::plusLighter ? "blend plus" : "blend normal");
  }
  void clipToRect(const Rect& r) override { ops.push_back("clipRect " + rect(r)); }
  void fillRect(const Rect& r) override { ops.push_back("fillRect " + rect(r)); }
  void fillPath(const Path& p) override { ops.push_back("fillPath " + path(p)); }
  void strokePath(const Path& p) override { ops.push_back("strokePath " + path(p)); }
  void drawLinearGradient(const std::vector<GradientStop>& stops, Point a, Point b) override {
    std::string s = "gradient " + point(a) + "->" + point(b);
    for (const GradientStop& stop : stops) s += " " + num(stop.location) + ":" + color(stop.color);
    ops.push_back(s);
  }
  Rect textLineBounds(const TextLayer&) override { return lineBounds; }
  void drawTextLine(const TextLayer& line, Point origin, TextDrawingMode mode) override {
    const char* m = mode == TextDrawingMode::fill ? "fill" : mode == TextDrawingMode::stroke ? "stroke" : "clip";
    ops.push_back(std::string("text ") + m + " " + line.text + " at " + point(origin));
  }

  static std::string num(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%g", v);
    return b;
  }
  static std::string point(Point p) { return num(p.x) + "," + num(p.y); }
  static std::string rect(const Rect& r) {
    return num(r.x) + "," + num(r.y) + "," + num(r.width) + "," + num(r.height);
  }
  static std::string color(const RGBA& c) {
    return c.r == c.g && c.g == c.b ? "grey " + num(c.r) + "/" + num(c.a)
                                    : "rgb " + num(c.r) + "," + num(c.g) + "," + num(c.b) + "/" + num(c.a);
  }
  static std::string path(const Path& p) {
    std::string s;
    for (const Path::Element& e : p.elements()) {
      if (!s.empty()) s += " ";
      switch (e.kind) {
        case Path::Element::Kind::moveTo:
          s += "M" + point(e.point);
          break;
        case Path::Element::Kind::lineTo:
          s += "L" + point(e.point);
          break;
        case Path::Element::Kind::close:
          s += "Z";
          break;
        case Path::Element::Kind::roundedRect:
          s += "R" + rect(e.rect) + " r" + num(e.radius);
          break;
      }
    }
    return s;
  }
};

}  // namespace lumerix::test
