#include "overlay/TextLayers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

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

std::vector<TextLayer> secondLayers(const std::string& text, double fontSize, double strokeWidth, long long bgMode,
                                    RGBA color) {
  std::vector<TextLayer> layers = attributedLayers(text, false, fontSize, strokeWidth, bgMode);
  layers.back().foreground = color;
  return layers;
}

std::optional<RGBA> colorFromHex(std::string_view hex) {
  if (hex.size() != 7 || hex[0] != '#') return std::nullopt;
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  double parts[3];
  for (int i = 0; i < 3; ++i) {
    const int hi = nibble(hex[1 + 2 * i]), lo = nibble(hex[2 + 2 * i]);
    if (hi < 0 || lo < 0) return std::nullopt;
    parts[i] = (hi * 16 + lo) / 255.0;
  }
  return RGBA{parts[0], parts[1], parts[2], 1};
}

std::string hexFromColor(RGBA color) {
  auto byte = [](double v) { return static_cast<unsigned>(std::lround(std::clamp(v, 0.0, 1.0) * 255)); };
  char text[8];
  std::snprintf(text, sizeof text, "#%02X%02X%02X", byte(color.r), byte(color.g), byte(color.b));
  return text;
}

}  // namespace lumerix
