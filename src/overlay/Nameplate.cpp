#include "overlay/Nameplate.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace lumerix {

namespace {

RGBA rgb(double r, double g, double b) {
  return {r, g, b, 1};
}

// A rectangle filled with a gradient that runs from its left edge to its right.
void horizontalGradient(Canvas& c, const Rect& r, const RGBA& from, const RGBA& to) {
  c.save();
  c.clipToRect(r);
  c.drawLinearGradient({{0, from}, {1, to}}, {r.minX(), r.midY()}, {r.maxX(), r.midY()});
  c.restore();
}

void finial(Canvas& c, double cx, double y) {
  c.save();
  c.setShadow(0, -1, 3, RGBA::white(0, 0.7));
  c.setFillColor(RGBA::white(1, 0.92));
  c.fillPath(Path().moveTo({cx, y + 4.5}).lineTo({cx + 4.5, y}).lineTo({cx, y - 4.5}).lineTo({cx - 4.5, y}).close());
  c.restore();
}

// Where the line sits: its origin and its glyph box G, centred in the view.
struct Placement {
  double tx, ty;
  Rect g;
};

std::optional<Placement> place(Canvas& c, const Rect& bounds, const TextLayer& line) {
  const Rect glyphs = c.textLineBounds(line);
  const double lw = glyphs.width, lh = glyphs.height;
  if (!(lw > 0)) return std::nullopt;
  const double tx = (bounds.width - lw) / 2 - glyphs.x;
  const double ty = (bounds.height - lh) / 2 - glyphs.y;
  return Placement{tx, ty, {glyphs.x + tx, glyphs.y + ty, lw, lh}};
}

constexpr double kGlintWidth = 95;

// Where the glint's gradient starts at this phase (it runs kGlintWidth to
// the right and the glyph box's height down).
double glintStart(const Rect& g, double p) {
  return g.minX() - kGlintWidth + p * (g.width + 2 * kGlintWidth);
}

// Adds the glint; the clip is already the glyphs'.
void glint(Canvas& c, const Rect& g, double phase) {
  const double p = phase / 0.45;
  if (!(p < 1)) return;
  c.setBlendMode(BlendMode::plusLighter);
  const double sx = glintStart(g, p);
  c.drawLinearGradient({{0, RGBA::white(1, 0)}, {0.5, RGBA::white(1, 0.75)}, {1, RGBA::white(1, 0)}}, {sx, g.minY()},
                       {sx + kGlintWidth, g.maxY()});
  c.setBlendMode(BlendMode::normal);
}

// The whole nameplate, or without its glint when phase is absent.
void drawNameplate(Canvas& c, const Rect& bounds, const TextLayer& line, std::optional<double> phase) {
  const auto at = place(c, bounds, line);
  if (!at) return;
  const double tx = at->tx, ty = at->ty, lw = at->g.width, lh = at->g.height;
  const Rect g = at->g;
  const double my = g.midY();

  // Side rules only where there is room for them to read as rules.
  const double ruleLength = std::min((bounds.width - lw) / 2 - 34 - 12, 130.0);
  if (ruleLength > 24) {
    const double x0 = g.minX() - 34 - ruleLength;
    horizontalGradient(c, {x0, my - 1.8, ruleLength, 3.6}, RGBA::white(0, 0), RGBA::white(0, 0.55));
    horizontalGradient(c, {x0, my - 0.75, ruleLength, 1.5}, RGBA::white(1, 0), RGBA::white(1, 0.85));
    const double x1 = g.maxX() + 34;
    horizontalGradient(c, {x1, my - 1.8, ruleLength, 3.6}, RGBA::white(0, 0.55), RGBA::white(0, 0));
    horizontalGradient(c, {x1, my - 0.75, ruleLength, 1.5}, RGBA::white(1, 0.85), RGBA::white(1, 0));
    finial(c, g.minX() - 17, my);
    finial(c, g.maxX() + 17, my);
  }

  // Dark outline.
  c.save();
  c.setStrokeColor(RGBA::white(0, 0.9));
  c.setLineWidth(std::max(lh * 0.13, 3.2));
  c.setLineJoin(LineJoin::round);
  c.drawTextLine(line, {tx, ty}, TextDrawingMode::stroke);
  c.restore();

  // The body, lifted off the panel by its shadow.
  c.save();
  c.setFillColor(rgb(0.46, 0.49, 0.54));
  c.setShadow(0, -2.5, 7, RGBA::white(0, 0.65));
  c.drawTextLine(line, {tx, ty}, TextDrawingMode::fill);
  c.restore();

  // Engraved face: everything from here on stays inside the letters.
  c.save();
  c.drawTextLine(line, {tx, ty}, TextDrawingMode::clip);
  const double d = std::max(lh * 0.05, 1.4);
  c.setFillColor(rgb(0.09, 0.10, 0.13));
  c.fillRect(g);
  c.setFillColor(rgb(0.93, 0.95, 0.98));  // a light edge along the tops of the letters
  c.drawTextLine(line, {tx, ty + d}, TextDrawingMode::fill);
  c.setFillColor(rgb(0.44, 0.47, 0.52));
  c.drawTextLine(line, {tx, ty - d}, TextDrawingMode::fill);

  HairlineRandom random;
  for (double x = g.minX() - 2 * lh; x < g.maxX();) {
    const double grey = random.next() > 0.55 ? 1.0 : 0.0;
    c.setStrokeColor(RGBA::white(grey, random.next() * 0.12 + 0.05));
    c.setLineWidth(random.next() * 0.9 + 0.5);
    c.strokePath(Path().moveTo({x, g.minY()}).lineTo({x + 2 * lh, g.maxY()}));
    x += random.next() * 2.2 + 1.2;
  }

  // The glint, for the first 45 % of each cycle.
  if (phase) glint(c, g, *phase);
  c.restore();
}

}  // namespace

void drawBrand(Canvas& c, const Rect& bounds, const TextLayer& line, double phase) {
  drawNameplate(c, bounds, line, phase);
}

void drawBrandPlate(Canvas& c, const Rect& bounds, const TextLayer& line) {
  drawNameplate(c, bounds, line, std::nullopt);
}

void drawBrandGlint(Canvas& c, const Rect& bounds, const TextLayer& line, double phase) {
  if (!brandGlintShows(phase)) return;
  const auto at = place(c, bounds, line);
  if (!at) return;
  c.save();
  c.drawTextLine(line, {at->tx, at->ty}, TextDrawingMode::clip);
  glint(c, at->g, phase);
  c.restore();
}

std::optional<Rect> brandGlyphBox(Canvas& c, const Rect& bounds, const TextLayer& line) {
  const auto at = place(c, bounds, line);
  if (!at) return std::nullopt;
  return at->g;
}

bool brandGlintShows(double phase) {
  return phase / 0.45 < 1;
}

std::optional<Rect> brandGlintBand(const Rect& g, double phase) {
  if (!brandGlintShows(phase)) return std::nullopt;
  // The gradient runs along (w, h): it is lit where a point's projection on
  // that vector falls inside it, which on any row is w + h²/w wide, slid
  // left by up to h²/w from the top row to the bottom one.
  const double sx = glintStart(g, phase / 0.45);
  const double slide = g.height * g.height / kGlintWidth;
  const double left = std::max(g.minX(), std::floor(sx - slide) - 1);
  const double right = std::min(g.maxX(), std::ceil(sx + kGlintWidth + slide) + 1);
  if (!(right > left)) return std::nullopt;
  return Rect{left, g.y, right - left, g.height};
}

}  // namespace lumerix
