#pragma once

namespace lumerix::gtk {

// Blurs an 8-bit alpha image in place, close to a Gaussian of this standard
// deviation in pixels (three box passes each way), for shadows: Cairo has
// no blur of its own. Pixels beyond the edges count as transparent.
void blurAlpha(unsigned char* pixels, int width, int height, int stride, double sigma);

}  // namespace lumerix::gtk
