#pragma once

#include <optional>
#include <string>
#include <vector>

#include "overlay/TextLayers.h"
#include "platform/Geometry.h"

namespace lumerix {

// Everything the shell needs to build the floating panel; all of it decided
// by the core.
struct PanelConfig {
  Rect frame;                              // used unless a saved frame exists under autosaveName
  int level = 101;                         // above normal floating windows
  unsigned long collectionBehavior = 273;  // all spaces | stationary | full-screen auxiliary
  bool nonActivating = true;               // clicking it does not activate the application
  bool resizable = true;
  double alpha = 0.92;
  Size minSize{320, 90};
  std::string autosaveName = "LumerixPanel";
  // Backdrop: shown on hover only.
  RGBA backdropFill = RGBA::white(0.1, 0.22);
  RGBA backdropBorder = RGBA::white(1.0, 0.45);
  double backdropBorderWidth = 1.5;
  double backdropCornerRadius = 14;
  // Band behind the text in band mode.
  RGBA bandFill = RGBA::white(0.0, 0.78);
  double bandCornerRadius = 10;
  // Text view and status line, bottom to top above backdrop and band.
  Rect textFrame;
  Rect statusFrame;
  double statusFontSize = 12;
  RGBA statusColor{0.81, 0.91, 1.0, 1.0};
};

// The panel as the controller drives it. Main thread only. Sizes and
// positions are points with the origin at the bottom left.
class OverlayHost {
 public:
  virtual ~OverlayHost() = default;
  // The main screen's frame size; absent when there is no screen.
  virtual std::optional<Size> mainScreenSize() = 0;
  // Creates the panel and its views and orders it front. A frame saved
  // under the autosave name wins over config.frame.
  virtual void createPanel(const PanelConfig& config) = 0;
  virtual Rect panelFrame() = 0;
  virtual void setPanelFrame(const Rect& frame) = 0;  // redraws at once
  virtual void setPanelAlpha(double alpha) = 0;
  virtual bool panelIsKey() = 0;
  virtual void fadeBackdrop(double alpha, double seconds) = 0;

  virtual void setStatusText(const std::string& text) = 0;
  virtual void setStatusFrame(const Rect& frame) = 0;

  // The text view: its layers (bottom first) and whether the first layer is
  // drawn as the brand nameplate; both mark it for display.
  virtual void setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) = 0;
  virtual void setTextFrame(const Rect& frame) = 0;
  // Position in the nameplate's five-second sheen cycle, in [0, 1); redraws
  // when in brand mode.
  virtual void setBrandPhase(double phase) = 0;
  // Bounding size of the layer laid out in lines no wider than bounds.width.
  virtual Size measureText(const TextLayer& layer, Size bounds) = 0;

  virtual void setBandFrame(const Rect& frame) = 0;
  virtual void setBandHidden(bool hidden) = 0;
};

}  // namespace lumerix
