#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TextLayer.h"

namespace lumerix {

// Subtitle text: [outline, fill] without a band and with a positive stroke
// width, [fill] otherwise. Brand: the upper-cased name in one layer.
std::vector<TextLayer> attributedLayers(const std::string& text, bool brand, double fontSize, double strokeWidth,
                                        long long bgMode);

// The second subtitle's text: the subtitle layers at its own size, the fill
// in its own colour.
std::vector<TextLayer> secondLayers(const std::string& text, double fontSize, double strokeWidth, long long bgMode,
                                    RGBA color);

// "#RRGGBB" in either case; anything else is absent.
std::optional<RGBA> colorFromHex(std::string_view hex);
std::string hexFromColor(RGBA color);

}  // namespace lumerix
