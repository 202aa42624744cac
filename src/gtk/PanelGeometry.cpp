#include "gtk/PanelGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "util/Numbers.h"

namespace lumerix::gtk {

Rect toDesktop(const Rect& f, const Rect& main) {
  return {main.x + f.x, main.y + main.height - f.y - f.height, f.width, f.height};
}

Rect fromDesktop(const Rect& d, const Rect& main) {
  return {d.x - main.x, main.y + main.height - d.y - d.height, d.width, d.height};
}

std::string frameString(const Rect& f) {
  return cFormat("%.10g %.10g %.10g %.10g", f.x, f.y, f.width, f.height);
}

std::optional<Rect> parseFrameString(std::string_view text) {
  double v[4];
  std::size_t at = 0;
  for (double& value : v) {
    while (at < text.size() && text[at] == ' ') ++at;
    std::size_t end = text.find(' ', at);
    if (end == std::string_view::npos) end = text.size();
    // Builds that followed the locale wrote "192,5" in some languages: read
    // those frames back too, so nobody's saved place is lost.
    std::string token(text.substr(at, end - at));
    std::replace(token.begin(), token.end(), ',', '.');
    const auto number = parseDecimal(token);
    if (!number || !std::isfinite(*number)) return std::nullopt;
    value = *number;
    at = end;
  }
  if (text.find_first_not_of(' ', at) != std::string_view::npos) return std::nullopt;
  if (!(v[2] > 0) || !(v[3] > 0)) return std::nullopt;
  return Rect{v[0], v[1], v[2], v[3]};
}

namespace {

double overlap(const Rect& a, const Rect& b) {
  const double w = std::min(a.maxX(), b.maxX()) - std::max(a.minX(), b.minX());
  const double h = std::min(a.maxY(), b.maxY()) - std::max(a.minY(), b.minY());
  return w > 0 && h > 0 ? w * h : 0;
}

}  // namespace

int monitorHolding(const Rect& frame, const std::vector<Rect>& monitors) {
  if (monitors.empty()) return -1;
  int best = 0;
  double most = 0;
  for (std::size_t i = 0; i < monitors.size(); ++i) {
    if (const double o = overlap(frame, monitors[i]); o > most) {
      most = o;
      best = static_cast<int>(i);
    }
  }
  return best;
}

Rect clampOntoMonitors(Rect f, const std::vector<Rect>& monitors, Size minSize) {
  f.width = std::max(f.width, minSize.width);
  f.height = std::max(f.height, minSize.height);
  if (monitors.empty()) return f;
  const Rect& m = monitors[static_cast<std::size_t>(monitorHolding(f, monitors))];
  f.width = std::max(std::min(f.width, m.width), minSize.width);
  f.height = std::max(std::min(f.height, m.height), minSize.height);
  f.x = std::max(std::min(f.x, m.maxX() - f.width), m.minX());
  f.y = std::max(std::min(f.y, m.maxY() - f.height), m.minY());
  return f;
}

unsigned edgesAt(double x, double y, Size window, double band) {
  unsigned edges = Edge::none;
  if (x < band) edges |= Edge::left;
  if (x >= window.width - band) edges |= Edge::right;
  if (y < band) edges |= Edge::top;
  if (y >= window.height - band) edges |= Edge::bottom;
  // A window too small for two bands: the nearer edge wins.
  if ((edges & Edge::left) && (edges & Edge::right)) edges &= x < window.width / 2 ? ~Edge::right : ~Edge::left;
  if ((edges & Edge::top) && (edges & Edge::bottom)) edges &= y < window.height / 2 ? ~Edge::bottom : ~Edge::top;
  return edges;
}

Rect resizedFrame(const Rect& s, unsigned edges, double dx, double dy, Size minSize) {
  Rect f = s;
  if (edges & Edge::right) f.width = std::max(s.width + dx, minSize.width);
  if (edges & Edge::left) {
    f.width = std::max(s.width - dx, minSize.width);
    f.x = s.maxX() - f.width;
  }
  if (edges & Edge::bottom) f.height = std::max(s.height + dy, minSize.height);
  if (edges & Edge::top) {
    f.height = std::max(s.height - dy, minSize.height);
    f.y = s.maxY() - f.height;
  }
  return f;
}

const char* cursorForEdges(unsigned edges) {
  switch (edges) {
    case Edge::left:
    case Edge::right:
      return "ew-resize";
    case Edge::top:
    case Edge::bottom:
      return "ns-resize";
    case Edge::left | Edge::top:
    case Edge::right | Edge::bottom:
      return "nwse-resize";
    case Edge::right | Edge::top:
    case Edge::left | Edge::bottom:
      return "nesw-resize";
    default:
      return "";
  }
}

}  // namespace lumerix::gtk
