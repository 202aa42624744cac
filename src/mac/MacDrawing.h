#pragma once

// The overlay's text and the core's drawings in AppKit, Core Text and Core
// Graphics (Objective-C++ only).

#import <AppKit/AppKit.h>
#import <CoreText/CoreText.h>

#include <optional>

#include "platform/Canvas.h"
#include "platform/TextLayer.h"

namespace lumerix::mac {

// One of the controller's layers as AppKit text: centred, the first font of
// the request that exists (else the system font at its weight), AppKit's
// stroke (a positive width strokes without filling), shadow and kerning;
// with no foreground colour, the drawing context's.
NSAttributedString* attributedString(const TextLayer& layer);

// A canvas on a Core Graphics context, for the duration of one drawing pass.
class MacCanvas final : public Canvas {
 public:
  explicit MacCanvas(CGContextRef context) : ctx(context) {}
  ~MacCanvas() override;
  MacCanvas(const MacCanvas&) = delete;
  MacCanvas& operator=(const MacCanvas&) = delete;

  void save() override;
  void restore() override;
  void setFillColor(const RGBA& color) override;
  void setStrokeColor(const RGBA& color) override;
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

 private:
  void addPath(const Path& path);
  // The typeset line of the layer; a drawing uses one layer several times.
  CTLineRef typeset(const TextLayer& layer);

  CGContextRef ctx;
  std::optional<TextLayer> lineLayer;
  CTLineRef line = nullptr;
};

}  // namespace lumerix::mac
