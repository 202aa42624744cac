#pragma once

#include "platform/Canvas.h"

namespace lumerix {

// The menu-bar item's picture: a white card with two subtitle lines, in its
// own black and white (not a template the system recolours).
inline constexpr double statusIconSize = 18;

// Draws the icon into an 18 x 18 point canvas, origin bottom left. Scale the
// canvas first for other sizes.
void drawStatusIcon(Canvas& canvas);

}  // namespace lumerix
