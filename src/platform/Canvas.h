#pragma once

#include <vector>

#include "platform/Geometry.h"
#include "platform/TextLayer.h"

namespace lumerix {

// An outline to fill or stroke: straight segments and rounded rectangles.
class Path {
 public:
  struct Element {
    enum class Kind { moveTo, lineTo, close, roundedRect };
    Kind kind;
    Point point;  // moveTo, lineTo
    Rect rect;    // roundedRect
    double radius = 0;
    bool operator==(const Element&) const = default;
  };

  Path& moveTo(Point p) { return add({Element::Kind::moveTo, p, {}, 0}); }
  Path& lineTo(Point p) { return add({Element::Kind::lineTo, p, {}, 0}); }
  Path& close() { return add({Element::Kind::close, {}, {}, 0}); }
  // A closed rectangle with circular corners of this radius.
  Path& roundedRect(const Rect& r, double radius) { return add({Element::Kind::roundedRect, {}, r, radius}); }

  const std::vector<Element>& elements() const { return items; }

 private:
  Path& add(Element e) {
    items.push_back(e);
    return *this;
  }
  std::vector<Element> items;
};

struct GradientStop {
  double location;  // 0 at the start point, 1 at the end point
  RGBA color;
};

enum class TextDrawingMode { fill, stroke, clip };
enum class LineJoin { miter, round };
// plusLighter adds the colours (a glint brightens what is under it).
enum class BlendMode { normal, plusLighter };

// The few drawing operations the nameplate and the status icon need. One
// implementation per platform's graphics library, and a recording one in
// the tests. Coordinates are points with the origin at the bottom left.
// Main thread only; no member throws.
//
// State (colours, line width and join, shadow, blend mode, clip) works as
// in Core Graphics and Cairo: it stays until changed or until the restore()
// matching the save() before the change.
class Canvas {
 public:
  virtual ~Canvas() = default;

  virtual void save() = 0;
  virtual void restore() = 0;

  virtual void setFillColor(const RGBA& color) = 0;
  virtual void setStrokeColor(const RGBA& color) = 0;
  virtual void setLineWidth(double width) = 0;
  virtual void setLineJoin(LineJoin join) = 0;
  // A blurred copy of what is drawn, offset by (dx, dy), under it.
  virtual void setShadow(double dx, double dy, double blur, const RGBA& color) = 0;
  virtual void setBlendMode(BlendMode mode) = 0;
  // Narrows the clip to the rectangle.
  virtual void clipToRect(const Rect& rect) = 0;

  virtual void fillRect(const Rect& rect) = 0;
  virtual void fillPath(const Path& path) = 0;
  virtual void strokePath(const Path& path) = 0;
  // Paints the clip with the gradient running from start to end; nothing
  // beyond either end (no extension).
  virtual void drawLinearGradient(const std::vector<GradientStop>& stops, Point start, Point end) = 0;

  // One line of text, shaped by the platform's text engine from the
  // layer's font request and kerning; a layer without a foreground takes
  // the fill colour (fill mode) or the stroke colour, line width and join
  // (stroke mode). The bounds are of the glyphs' outlines, relative to the
  // line's origin (the left end of its baseline).
  virtual Rect textLineBounds(const TextLayer& line) = 0;
  // Fill or stroke the glyphs, or in clip mode narrow the clip to them.
  virtual void drawTextLine(const TextLayer& line, Point origin, TextDrawingMode mode) = 0;
};

}  // namespace lumerix
