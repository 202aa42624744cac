#pragma once

#include <gtkmm.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Controller.h"
#include "gtk/CairoCanvas.h"
#include "gtk/DisplayBackend.h"
#include "gtk/PangoText.h"
#include "gtk/RaisePolicy.h"
#include "platform/OverlayHost.h"
#include "platform/SettingsStore.h"

namespace lumerix::gtk {

// The floating bar: one window drawn by hand (backdrop, band, text,
// status line), kept above full-screen players by the means BarKind names.
// It moves, resizes at its edges and remembers its frame itself, since no
// window manager does that for such a window. Main thread only.
class OverlayWindow : public OverlayHost {
 public:
  OverlayWindow(BarKind kind, SettingsStore& settings, TextEngine& text);
  ~OverlayWindow() override;
  OverlayWindow(const OverlayWindow&) = delete;
  OverlayWindow& operator=(const OverlayWindow&) = delete;

  // Where the bar's events go; nullptr drops them (before the controller
  // exists and after it is gone).
  void attach(Controller* controller) { this->controller = controller; }
  // Right-click: the shell shows its menu at the pointer.
  void onContextMenu(std::function<void(const GdkEvent*)> show) { contextMenu = std::move(show); }
  // Shows the bar again above everything (a second launch asked for it).
  void present();
  // Brings the bar back onto a monitor that shows it, if it is on none.
  void keepOnScreen();
  PanelDiagnostics diagnostics() const;
  // Whether see-through parts come out see-through.
  bool composited() const;
  Gtk::Window* window() { return win.get(); }

  std::optional<Size> mainScreenSize() override;
  void createPanel(const PanelConfig& config) override;
  Rect panelFrame() override { return frame; }
  void setPanelFrame(const Rect& frame) override;
  void setPanelAlpha(double alpha) override;
  bool panelIsKey() override { return isKey; }
  void fadeBackdrop(double alpha, double seconds) override;
  void setStatusText(const std::string& text) override;
  void setStatusFrame(const Rect& frame) override;
  void setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) override;
  void setTextFrame(const Rect& frame) override;
  void setBrandPhase(double phase) override;
  Size measureText(const TextLayer& layer, Size bounds) override { return text.measure(layer, bounds); }
  void setBandFrame(const Rect& frame) override;
  void setBandHidden(bool hidden) override;
  void setSecondText(const std::vector<TextLayer>& layers, const Rect& frame) override;
  void setPanelHidden(bool hidden) override;

 private:
  bool userHidden = false;  // by the h key: stays out of sight until asked back
  struct Drag {
    bool active = false;
    unsigned edges = 0;  // none: moving
    Rect start;          // desktop coordinates
    double rootX = 0, rootY = 0;
    double pressX = 0, pressY = 0, lastX = 0, lastY = 0;  // in the window
  };

  Rect mainMonitor() const;
  // The monitors that show something, the main one first (a frame on none
  // goes there), mirrors once; never the output the compositor just took
  // from the bar.
  std::vector<std::pair<GdkMonitor*, Rect>> displayMonitors() const;
  std::vector<Rect> monitors() const;
  // Layer shell: the compositor closed the bar's surface (its output went
  // away); a new one is made on an output that remains, now or when one comes.
  void outputGone();
  void reopenSurface();
  Rect desktopFrame() const;
  void applyDesktopFrame(const Rect& desktop);
  void saveFrame();
  // Panel coordinates (origin bottom left) to the window's (top left).
  Rect inWindow(const Rect& r) const;
  // margin: what drawing may spill beyond the rectangle.
  void redraw(const Rect& panelRect, double margin);

  void buildWindow();
  bool draw(const Cairo::RefPtr<Cairo::Context>& cr);
  void drawText(cairo_t* cr);
  void drawSecond(cairo_t* cr);
  // What paint draws on a w × h canvas, kept where the window's pixels are.
  cairo_surface_t* paintOnce(cairo_t* cr, double w, double h, const std::function<void(CairoCanvas&)>& paint);
  void drawStatus(cairo_t* cr);
  void dropTextCache();

  bool buttonPress(GdkEventButton* e);
  bool motion(GdkEventMotion* e);
  bool buttonRelease(GdkEventButton* e);
  void takeFocus(guint32 time);
  void hover(bool inside);
  bool dragMotion(const Glib::RefPtr<Gdk::DragContext>& context, int x, int y, guint time);
  void dragLeave(const Glib::RefPtr<Gdk::DragContext>& context, guint time);
  bool dragDrop(const Glib::RefPtr<Gdk::DragContext>& context, int x, int y, guint time);
  void dragData(const Glib::RefPtr<Gdk::DragContext>& context, int x, int y, const Gtk::SelectionData& data, guint info,
                guint time);

  // X11: stay above windows that other clients map or raise over us.
  void watchStacking();
  void stackingChanged();
  bool raiseIfCovered();
  static GdkFilterReturn rootFilter(GdkXEvent* xevent, GdkEvent* event, gpointer self);

  const BarKind kind;
  SettingsStore& settings;
  TextEngine& text;
  LineCache lines;
  Controller* controller = nullptr;
  std::function<void(const GdkEvent*)> contextMenu;

  std::unique_ptr<Gtk::Window> win;
  Gtk::DrawingArea area;
  PanelConfig config;
  Rect frame;  // the controller's coordinates
  double alpha = 1;
  double backdropAlpha = 0;
  struct Fade {
    double from = 0, to = 0, start = 0, seconds = 0;
    sigc::connection timer;
  } fade;
  bool isKey = false;
  bool hovering = false;
  GdkVisibilityState visibility = GDK_VISIBILITY_UNOBSCURED;

  std::string status;
  Rect statusFrame;
  PangoLayout* statusLayout = nullptr;

  std::vector<TextLayer> layers;
  bool brand = false;
  double phase = 0;
  Rect textFrame;
  cairo_surface_t* textCache = nullptr;  // the drawn layers, or the still nameplate
  std::optional<Rect> glintArea;         // the nameplate's glyphs, panel coordinates
  Rect bandFrame;
  bool bandHidden = true;
  std::vector<TextLayer> secondLayers;
  Rect secondFrame;
  cairo_surface_t* secondCache = nullptr;

  Drag drag;
  std::string cursorName;

  GdkDragContext* pendingDrag = nullptr;  // whose data was asked for
  bool dragAccepted = false;
  bool dropping = false;
  bool dropAsSecond = false;  // Shift was held when the file was let go

  bool stackingWatched = false;
  sigc::connection raiseCheck;
  sigc::connection screenChanges[2];  // monitors came or went; the screen's size changed
  bool keysOnDemand = true;           // layer shell: the compositor gives keys on a click
  bool surfaceLost = false;           // layer shell: hidden until an output takes it
  GdkMonitor* goneOutput = nullptr;   // compared, never used: it may be gone
  sigc::connection reopenLater;
  gint64 lastRaise = 0;
  RaiseMemory raiseMemory;  // how often in a row the same window was fought
};

}  // namespace lumerix::gtk
