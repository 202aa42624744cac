#include "ui/StatusIcon.h"

namespace lumerix {

void drawStatusIcon(Canvas& c) {
  const Path card = Path().roundedRect({0.5, 0.5, 17, 17}, 4.5);
  c.setFillColor(RGBA::white(1, 1));
  c.fillPath(card);
  c.setStrokeColor(RGBA::white(0, 0.18));
  c.setLineWidth(0.5);
  c.strokePath(card);
  c.setFillColor(RGBA::white(0, 1));
  c.fillPath(Path().roundedRect({5.5, 9.6, 7.0, 2.6}, 1.3));   // the shorter, upper line
  c.fillPath(Path().roundedRect({3.5, 5.2, 11.0, 2.6}, 1.3));  // the longer, lower line
}

}  // namespace lumerix
