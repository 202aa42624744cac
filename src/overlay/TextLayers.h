#pragma once

#include <string>
#include <vector>

#include "platform/TextLayer.h"

namespace lumerix {

// Subtitle text: [outline, fill] without a band and with a positive stroke
// width, [fill] otherwise. Brand: the upper-cased name in one layer.
std::vector<TextLayer> attributedLayers(const std::string& text, bool brand, double fontSize, double strokeWidth,
                                        long long bgMode);

}  // namespace lumerix
