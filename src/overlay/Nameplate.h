#pragma once

#include <cstdint>
#include <optional>

#include "platform/Canvas.h"

namespace lumerix {

// The brushed-metal hairlines' pseudo-random numbers. Seeded afresh for
// every frame, so the pattern is the same in each and does not shimmer.
class HairlineRandom {
 public:
  // In [0, 1].
  double next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>((state >> 33) & 0xFFFFFF) / 16777215.0;
  }

 private:
  std::uint64_t state = 0x9E3779B97F4A7C15ULL;
};

// The idle nameplate: the product name as an engraved metal plate between
// two rules, with a diagonal glint sweeping across during the first 45 % of
// every cycle. bounds: the text view's; phase: in [0, 1). A line whose
// glyphs have no width draws nothing at all.
void drawBrand(Canvas& canvas, const Rect& bounds, const TextLayer& line, double phase);

// The same nameplate in two parts, for a shell that keeps the still part
// between frames: drawBrand is the plate with the glint drawn over it. The
// glint only adds light inside the glyphs, so a cached plate plus a fresh
// glint gives the same pixels as drawBrand.
void drawBrandPlate(Canvas& canvas, const Rect& bounds, const TextLayer& line);
void drawBrandGlint(Canvas& canvas, const Rect& bounds, const TextLayer& line, double phase);
// The box the glyphs fill in the view, the only place the glint lights;
// absent when the line draws nothing.
std::optional<Rect> brandGlyphBox(Canvas& canvas, const Rect& bounds, const TextLayer& line);
// Whether the glint is on the plate at this phase; past the sweep every
// frame looks like the plate alone.
bool brandGlintShows(double phase);
// The part of the glyph box the glint lights at this phase: a frame that
// moves it need only redraw where it was and where it is. Absent past the
// sweep, or when the glint is beside the glyphs.
std::optional<Rect> brandGlintBand(const Rect& glyphBox, double phase);

}  // namespace lumerix
