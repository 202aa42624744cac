#pragma once

#include <cairo.h>
#include <pango/pango.h>

#include <memory>
#include <vector>

#include "gtk/PangoText.h"
#include "platform/Canvas.h"

namespace lumerix::gtk {

// One shaped line kept between frames: the nameplate draws the same line
// seven times a frame, twenty frames a second.
class LineCache {
 public:
  explicit LineCache(TextEngine& engine) : engine(engine) {}
  ~LineCache();
  LineCache(const LineCache&) = delete;
  LineCache& operator=(const LineCache&) = delete;
  PangoLayout* layoutFor(const TextLayer& line);
  // Makes the line's glyph outlines the current path of cr, with the line's
  // origin at the current user-space origin; the last outline is kept and
  // replayed while the line and the transformation stay the same.
  void appendOutline(cairo_t* cr, const TextLayer& line);
  TextEngine& text() { return engine; }

 private:
  TextEngine& engine;
  TextLayer key;
  PangoLayout* cached = nullptr;
  cairo_path_t* outline = nullptr;  // for `key`, built under outlineMatrix
  cairo_matrix_t outlineMatrix{};
};

// The Canvas on Cairo, text by Pango. The view's origin is at the bottom
// left, as the core draws: the canvas flips the context it is given, whose
// origin must be the view's top left, for its lifetime (restored after).
// Shadows are drawn as Core Graphics draws them: a blurred copy of each
// shape, offset in device space, under it.
class CairoCanvas : public Canvas {
 public:
  CairoCanvas(cairo_t* cr, double viewHeight, LineCache& lines);
  ~CairoCanvas() override;
  CairoCanvas(const CairoCanvas&) = delete;
  CairoCanvas& operator=(const CairoCanvas&) = delete;

  void save() override;
  void restore() override;
  void setFillColor(const RGBA& color) override { state.back().fill = color; }
  void setStrokeColor(const RGBA& color) override { state.back().stroke = color; }
  void setLineWidth(double width) override;
  void setLineJoin(LineJoin join) override;
  void setShadow(double dx, double dy, double blur, const RGBA& color) override;
  void setBlendMode(BlendMode mode) override;
  void clipToRect(const Rect& rect) override;
  void fillRect(const Rect& rect) override;
  void fillPath(const Path& path) override;
  void strokePath(const Path& path) override;
  void drawLinearGradient(const std::vector<GradientStop>& stops, Point start, Point end) override;
  Rect textLineBounds(const TextLayer& line) override;
  void drawTextLine(const TextLayer& line, Point origin, TextDrawingMode mode) override;

  // A subtitle layer: its lines wrapped at the frame's width and centred,
  // the first line at the frame's top; stroked or filled as the layer
  // says, over its shadow.
  void drawTextBlock(const TextLayer& layer, const Rect& frame);

 private:
  struct State {
    RGBA fill{0, 0, 0, 1};
    RGBA stroke{0, 0, 0, 1};
    bool shadowed = false;
    double shadowDx = 0, shadowDy = 0, shadowBlur = 0;
    RGBA shadowColor;
  };
  // Fills or strokes the context's current path (then clears it), with the
  // shadow when one is set.
  void paintPath(bool stroke, const RGBA& color);
  void paintShadow(bool stroke);
  void appendPath(const Path& path);
  static void setSource(cairo_t* cr, const RGBA& color);

  cairo_t* cr;
  LineCache& lines;
  std::vector<State> state{State{}};
};

// Adds a closed rectangle with circular corners to the current path.
void roundedRectPath(cairo_t* cr, const Rect& r, double radius);

// Both the status icon and the application icon: the core's drawing at
// size x size pixels, on a transparent ground.
cairo_surface_t* drawIconSurface(int size, TextEngine& engine);

}  // namespace lumerix::gtk
