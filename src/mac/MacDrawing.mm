#import "mac/MacDrawing.h"

#include <algorithm>

#import "mac/Conversions.h"

namespace lumerix::mac {

namespace {

NSFont* fontFor(const FontRequest& request) {
  for (const std::string& family : request.families) {
    if (NSFont* font = [NSFont fontWithName:nsString(family) size:request.size]) return font;
  }
  return request.fallback == FontRequest::SystemWeight::black
             ? [NSFont systemFontOfSize:request.size weight:NSFontWeightBlack]
             : [NSFont boldSystemFontOfSize:request.size];
}

}  // namespace

NSAttributedString* attributedString(const TextLayer& layer) {
  NSMutableParagraphStyle* paragraph = [NSMutableParagraphStyle new];
  paragraph.alignment = NSTextAlignmentCenter;
  NSMutableDictionary<NSAttributedStringKey, id>* attributes = [NSMutableDictionary dictionary];
  attributes[NSFontAttributeName] = fontFor(layer.font);
  attributes[NSParagraphStyleAttributeName] = paragraph;
  if (layer.foreground) {
    attributes[NSForegroundColorAttributeName] = nsColor(*layer.foreground);
  } else {
    attributes[(__bridge NSString*)kCTForegroundColorFromContextAttributeName] = @YES;
  }
  if (layer.strokeColor) attributes[NSStrokeColorAttributeName] = nsColor(*layer.strokeColor);
  if (layer.strokeWidth != 0) attributes[NSStrokeWidthAttributeName] = @(layer.strokeWidth);
  if (layer.shadow) {
    NSShadow* shadow = [NSShadow new];
    shadow.shadowColor = nsColor(layer.shadow->color);
    shadow.shadowBlurRadius = layer.shadow->blur;
    shadow.shadowOffset = NSMakeSize(layer.shadow->dx, layer.shadow->dy);
    attributes[NSShadowAttributeName] = shadow;
  }
  // Zero would turn the font's own kerning off, not leave it alone.
  if (layer.kerning != 0) attributes[NSKernAttributeName] = @(layer.kerning);
  return [[NSAttributedString alloc] initWithString:nsString(layer.text) attributes:attributes];
}

MacCanvas::~MacCanvas() {
  if (line) CFRelease(line);
}

void MacCanvas::save() {
  CGContextSaveGState(ctx);
}

void MacCanvas::restore() {
  CGContextRestoreGState(ctx);
}

void MacCanvas::setFillColor(const RGBA& color) {
  CGContextSetFillColorWithColor(ctx, nsColor(color).CGColor);
}

void MacCanvas::setStrokeColor(const RGBA& color) {
  CGContextSetStrokeColorWithColor(ctx, nsColor(color).CGColor);
}

void MacCanvas::setLineWidth(double width) {
  CGContextSetLineWidth(ctx, width);
}

void MacCanvas::setLineJoin(LineJoin join) {
  CGContextSetLineJoin(ctx, join == LineJoin::round ? kCGLineJoinRound : kCGLineJoinMiter);
}

void MacCanvas::setShadow(double dx, double dy, double blur, const RGBA& color) {
  CGContextSetShadowWithColor(ctx, CGSizeMake(dx, dy), blur, nsColor(color).CGColor);
}

void MacCanvas::setBlendMode(BlendMode mode) {
  CGContextSetBlendMode(ctx, mode == BlendMode::plusLighter ? kCGBlendModePlusLighter : kCGBlendModeNormal);
}

void MacCanvas::clipToRect(const Rect& rect) {
  CGContextClipToRect(ctx, nsRect(rect));
}

void MacCanvas::fillRect(const Rect& rect) {
  CGContextFillRect(ctx, nsRect(rect));
}

void MacCanvas::addPath(const Path& path) {
  CGMutablePathRef p = CGPathCreateMutable();
  for (const Path::Element& e : path.elements()) {
    switch (e.kind) {
      case Path::Element::Kind::moveTo:
        CGPathMoveToPoint(p, nullptr, e.point.x, e.point.y);
        break;
      case Path::Element::Kind::lineTo:
        CGPathAddLineToPoint(p, nullptr, e.point.x, e.point.y);
        break;
      case Path::Element::Kind::close:
        CGPathCloseSubpath(p);
        break;
      case Path::Element::Kind::roundedRect: {
        // Core Graphics refuses corners wider than half a side.
        const double r = std::max(0.0, std::min({e.radius, e.rect.width / 2, e.rect.height / 2}));
        CGPathAddRoundedRect(p, nullptr, nsRect(e.rect), r, r);
        break;
      }
    }
  }
  CGContextAddPath(ctx, p);
  CGPathRelease(p);
}

void MacCanvas::fillPath(const Path& path) {
  addPath(path);
  CGContextFillPath(ctx);
}

void MacCanvas::strokePath(const Path& path) {
  addPath(path);
  CGContextStrokePath(ctx);
}

void MacCanvas::drawLinearGradient(const std::vector<GradientStop>& stops, Point start, Point end) {
  std::vector<CGFloat> components, locations;
  for (const GradientStop& s : stops) {
    components.insert(components.end(), {s.color.r, s.color.g, s.color.b, s.color.a});
    locations.push_back(s.location);
  }
  CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
  CGGradientRef gradient =
      CGGradientCreateWithColorComponents(space, components.data(), locations.data(), stops.size());
  if (gradient) {
    CGContextDrawLinearGradient(ctx, gradient, CGPointMake(start.x, start.y), CGPointMake(end.x, end.y), 0);
    CGGradientRelease(gradient);
  }
  CGColorSpaceRelease(space);
}

CTLineRef MacCanvas::typeset(const TextLayer& layer) {
  if (!line || !(*lineLayer == layer)) {
    if (line) CFRelease(line);
    line = CTLineCreateWithAttributedString((__bridge CFAttributedStringRef)attributedString(layer));
    lineLayer = layer;
  }
  return line;
}

Rect MacCanvas::textLineBounds(const TextLayer& layer) {
  return rect(CTLineGetBoundsWithOptions(typeset(layer), kCTLineBoundsUseGlyphPathBounds));
}

void MacCanvas::drawTextLine(const TextLayer& layer, Point origin, TextDrawingMode mode) {
  CTLineRef l = typeset(layer);
  CGContextSetTextMatrix(ctx, CGAffineTransformIdentity);
  CGContextSetTextDrawingMode(ctx, mode == TextDrawingMode::fill     ? kCGTextFill
                                   : mode == TextDrawingMode::stroke ? kCGTextStroke
                                                                     : kCGTextClip);
  CGContextSetTextPosition(ctx, origin.x, origin.y);
  CTLineDraw(l, ctx);
}

}  // namespace lumerix::mac
