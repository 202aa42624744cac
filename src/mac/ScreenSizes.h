#pragma once

#include <vector>

#include "platform/System.h"

namespace lumerix::mac {

// A screen as AppKit describes it: its frame's size and the height its
// camera housing (the notch) takes from the top, 0 where it has none.
struct ScreenShape {
  double width = 0;
  double height = 0;
  double topInset = 0;  // NSScreen.safeAreaInsets.top
};

// The sizes a full-screen window can have, in screen order: a screen's whole
// frame, and on a notched display also the frame less the notch's band,
// which is all a full-screen app gets there. Plain C++: tested on every
// platform.
inline std::vector<ScreenSize> fullScreenSizes(const std::vector<ScreenShape>& screens) {
  std::vector<ScreenSize> sizes;
  for (const ScreenShape& s : screens) {
    sizes.push_back({s.width, s.height});
    if (s.topInset > 0) sizes.push_back({s.width, s.height - s.topInset});
  }
  return sizes;
}

}  // namespace lumerix::mac
