#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/TextLayer.h"

namespace lumerix {

// Everything the shell needs to build the floating panel, all of it decided
// by the core. The shell turns the behaviour flags into its platform's
// window levels, collection behaviours or window types.
struct PanelConfig {
  Rect frame;                        // used unless a frame was saved under autosaveName
  bool aboveFullScreen = false;      // floats above every window, a full-screen player's included
  bool onAllSpaces = false;          // shown on every desktop space and stays put when they switch
  bool nonActivating = false;        // a click gives it the keys without activating the application
  bool resizable = false;            // by its edges
  bool movableByBackground = false;  // dragging anywhere moves it
  double alpha = 1;                  // of the whole panel, text included
  Size minSize;
  std::string autosaveName;  // where the platform keeps the frame between launches
  // Backdrop: the full-size view behind everything, shown on hover.
  RGBA backdropFill;
  RGBA backdropBorder;
  double backdropBorderWidth = 0;
  double backdropCornerRadius = 0;
  double backdropAlpha = 0;  // at start
  // Band behind the text in band mode; above the backdrop.
  RGBA bandFill;
  double bandCornerRadius = 0;
  Rect bandFrame;  // at start
  bool bandHidden = true;
  // Status line: centred, the system font; above the text view.
  double statusFontSize = 0;
  RGBA statusColor;
};

// The panel as the controller drives it. Main thread only; no member throws.
// Sizes and positions are points with the origin at the bottom left.
// Stacking, bottom to top: backdrop, band, text view, status line.
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
  // Animates the backdrop's alpha over the given time.
  virtual void fadeBackdrop(double alpha, double seconds) = 0;

  // Called only when the text changes.
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

  // A second block of text in the text view, drawn as the first is (never
  // as a nameplate) in its own frame; no layers: none.
  virtual void setSecondText(const std::vector<TextLayer>& layers, const Rect& frame) {
    (void)layers;
    (void)frame;
  }
  // The whole panel out of sight and back, where it was; a host that cannot
  // hide it ignores this.
  virtual void setPanelHidden(bool) {}
};

// A panel that shows nothing: for programs and benchmarks without a screen.
// Keeps only the frame, so that geometry still adds up.
class NullOverlayHost : public OverlayHost {
 public:
  std::optional<Size> mainScreenSize() override { return std::nullopt; }
  void createPanel(const PanelConfig& config) override { frame = config.frame; }
  Rect panelFrame() override { return frame; }
  void setPanelFrame(const Rect& f) override { frame = f; }
  void setPanelAlpha(double) override {}
  bool panelIsKey() override { return false; }
  void fadeBackdrop(double, double) override {}
  void setStatusText(const std::string&) override {}
  void setStatusFrame(const Rect&) override {}
  void setTextLayers(const std::vector<TextLayer>&, bool) override {}
  void setTextFrame(const Rect&) override {}
  void setBrandPhase(double) override {}
  Size measureText(const TextLayer&, Size) override { return {}; }
  void setBandFrame(const Rect&) override {}
  void setBandHidden(bool) override {}

 protected:
  Rect frame;
};

}  // namespace lumerix
