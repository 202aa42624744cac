#include "gtk/Blur.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace lumerix::gtk {

namespace {

// One box pass along a line of n samples `step` apart, radius r, through a
// scratch copy so the running sum reads the unblurred values.
void boxLine(unsigned char* line, int n, int step, int r, std::vector<int>& scratch) {
  scratch.resize(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) scratch[static_cast<std::size_t>(i)] = line[i * step];
  const int width = 2 * r + 1;
  int sum = 0;
  for (int i = 0; i <= r && i < n; ++i) sum += scratch[static_cast<std::size_t>(i)];
  for (int i = 0; i < n; ++i) {
    line[i * step] = static_cast<unsigned char>((sum + width / 2) / width);
    const int in = i + r + 1, out = i - r;
    if (in < n) sum += scratch[static_cast<std::size_t>(in)];
    if (out >= 0) sum -= scratch[static_cast<std::size_t>(out)];
  }
}

}  // namespace

void blurAlpha(unsigned char* pixels, int width, int height, int stride, double sigma) {
  if (!(sigma > 0) || width <= 0 || height <= 0) return;
  // Three boxes of width w approach a Gaussian of variance 3 (w^2 - 1) / 12.
  const int r = std::max(1, static_cast<int>(std::lround((std::sqrt(4 * sigma * sigma + 1) - 1) / 2)));
  std::vector<int> scratch;
  for (int pass = 0; pass < 3; ++pass) {
    for (int y = 0; y < height; ++y) boxLine(pixels + y * stride, width, 1, r, scratch);
    for (int x = 0; x < width; ++x) boxLine(pixels + x, height, stride, r, scratch);
  }
}

}  // namespace lumerix::gtk
