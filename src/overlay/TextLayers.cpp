#include "overlay/TextLayers.h"

#include <algorithm>
#include <cmath>

#include "util/Unicode.h"

namespace lumerix {

namespace {

// A settings file may hold any size at all; text engines count sizes in
// integers, so the layers never ask for more than any screen could show.
double renderable(double size) {
  return std::isnan(size) ? 0.0 : std::clamp(size, 0.0, 4096.0);
}

}  // namespace

std::vector<TextLayer> attributedLayers(const std::string& text, bool brand, double fontSize, double strokeWidth,
                                        long long bgMode) {
  fontSize = renderable(fontSize);
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
