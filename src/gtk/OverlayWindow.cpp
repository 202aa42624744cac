#include "gtk/OverlayWindow.h"

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>
#include <gdk/gdkx.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

#include "app/SettingsKeys.h"
#include "gtk/DropPaths.h"
#include "gtk/KeyMap.h"
#include "gtk/PanelGeometry.h"
#include "gtk/RaisePolicy.h"
#include "overlay/Nameplate.h"
#include "ui/Texts.h"

#ifdef LUMERIX_LAYER_SHELL
#include <gtk-layer-shell.h>
#endif

namespace lumerix::gtk {

namespace {

// Width of the band along each edge that resizes instead of moving.
constexpr double kEdgeBand = 6;
// Room around the text view for the outline and shadow that spill over.
constexpr double kSpill = 12;

Rect toRect(const GdkRectangle& r) {
  return {static_cast<double>(r.x), static_cast<double>(r.y), static_cast<double>(r.width),
          static_cast<double>(r.height)};
}

void source(cairo_t* cr, const RGBA& c, double times = 1) {
  cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a * times);
}

bool isX11(GdkWindow* w) {
  return w && GDK_IS_X11_WINDOW(w);
}

// Whether Shift is down now: the keyboard's own state, and the pointer's
// (a drag's source may hold the keyboard, not the pointer).
bool shiftHeld(GtkWidget* widget) {
  GdkDisplay* display = gtk_widget_get_display(widget);
  guint state = gdk_keymap_get_modifier_state(gdk_keymap_get_for_display(display));
  if (GdkWindow* window = gtk_widget_get_window(widget)) {
    GdkModifierType mask{};
    gdk_window_get_device_position(window, gdk_seat_get_pointer(gdk_display_get_default_seat(display)), nullptr,
                                   nullptr, &mask);
    state |= mask;
  }
  return (state & GDK_SHIFT_MASK) != 0;
}

}  // namespace

OverlayWindow::OverlayWindow(BarKind kind, SettingsStore& settings, TextEngine& text)
    : kind(kind), settings(settings), text(text), lines(text) {}

OverlayWindow::~OverlayWindow() {
  controller = nullptr;
  fade.timer.disconnect();
  raiseCheck.disconnect();
  for (sigc::connection& c : screenChanges) c.disconnect();
  reopenLater.disconnect();
  if (stackingWatched) gdk_window_remove_filter(gdk_get_default_root_window(), rootFilter, this);
  if (statusLayout) g_object_unref(statusLayout);
  if (textCache) cairo_surface_destroy(textCache);
  if (secondCache) cairo_surface_destroy(secondCache);
}

// ---- geometry ------------------------------------------------------------------

Rect OverlayWindow::mainMonitor() const {
  GdkDisplay* display = gdk_display_get_default();
  GdkMonitor* m = display ? gdk_display_get_primary_monitor(display) : nullptr;
  if (!m && display && gdk_display_get_n_monitors(display) > 0) m = gdk_display_get_monitor(display, 0);
  if (!m) return {};
  GdkRectangle r;
  gdk_monitor_get_geometry(m, &r);
  return toRect(r);
}

std::vector<std::pair<GdkMonitor*, Rect>> OverlayWindow::displayMonitors() const {
  std::vector<std::pair<GdkMonitor*, Rect>> out;
  GdkDisplay* display = gdk_display_get_default();
  if (!display) return out;
  auto add = [&](GdkMonitor* m) {
    if (!m || m == goneOutput) return;
    GdkRectangle r;
    gdk_monitor_get_geometry(m, &r);
    const Rect rect = toRect(r);
    if (!(rect.width > 0) || !(rect.height > 0)) return;
    for (const auto& have : out)
      if (have.first == m || have.second == rect) return;
    out.emplace_back(m, rect);
  };
  add(gdk_display_get_primary_monitor(display));
  for (int i = 0; i < gdk_display_get_n_monitors(display); ++i) add(gdk_display_get_monitor(display, i));
  return out;
}

std::vector<Rect> OverlayWindow::monitors() const {
  std::vector<Rect> out;
  for (const auto& m : displayMonitors()) out.push_back(m.second);
  return out;
}

std::optional<Size> OverlayWindow::mainScreenSize() {
  const Rect m = mainMonitor();
  if (!(m.width > 0)) return std::nullopt;
  return Size{m.width, m.height};
}

Rect OverlayWindow::desktopFrame() const {
  return toDesktop(frame, mainMonitor());
}

Rect OverlayWindow::inWindow(const Rect& r) const {
  return {r.x, frame.height - r.y - r.height, r.width, r.height};
}

void OverlayWindow::applyDesktopFrame(const Rect& d) {
  const bool resized = d.width != frame.width || d.height != frame.height;
  frame = fromDesktop(d, mainMonitor());
  if (!win) return;
  const int w = static_cast<int>(std::lround(d.width)), h = static_cast<int>(std::lround(d.height));
  if (kind == BarKind::layerShell) {
#ifdef LUMERIX_LAYER_SHELL
    // The surface sits on the output that holds the frame, its margins
    // measured from that output. A drag keeps its output (a new one would
    // remap the surface under the pointer); the release moves it over.
    GtkWindow* g = win->gobj();
    const auto outputs = displayMonitors();
    std::vector<Rect> rects;
    for (const auto& m : outputs) rects.push_back(m.second);
    Rect origin = mainMonitor();
    GdkMonitor* on = gtk_layer_get_monitor(g);
    const auto current = std::find_if(outputs.begin(), outputs.end(), [&](const auto& m) { return m.first == on; });
    if (drag.active && current != outputs.end()) {
      origin = current->second;
    } else if (const int i = monitorHolding(d, rects); i >= 0) {
      const auto& [want, rect] = outputs[static_cast<std::size_t>(i)];
      if (want != on) gtk_layer_set_monitor(g, want);
      origin = rect;
    }
    gtk_layer_set_margin(g, GTK_LAYER_SHELL_EDGE_LEFT, static_cast<int>(std::lround(d.x - origin.x)));
    gtk_layer_set_margin(g, GTK_LAYER_SHELL_EDGE_TOP, static_cast<int>(std::lround(d.y - origin.y)));
#endif
    // A layer surface takes the size its content asks for.
    area.set_size_request(w, h);
  } else {
    win->move(static_cast<int>(std::lround(d.x)), static_cast<int>(std::lround(d.y)));
  }
  win->resize(w, h);
  if (resized) dropTextCache();
  area.queue_draw();
}

void OverlayWindow::saveFrame() {
  settings.set(keys::panelFrame, frameString(frame));
}

void OverlayWindow::redraw(const Rect& panelRect, double margin) {
  const Rect r = inWindow(panelRect);
  const int x = static_cast<int>(std::floor(r.x - margin)), y = static_cast<int>(std::floor(r.y - margin));
  area.queue_draw_area(x, y, static_cast<int>(std::ceil(r.maxX() + margin)) - x,
                       static_cast<int>(std::ceil(r.maxY() + margin)) - y);
}

// ---- the window --------------------------------------------------------------------

void OverlayWindow::createPanel(const PanelConfig& c) {
  config = c;
  alpha = c.alpha;
  backdropAlpha = c.backdropAlpha;
  bandFrame = c.bandFrame;
  bandHidden = c.bandHidden;
  const Rect main = mainMonitor();
  Rect d = toDesktop(c.frame, main);
  if (!c.autosaveName.empty()) {
    if (auto saved = parseFrameString(settings.stringFor(c.autosaveName).value_or(""))) d = toDesktop(*saved, main);
  }
  d = clampOntoMonitors(d, monitors(), c.minSize);
  frame = fromDesktop(d, main);
  buildWindow();
  applyDesktopFrame(d);
  win->show_all();
  if (kind == BarKind::x11Popup) watchStacking();
}

void OverlayWindow::buildWindow() {
  win = std::make_unique<Gtk::Window>(kind == BarKind::x11Popup ? Gtk::WINDOW_POPUP : Gtk::WINDOW_TOPLEVEL);
  Gtk::Window& w = *win;
  w.set_title(std::string(texts::brandName));
  if (auto visual = w.get_screen()->get_rgba_visual()) gtk_widget_set_visual(GTK_WIDGET(w.gobj()), visual->gobj());
  w.set_app_paintable(true);
  w.set_skip_taskbar_hint(true);
  w.set_skip_pager_hint(true);
  if (config.onAllSpaces) w.stick();
  if (kind == BarKind::toplevel) {
    w.set_decorated(false);
    w.set_keep_above(true);
    w.set_type_hint(Gdk::WINDOW_TYPE_HINT_UTILITY);
  }
#ifdef LUMERIX_LAYER_SHELL
  if (kind == BarKind::layerShell) {
    GtkWindow* g = w.gobj();
    gtk_layer_init_for_window(g);
    gtk_layer_set_layer(g, GTK_LAYER_SHELL_LAYER_OVERLAY);
    gtk_layer_set_namespace(g, "lumerix");
    gtk_layer_set_anchor(g, GTK_LAYER_SHELL_EDGE_LEFT, TRUE);
    gtk_layer_set_anchor(g, GTK_LAYER_SHELL_EDGE_TOP, TRUE);
    gtk_layer_set_exclusive_zone(g, -1);
    // Keys on demand (a click gives them, a click elsewhere takes them back)
    // came with version 4 of the protocol; KDE Plasma 5.27 speaks 3, where
    // asking for it leaves the bar without keys for good. There the bar
    // takes the keyboard on a click and gives it back when the pointer leaves.
    keysOnDemand = gtk_layer_get_protocol_version() >= 4;
    gtk_layer_set_keyboard_mode(g, keysOnDemand ? GTK_LAYER_SHELL_KEYBOARD_MODE_ON_DEMAND
                                                : GTK_LAYER_SHELL_KEYBOARD_MODE_NONE);
    // The surface's output is chosen with its place (applyDesktopFrame).
    // The compositor closes the surface when that output goes away; the
    // library then asks the window to close, which would end the bar.
    w.signal_delete_event().connect(
        [this](GdkEventAny*) {
          outputGone();
          return true;
        },
        false);
  }
#endif
  w.add_events(Gdk::KEY_PRESS_MASK | Gdk::FOCUS_CHANGE_MASK | Gdk::VISIBILITY_NOTIFY_MASK);
  area.add_events(Gdk::BUTTON_PRESS_MASK | Gdk::BUTTON_RELEASE_MASK | Gdk::POINTER_MOTION_MASK |
                  Gdk::ENTER_NOTIFY_MASK | Gdk::LEAVE_NOTIFY_MASK);
  w.add(area);

  area.signal_draw().connect(sigc::mem_fun(*this, &OverlayWindow::draw));
  area.signal_button_press_event().connect(sigc::mem_fun(*this, &OverlayWindow::buttonPress));
  area.signal_button_release_event().connect(sigc::mem_fun(*this, &OverlayWindow::buttonRelease));
  area.signal_motion_notify_event().connect(sigc::mem_fun(*this, &OverlayWindow::motion));
  area.signal_enter_notify_event().connect([this](GdkEventCrossing* e) {
    if (e->detail != GDK_NOTIFY_INFERIOR) hover(true);
    return false;
  });
  area.signal_leave_notify_event().connect([this](GdkEventCrossing* e) {
    // While moving or resizing, the pointer may run ahead of the window.
    if (e->detail != GDK_NOTIFY_INFERIOR && !drag.active) hover(false);
    return false;
  });
  w.signal_key_press_event().connect(
      [this](GdkEventKey* e) {
        if (!controller) return false;
        const bool nonLatin = gdk_keyval_to_unicode(e->keyval) > 0x7F;
        const KeyStroke k = keyPressFromGdk(
            e->keyval, e->state, nonLatin ? latinKeyvalOf(e->hardware_keycode, e->state & GDK_SHIFT_MASK) : 0);
        return controller->handleKey(k.code, k.shift, k.characters);
      },
      false);
  w.signal_focus_in_event().connect([this](GdkEventFocus*) {
    isKey = true;
    if (controller) controller->keyWindowChanged();
    return false;
  });
  w.signal_focus_out_event().connect([this](GdkEventFocus*) {
    isKey = false;
    if (controller) controller->keyWindowChanged();
    return false;
  });
  w.signal_visibility_notify_event().connect([this](GdkEventVisibility* e) {
    visibility = e->state;
    if (e->state != GDK_VISIBILITY_UNOBSCURED) stackingChanged();
    return false;
  });
  w.signal_configure_event().connect(
      [this](GdkEventConfigure* e) {
        // Only a window manager or compositor resizes a keep-above toplevel.
        if (kind != BarKind::toplevel || drag.active) return false;
        const Rect d{static_cast<double>(e->x), static_cast<double>(e->y), static_cast<double>(e->width),
                     static_cast<double>(e->height)};
        const bool resized = d.width != frame.width || d.height != frame.height;
        frame = fromDesktop(d, mainMonitor());
        if (resized && controller) controller->panelResized();
        return false;
      },
      false);

  // Files dropped on the bar: the data is asked for on entering, so a drag
  // without a subtitle is refused before it is let go.
  area.drag_dest_set({Gtk::TargetEntry("text/uri-list")}, Gtk::DestDefaults(0), Gdk::ACTION_COPY);
  area.signal_drag_motion().connect(sigc::mem_fun(*this, &OverlayWindow::dragMotion), false);
  area.signal_drag_leave().connect(sigc::mem_fun(*this, &OverlayWindow::dragLeave), false);
  screenChanges[0] = w.get_screen()->signal_monitors_changed().connect([this] { keepOnScreen(); });
  screenChanges[1] = w.get_screen()->signal_size_changed().connect([this] { keepOnScreen(); });
  area.signal_drag_drop().connect(sigc::mem_fun(*this, &OverlayWindow::dragDrop), false);
  area.signal_drag_data_received().connect(sigc::mem_fun(*this, &OverlayWindow::dragData), false);
}

void OverlayWindow::outputGone() {
#ifdef LUMERIX_LAYER_SHELL
  goneOutput = gtk_layer_get_monitor(win->gobj());
#endif
  surfaceLost = true;
  win->hide();
  // Not from inside the library's own handler: when it has returned.
  reopenLater.disconnect();
  reopenLater = Glib::signal_idle().connect([this] {
    reopenSurface();
    return false;
  });
}

void OverlayWindow::reopenSurface() {
  if (!win || !surfaceLost || monitors().empty()) return;  // no output yet: monitors-changed comes back here
  surfaceLost = false;
  applyDesktopFrame(clampOntoMonitors(desktopFrame(), monitors(), config.minSize));
  goneOutput = nullptr;
  if (!userHidden) win->show();
}

void OverlayWindow::keepOnScreen() {
  if (!win) return;
  if (surfaceLost) return reopenSurface();
#ifdef LUMERIX_LAYER_SHELL
  // Not every compositor closes the surface of an output it takes away
  // (sway 1.7 does not): the output the surface was put on is gone.
  if (kind == BarKind::layerShell) {
    GdkMonitor* on = gtk_layer_get_monitor(win->gobj());
    const auto outputs = displayMonitors();
    if (on && std::none_of(outputs.begin(), outputs.end(), [&](const auto& m) { return m.first == on; }))
      return outputGone();
  }
#endif
  // The screen shrank or the monitor the bar was on went away: back onto
  // one that shows it (the saved frame is left as it was, for the monitor's
  // return at the next start).
  const Rect d = toDesktop(frame, mainMonitor());
  const Rect onScreen = clampOntoMonitors(d, monitors(), config.minSize);
  if (onScreen != d) applyDesktopFrame(onScreen);
}

void OverlayWindow::present() {
  if (!win) return;
  keepOnScreen();  // a second launch is also how users look for a lost bar
  if (surfaceLost || userHidden) return;  // no output to show it on yet, or hidden on purpose
  win->show();
  if (GdkWindow* g = gtk_widget_get_window(GTK_WIDGET(win->gobj()))) gdk_window_raise(g);
}

void OverlayWindow::setPanelHidden(bool hidden) {
  userHidden = hidden;
  if (!win) return;
  if (hidden) {
    win->hide();
  } else {
    present();
  }
}

PanelDiagnostics OverlayWindow::diagnostics() const {
  const bool mapped = win && win->get_mapped();
  // The first platform's numbers: occlusion bit 2 is "visible", level 101
  // is above everything.
  return {mapped, mapped && win->get_visible(),          visibility == GDK_VISIBILITY_FULLY_OBSCURED ? 0ul : 2ul,
          isKey,  kind == BarKind::toplevel ? 3l : 101l, frame,
          {}};
}

bool OverlayWindow::composited() const {
  return win && win->get_screen()->is_composited();
}

// ---- what the controller sets ----------------------------------------------------------

void OverlayWindow::setPanelFrame(const Rect& f) {
  applyDesktopFrame(toDesktop(f, mainMonitor()));
  saveFrame();
}

void OverlayWindow::setPanelAlpha(double a) {
  alpha = a;
  area.queue_draw();
}

void OverlayWindow::fadeBackdrop(double target, double seconds) {
  fade.timer.disconnect();
  fade = {backdropAlpha, target, g_get_monotonic_time() / 1e6, seconds, {}};
  if (backdropAlpha == target) return;
  fade.timer = Glib::signal_timeout().connect(
      [this] {
        const double elapsed = g_get_monotonic_time() / 1e6 - fade.start;
        const double t = fade.seconds > 0 ? std::min(1.0, elapsed / fade.seconds) : 1.0;
        backdropAlpha = fade.from + (fade.to - fade.from) * t;
        area.queue_draw();
        return t < 1;
      },
      16);
}

void OverlayWindow::setStatusText(const std::string& t) {
  status = t;
  if (statusLayout) pango_layout_set_text(statusLayout, status.data(), static_cast<int>(status.size()));
  redraw(statusFrame, 1);
}

void OverlayWindow::setStatusFrame(const Rect& f) {
  statusFrame = f;
  if (statusLayout) g_object_unref(statusLayout);
  statusLayout = text.statusLayout(config.statusFontSize, f.width);
  pango_layout_set_text(statusLayout, status.data(), static_cast<int>(status.size()));
  area.queue_draw();
}

void OverlayWindow::setTextLayers(const std::vector<TextLayer>& l, bool brandMode) {
  layers = l;
  brand = brandMode;
  dropTextCache();
  area.queue_draw();
}

void OverlayWindow::setTextFrame(const Rect& f) {
  if (f == textFrame) return;
  redraw(textFrame, kSpill);
  textFrame = f;
  dropTextCache();
  redraw(textFrame, kSpill);
}

void OverlayWindow::setSecondText(const std::vector<TextLayer>& l, const Rect& f) {
  if (l == secondLayers && f == secondFrame) return;
  if (!secondLayers.empty()) redraw(secondFrame, kSpill);
  secondLayers = l;
  secondFrame = f;
  if (secondCache) cairo_surface_destroy(secondCache);
  secondCache = nullptr;
  if (!secondLayers.empty()) redraw(secondFrame, kSpill);
}

void OverlayWindow::setBrandPhase(double p) {
  const double before = phase;
  phase = p;
  // Past the glint's sweep every frame is the still plate: nothing to draw.
  if (!brand || layers.empty() || !(brandGlintShows(p) || brandGlintShows(before))) return;
  if (!glintArea) return redraw(textFrame, 1);  // the plate is not drawn yet
  // Only where the glint was and where it is now change.
  for (const double at : {before, p}) {
    if (const auto band = brandGlintBand(*glintArea, at)) redraw(*band, 1);
  }
}

void OverlayWindow::setBandFrame(const Rect& f) {
  if (f == bandFrame) return;
  if (!bandHidden) redraw(bandFrame, 1);
  bandFrame = f;
  if (!bandHidden) redraw(bandFrame, 1);
}

void OverlayWindow::setBandHidden(bool hidden) {
  if (hidden == bandHidden) return;
  bandHidden = hidden;
  redraw(bandFrame, 1);
}

void OverlayWindow::dropTextCache() {
  if (textCache) cairo_surface_destroy(textCache);
  textCache = nullptr;
  glintArea.reset();
}

// ---- drawing ------------------------------------------------------------------------------

bool OverlayWindow::draw(const Cairo::RefPtr<Cairo::Context>& context) {
  cairo_t* cr = context->cobj();
  cairo_save(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  cairo_set_source_rgba(cr, 0, 0, 0, 0);
  cairo_paint(cr);
  cairo_restore(cr);
  // Everything at once, then dimmed as one by the panel's opacity.
  cairo_push_group(cr);
  if (backdropAlpha > 0.001) {
    const double bw = config.backdropBorderWidth;
    roundedRectPath(cr, {bw / 2, bw / 2, frame.width - bw, frame.height - bw}, config.backdropCornerRadius);
    source(cr, config.backdropFill, backdropAlpha);
    cairo_fill_preserve(cr);
    source(cr, config.backdropBorder, backdropAlpha);
    cairo_set_line_width(cr, bw);
    cairo_stroke(cr);
  }
  if (!bandHidden) {
    roundedRectPath(cr, inWindow(bandFrame), config.bandCornerRadius);
    source(cr, config.bandFill);
    cairo_fill(cr);
  }
  drawText(cr);
  drawSecond(cr);
  drawStatus(cr);
  cairo_pop_group_to_source(cr);
  cairo_paint_with_alpha(cr, alpha);
  return true;
}

void OverlayWindow::drawText(cairo_t* cr) {
  if (layers.empty() || !(textFrame.width > 0) || !(textFrame.height > 0)) return;
  const Rect at = inWindow(textFrame);
  // The layers, or the nameplate without its glint, drawn once and kept.
  const double spill = brand ? 0 : kSpill;
  if (!textCache) {
    const double w = textFrame.width + 2 * spill, h = textFrame.height + 2 * spill;
    textCache = paintOnce(cr, w, h, [&](CairoCanvas& canvas) {
      if (brand) {
        drawBrandPlate(canvas, {0, 0, w, h}, layers.front());
        if (auto g = brandGlyphBox(canvas, {0, 0, w, h}, layers.front())) {
          glintArea = Rect{textFrame.x + g->x, textFrame.y + g->y, g->width, g->height};
        }
      } else {
        for (const TextLayer& layer : layers)
          canvas.drawTextBlock(layer, {spill, spill, textFrame.width, textFrame.height});
      }
    });
  }
  cairo_set_source_surface(cr, textCache, at.x - spill, at.y - spill);
  cairo_paint(cr);
  if (brand && brandGlintShows(phase)) {
    cairo_save(cr);
    cairo_translate(cr, at.x, at.y);
    cairo_rectangle(cr, 0, 0, at.width, at.height);
    cairo_clip(cr);
    {
      CairoCanvas canvas(cr, at.height, lines);
      drawBrandGlint(canvas, {0, 0, at.width, at.height}, layers.front(), phase);
    }
    cairo_restore(cr);
  }
}

void OverlayWindow::drawSecond(cairo_t* cr) {
  if (secondLayers.empty() || !(secondFrame.width > 0) || !(secondFrame.height > 0)) return;
  const Rect at = inWindow(secondFrame);
  if (!secondCache) {
    secondCache = paintOnce(cr, secondFrame.width + 2 * kSpill, secondFrame.height + 2 * kSpill,
                            [&](CairoCanvas& canvas) {
                              for (const TextLayer& layer : secondLayers)
                                canvas.drawTextBlock(layer, {kSpill, kSpill, secondFrame.width, secondFrame.height});
                            });
  }
  cairo_set_source_surface(cr, secondCache, at.x - kSpill, at.y - kSpill);
  cairo_paint(cr);
}

cairo_surface_t* OverlayWindow::paintOnce(cairo_t* cr, double w, double h,
                                          const std::function<void(CairoCanvas&)>& paint) {
  const int scale = area.get_scale_factor();
  cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(std::ceil(w * scale)),
                                                      static_cast<int>(std::ceil(h * scale)));
  cairo_surface_set_device_scale(image, scale, scale);
  cairo_t* c = cairo_create(image);
  {
    CairoCanvas canvas(c, h, lines);
    paint(canvas);
  }
  cairo_destroy(c);
  // Kept where the window's pixels are (an X pixmap on X11), so each
  // frame composites it there instead of sending it again.
  cairo_surface_t* kept = cairo_surface_create_similar(cairo_get_target(cr), CAIRO_CONTENT_COLOR_ALPHA,
                                                       static_cast<int>(std::ceil(w)), static_cast<int>(std::ceil(h)));
  cairo_t* copy = cairo_create(kept);
  cairo_set_source_surface(copy, image, 0, 0);
  cairo_set_operator(copy, CAIRO_OPERATOR_SOURCE);
  cairo_paint(copy);
  cairo_destroy(copy);
  cairo_surface_destroy(image);
  return kept;
}

void OverlayWindow::drawStatus(cairo_t* cr) {
  if (!statusLayout || status.empty()) return;
  const Rect at = inWindow(statusFrame);
  int w = 0, h = 0;
  pango_layout_get_pixel_size(statusLayout, &w, &h);
  cairo_save(cr);
  cairo_move_to(cr, at.x, at.y + (at.height - h) / 2);
  source(cr, config.statusColor);
  pango_cairo_show_layout(cr, statusLayout);
  cairo_restore(cr);
}

// ---- the pointer and the keyboard ----------------------------------------------------------

void OverlayWindow::hover(bool inside) {
  if (inside == hovering) return;
  hovering = inside;
#ifdef LUMERIX_LAYER_SHELL
  if (!inside && kind == BarKind::layerShell && !keysOnDemand)
    gtk_layer_set_keyboard_mode(win->gobj(), GTK_LAYER_SHELL_KEYBOARD_MODE_NONE);
#endif
  if (controller) controller->hoverChanged(inside);
}

void OverlayWindow::takeFocus(guint32 time) {
  GdkWindow* g = gtk_widget_get_window(GTK_WIDGET(win->gobj()));
  if (kind == BarKind::x11Popup && isX11(g)) {
    // No window manager gives an override-redirect window the keys: the
    // click takes them, and the player keeps its full screen.
    GdkDisplay* display = gdk_window_get_display(g);
    gdk_x11_display_error_trap_push(display);
    XSetInputFocus(GDK_DISPLAY_XDISPLAY(display), GDK_WINDOW_XID(g), RevertToParent, time);
    gdk_x11_display_error_trap_pop_ignored(display);
  } else if (kind == BarKind::toplevel) {
    win->present(time);
  }
  // The layer shell's on-demand keyboard follows the click by itself.
#ifdef LUMERIX_LAYER_SHELL
  if (kind == BarKind::layerShell && !keysOnDemand)
    gtk_layer_set_keyboard_mode(win->gobj(), GTK_LAYER_SHELL_KEYBOARD_MODE_EXCLUSIVE);
#endif
}

bool OverlayWindow::buttonPress(GdkEventButton* e) {
  if (e->type != GDK_BUTTON_PRESS) return true;  // the second click of a double click
  if (e->button == 3) {
    if (contextMenu) contextMenu(reinterpret_cast<const GdkEvent*>(e));
    return true;
  }
  if (e->button != 1) return false;
  takeFocus(e->time);
  const unsigned edges = config.resizable ? edgesAt(e->x, e->y, {frame.width, frame.height}, kEdgeBand) : 0;
  if (kind == BarKind::toplevel) {
    // Here the compositor moves and resizes windows, not we.
    static const GdkWindowEdge toGdk[16] = {
        GDK_WINDOW_EDGE_WEST,  GDK_WINDOW_EDGE_WEST,       GDK_WINDOW_EDGE_EAST,       GDK_WINDOW_EDGE_EAST,
        GDK_WINDOW_EDGE_NORTH, GDK_WINDOW_EDGE_NORTH_WEST, GDK_WINDOW_EDGE_NORTH_EAST, GDK_WINDOW_EDGE_NORTH,
        GDK_WINDOW_EDGE_SOUTH, GDK_WINDOW_EDGE_SOUTH_WEST, GDK_WINDOW_EDGE_SOUTH_EAST, GDK_WINDOW_EDGE_SOUTH,
        GDK_WINDOW_EDGE_SOUTH, GDK_WINDOW_EDGE_SOUTH,      GDK_WINDOW_EDGE_SOUTH,      GDK_WINDOW_EDGE_SOUTH};
    if (edges) {
      win->begin_resize_drag(static_cast<Gdk::WindowEdge>(toGdk[edges]), 1, static_cast<int>(e->x_root),
                             static_cast<int>(e->y_root), e->time);
    } else if (config.movableByBackground) {
      win->begin_move_drag(1, static_cast<int>(e->x_root), static_cast<int>(e->y_root), e->time);
    }
    return true;
  }
  if (!edges && !config.movableByBackground) return true;
  drag = {true, edges, desktopFrame(), e->x_root, e->y_root, e->x, e->y, e->x, e->y};
  return true;
}

bool OverlayWindow::motion(GdkEventMotion* e) {
  if (!drag.active) {
    const unsigned edges = config.resizable ? edgesAt(e->x, e->y, {frame.width, frame.height}, kEdgeBand) : 0;
    const std::string name = cursorForEdges(edges);
    if (name != cursorName) {
      cursorName = name;
      GdkWindow* g = gtk_widget_get_window(GTK_WIDGET(area.gobj()));
      GdkCursor* cursor = name.empty() ? nullptr : gdk_cursor_new_from_name(gdk_window_get_display(g), name.c_str());
      gdk_window_set_cursor(g, cursor);
      if (cursor) g_object_unref(cursor);
    }
    return false;
  }
  Rect d;
  if (kind == BarKind::x11Popup) {
    // Root coordinates: exact, whatever the window did meanwhile.
    const double dx = e->x_root - drag.rootX, dy = e->y_root - drag.rootY;
    d = drag.edges ? resizedFrame(drag.start, drag.edges, dx, dy, config.minSize)
                   : Rect{drag.start.x + dx, drag.start.y + dy, drag.start.width, drag.start.height};
  } else {
    // The layer shell tells positions only within the surface. Edges that
    // move the surface (left, top, or all of it) keep the pointer where it
    // was pressed; the others follow it.
    const Rect now = desktopFrame();
    const bool shifts = !drag.edges;
    const double dx = (shifts || (drag.edges & Edge::left)) ? e->x - drag.pressX : e->x - drag.lastX;
    const double dy = (shifts || (drag.edges & Edge::top)) ? e->y - drag.pressY : e->y - drag.lastY;
    drag.lastX = e->x;
    drag.lastY = e->y;
    d = drag.edges ? resizedFrame(now, drag.edges, dx, dy, config.minSize)
                   : Rect{now.x + dx, now.y + dy, now.width, now.height};
  }
  const bool resized = d.width != frame.width || d.height != frame.height;
  applyDesktopFrame(d);
  if (resized && controller) controller->panelResized();
  return true;
}

bool OverlayWindow::buttonRelease(GdkEventButton* e) {
  if (e->button != 1 || !drag.active) return false;
  drag.active = false;
  // A layer surface shows only on its output: let go, it moves to the
  // output that holds it now, whole.
  if (kind == BarKind::layerShell) applyDesktopFrame(clampOntoMonitors(desktopFrame(), monitors(), config.minSize));
  saveFrame();
  return true;
}

// ---- dropping files ------------------------------------------------------------------------

bool OverlayWindow::dragMotion(const Glib::RefPtr<Gdk::DragContext>& context, int, int, guint time) {
  if (context->gobj() != pendingDrag) {
    pendingDrag = context->gobj();
    dragAccepted = false;
    area.drag_get_data(context, "text/uri-list", time);
    return true;  // answered when the data arrives
  }
  context->drag_status(dragAccepted ? Gdk::ACTION_COPY : Gdk::DragAction(0), time);
  return true;
}

void OverlayWindow::dragLeave(const Glib::RefPtr<Gdk::DragContext>&, guint) {
  // Also sent just before a drop: the drop asks for the data again.
  pendingDrag = nullptr;
  if (dragAccepted) hover(false);
  dragAccepted = false;
}

bool OverlayWindow::dragDrop(const Glib::RefPtr<Gdk::DragContext>& context, int, int, guint time) {
  dropping = true;
  dropAsSecond = shiftHeld(GTK_WIDGET(area.gobj()));
  area.drag_get_data(context, "text/uri-list", time);
  return true;
}

void OverlayWindow::dragData(const Glib::RefPtr<Gdk::DragContext>& context, int, int, const Gtk::SelectionData& data,
                             guint, guint time) {
  const auto path = Controller::subtitlePathFrom(localPathsFromUriList(data.get_data_as_string()));
  if (dropping) {
    dropping = false;
    context->drag_finish(path.has_value(), false, time);
    hover(false);
    if (path && controller) controller->fileDropped(*path, dropAsSecond);
    return;
  }
  dragAccepted = path.has_value();
  context->drag_status(dragAccepted ? Gdk::ACTION_COPY : Gdk::DragAction(0), time);
  if (dragAccepted) hover(true);  // lit up as a place to drop on
}

// ---- staying on top (X11) -------------------------------------------------------------------

void OverlayWindow::watchStacking() {
  GdkWindow* root = gdk_get_default_root_window();
  if (!isX11(root) || stackingWatched) return;
  Display* x = GDK_DISPLAY_XDISPLAY(gdk_window_get_display(root));
  XWindowAttributes attributes;
  if (!XGetWindowAttributes(x, GDK_WINDOW_XID(root), &attributes)) return;
  XSelectInput(x, GDK_WINDOW_XID(root), attributes.your_event_mask | SubstructureNotifyMask);
  gdk_window_add_filter(root, rootFilter, this);
  stackingWatched = true;
}

GdkFilterReturn OverlayWindow::rootFilter(GdkXEvent* xevent, GdkEvent*, gpointer self) {
  const XEvent* e = static_cast<const XEvent*>(xevent);
  if (e->type == MapNotify || e->type == ConfigureNotify) static_cast<OverlayWindow*>(self)->stackingChanged();
  return GDK_FILTER_CONTINUE;
}

void OverlayWindow::stackingChanged() {
  if (kind != BarKind::x11Popup || raiseCheck.connected()) return;
  // Once the burst of events is over, and not more than ten times a second
  // (two such windows could otherwise take turns for ever).
  const gint64 since = g_get_monotonic_time() - lastRaise;
  const unsigned wait = since > 100000 ? 0 : static_cast<unsigned>((100000 - since) / 1000);
  raiseCheck = Glib::signal_timeout().connect(sigc::mem_fun(*this, &OverlayWindow::raiseIfCovered), wait);
}

namespace {

// The child of the root that holds w: w itself, or the frame a window
// manager put around it. 0 when the server does not know w.
::Window topLevelOf(Display* x, ::Window w) {
  for (int depth = 0; depth < 16; ++depth) {
    ::Window root = 0, parent = 0, *children = nullptr;
    unsigned count = 0;
    if (!XQueryTree(x, w, &root, &parent, &children, &count)) return 0;
    if (children) XFree(children);
    if (parent == root || parent == 0) return w;
    w = parent;
  }
  return 0;
}

bool screenBlanked(Display* x, ::Window root) {
  int event = 0, error = 0;
  if (!XScreenSaverQueryExtension(x, &event, &error)) return false;
  XScreenSaverInfo* info = XScreenSaverAllocInfo();
  const bool on = info && XScreenSaverQueryInfo(x, root, info) && info->state == ScreenSaverOn;
  if (info) XFree(info);
  return on;
}

}  // namespace

bool OverlayWindow::raiseIfCovered() {
  GdkWindow* g = win ? gtk_widget_get_window(GTK_WIDGET(win->gobj())) : nullptr;
  if (!isX11(g) || !gdk_window_is_viewable(g)) return false;
  GdkDisplay* display = gdk_window_get_display(g);
  Display* x = GDK_DISPLAY_XDISPLAY(display);
  const ::Window self = GDK_WINDOW_XID(g);
  const ::Window rootWindow = GDK_WINDOW_XID(gdk_get_default_root_window());
  gdk_x11_display_error_trap_push(display);
  // Our dialogs, menus and choosers, as the server stacks them: in the
  // window manager's frames where they have one.
  std::vector<::Window> ours;
  GList* toplevels = gtk_window_list_toplevels();
  for (GList* l = toplevels; l; l = l->next) {
    GdkWindow* w = gtk_widget_get_window(GTK_WIDGET(l->data));
    if (w && isX11(w) && gdk_window_is_visible(w) && w != g) ours.push_back(topLevelOf(x, GDK_WINDOW_XID(w)));
  }
  g_list_free(toplevels);

  std::vector<StackedWindow> stack;
  ::Window rootReturn, parent, *children = nullptr;
  unsigned count = 0;
  if (XQueryTree(x, rootWindow, &rootReturn, &parent, &children, &count)) {
    for (unsigned i = 0; i < count; ++i) {  // bottom to top
      XWindowAttributes a;
      if (!XGetWindowAttributes(x, children[i], &a) || a.map_state != IsViewable) continue;
      const bool mine = std::find(ours.begin(), ours.end(), children[i]) != ours.end() ||
                        gdk_x11_window_lookup_for_display(display, children[i]);
      stack.push_back({children[i],
                       {double(a.x), double(a.y), double(a.width), double(a.height)},
                       a.override_redirect != 0,
                       mine,
                       children[i] == self});
    }
    if (children) XFree(children);
  }
  const Restack place = placeBar(stack, screenBlanked(x, rootWindow), raiseMemory);
  if (place.kind == Restack::Kind::top) {
    XRaiseWindow(x, self);
    lastRaise = g_get_monotonic_time();
  } else if (place.kind == Restack::Kind::below) {
    // Just under our dialog: it must never hide the guide's button or the
    // chooser's file list.
    XWindowChanges under{};
    under.sibling = static_cast<::Window>(place.sibling);
    under.stack_mode = Below;
    XConfigureWindow(x, self, CWSibling | CWStackMode, &under);
    lastRaise = g_get_monotonic_time();
  }
  gdk_x11_display_error_trap_pop_ignored(display);
  return false;
}

}  // namespace lumerix::gtk
