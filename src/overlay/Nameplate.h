#pragma once

#include <cstdint>

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

}  // namespace lumerix
