#include "overlay/TextLayers.h"

#include <algorithm>

#include "util/Unicode.h"

namespace lumerix {

std::vector<TextLayer> attributedLayers(const std::string& text, bool brand, double fontSize, double strokeWidth,
                                        long long bgMode) {
  if (brand) {
    TextLayer name;
    name.text = unicode::uppercased(text);
    name.font = {{"HelveticaNeue-CondensedBlack", "Futura-Bold"},
                 std::min(std::max(fontSize + 16, 40.0), 52.0),
                 FontRequest::SystemWeight::black};
    name.kerning = 4.0;
    return {name};
  }
  const FontRequest font{{"PingFangSC-Semibold"}, fontSize, FontRequest::SystemWeight::bold};
  std::vector<TextLayer> layers;
  // The band gives contrast of its own; only bare text gets an outline.
  if (bgMode == 0 && strokeWidth > 0) {
    layers.push_back({.text = text,
                      .font = font,
                      .strokeColor = RGBA::white(0, 1),
                      .strokeWidth = strokeWidth,
                      .shadow = Shadow{RGBA::white(0, 0.7), 2.5, 0, -1}});
  }
  layers.push_back({.text = text, .font = font, .foreground = RGBA::white(1, 1)});
  return layers;
}

}  // namespace lumerix
