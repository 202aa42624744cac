#pragma once

#include <pango/pango.h>

#include <set>
#include <string>

#include "platform/Geometry.h"
#include "platform/TextLayer.h"

namespace lumerix::gtk {

// Text layers as Pango layouts. Sizes are absolute (a 28-point layer is 28
// pixels high at scale 1, as on the bar's first platform), whatever the
// screen's DPI setting. Main thread only.
class TextEngine {
 public:
  // systemFamily: the desktop's interface font; fallback for every request.
  explicit TextEngine(std::string systemFamily);
  ~TextEngine();
  TextEngine(const TextEngine&) = delete;
  TextEngine& operator=(const TextEngine&) = delete;

  // The first requested family that is installed, else the system family
  // at the request's weight. Han, kana and hangul the chosen face lacks
  // come from fontconfig's fallback for the same weight (a bold CJK face
  // when one is installed).
  PangoFontDescription* describe(const FontRequest& font);
  // The system font at this size, regular: the status line's.
  PangoFontDescription* systemFont(double size);

  // A new layout of the layer's text, centred; wrapping at width when
  // width > 0, else one line. The caller unrefs it.
  PangoLayout* layout(const TextLayer& layer, double width);
  // The status line's layout: the system font at this size, one line
  // centred in width and ellipsized at its end. The caller unrefs it.
  PangoLayout* statusLayout(double size, double width);
  // A layout with nothing set yet, on the same context. The caller unrefs it.
  PangoLayout* emptyLayout() { return pango_layout_new(context); }
  // The size of the layer laid out no wider than bounds.width.
  Size measure(const TextLayer& layer, Size bounds);

  const std::string& systemFamily() const { return system; }

 private:
  bool installed(const std::string& family);

  std::string system;
  PangoFontMap* fontMap;  // not owned: the process's default
  PangoContext* context;
  std::set<std::string> families;  // installed, folded to lower case; read once
};

// The desktop's interface font family (GTK's font setting), "Sans" when
// it names none.
std::string desktopFontFamily();

}  // namespace lumerix::gtk
