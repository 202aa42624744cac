#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Geometry.h"

// The bar's geometry on a Linux desktop, where the window manager neither
// moves, resizes nor remembers it. Pure: no display needed.
//
// Two coordinate systems meet here. The controller's frames have their
// origin at the bottom left of the main monitor, y upwards; the desktop's
// (X11, the layer shell's margins) at the top left, y downwards.
namespace lumerix::gtk {

Rect toDesktop(const Rect& frame, const Rect& mainMonitor);
Rect fromDesktop(const Rect& desktop, const Rect& mainMonitor);

// The frame as kept in the settings store ("x y width height", the
// controller's coordinates), and read back; nonsense reads as absent.
std::string frameString(const Rect& frame);
std::optional<Rect> parseFrameString(std::string_view text);

// A saved frame brought onto the monitors as they are now (desktop
// coordinates): onto the one it overlaps most, or the first when it
// overlaps none; no smaller than minSize, and no larger than that monitor
// unless minSize needs it.
Rect clampOntoMonitors(Rect frame, const std::vector<Rect>& monitors, Size minSize);

// Which of the monitors holds the frame: the one it overlaps most, the
// first when it overlaps none; -1 when there are none. A layer surface is
// put on that output and its margins are measured from it.
int monitorHolding(const Rect& frame, const std::vector<Rect>& monitors);

// Edges of the window, as a bit set.
enum Edge : unsigned { none = 0, left = 1, right = 2, top = 4, bottom = 8 };

// The edges a pointer at (x, y) in a window of this size grabs, counting a
// band this wide along each edge; corners grab two.
unsigned edgesAt(double x, double y, Size window, double band);

// The frame (desktop coordinates) after dragging these edges by (dx, dy)
// from where the drag started; an edge stops where the size would go
// below minSize, the opposite edge stays put.
Rect resizedFrame(const Rect& start, unsigned edges, double dx, double dy, Size minSize);

// The cursor shown over these edges, a CSS cursor name; empty: the default.
const char* cursorForEdges(unsigned edges);

}  // namespace lumerix::gtk
