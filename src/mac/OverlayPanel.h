#pragma once

#include <memory>

#include "app/Controller.h"
#include "mac/ControllerLookup.h"
#include "platform/OverlayHost.h"

namespace lumerix::mac {

// The floating subtitle bar in AppKit: a borderless non-activating panel
// whose views are, bottom to top, the hover backdrop, the band, the text
// and the status line. Keys, hovering, drops, resizes and key-window
// changes go to the controller.
class MacOverlayHost final : public OverlayHost {
 public:
  explicit MacOverlayHost(ControllerLookup controller);
  ~MacOverlayHost() override;
  MacOverlayHost(const MacOverlayHost&) = delete;
  MacOverlayHost& operator=(const MacOverlayHost&) = delete;

  std::optional<Size> mainScreenSize() override;
  void createPanel(const PanelConfig& config) override;
  Rect panelFrame() override;
  void setPanelFrame(const Rect& frame) override;
  void setPanelAlpha(double alpha) override;
  bool panelIsKey() override;
  void fadeBackdrop(double alpha, double seconds) override;
  void setStatusText(const std::string& text) override;
  void setStatusFrame(const Rect& frame) override;
  void setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) override;
  void setTextFrame(const Rect& frame) override;
  void setBrandPhase(double phase) override;
  Size measureText(const TextLayer& layer, Size bounds) override;
  void setBandFrame(const Rect& frame) override;
  void setBandHidden(bool hidden) override;
  void setSecondText(const std::vector<TextLayer>& layers, const Rect& frame) override;
  void setPanelHidden(bool hidden) override;

  // The panel's window-server state, for the diagnostic log line.
  PanelDiagnostics diagnostics() const;

 private:
  struct Views;
  const std::unique_ptr<Views> views;
  const ControllerLookup controller;
};

}  // namespace lumerix::mac
