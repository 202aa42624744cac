#include "gtk/GtkShell.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "app/MemorySettingsStore.h"
#include "gtk/CairoCanvas.h"
#include "ui/DesktopTexts.h"
#include "ui/Menu.h"
#include "util/Path.h"
#include "util/StopSignals.h"

namespace lumerix::gtk {

namespace {

constexpr const char* kTrayIconName = "lumerix-status";
constexpr int kTrayIconPixels = 48;  // hosts scale it down; sharp on dense screens too

}  // namespace

GtkShell::GtkShell(Gtk::Application& app, ShellOptions options)
    : app(app),
      text(desktopFontFamily()),
      // The demo keeps its settings in memory: it must not change the user's.
      settings(options.demo ? std::make_unique<MemorySettingsStore>() : platform::makeUserSettingsStore(std::cerr)),
      host(barKind(), *settings, text) {
  std::unique_ptr<SyncSource> source;
  std::optional<std::string> subtitle = options.subtitle;
  // The demo still speaks as this platform does; only its player is built in.
  player = platform::makePlayerServices(*settings, options.player);
  if (options.demo) {
    source = std::make_unique<DemoSync>(clock, demoLoopSeconds(options.demoSample));
    demoFolder.emplace(options.demoSample);
    subtitle = demoFolder->subtitle();
    if (!subtitle) std::cerr << "lumerix: no folder for the demo's sample subtitle (" << demoFolder->error() << ")\n";
  } else {
    source = std::move(player.source);
  }
  // The loop sleeps until the next tick is due; a source that changed wakes
  // it, and a turn of the loop brings a tick (TickSource).
  source->onChange([] { g_main_context_wakeup(nullptr); });

  services.onTerminate = [this] { quitNow(); };
  services.onActivate = [this] { host.present(); };
  services.onShowPreferences = [this] {
    if (!preferences) preferences = std::make_unique<PreferencesWindow>(*controller, globalKeys.get());
    preferences->showFromController();
  };
  controller = std::make_unique<Controller>(ControllerServices{clock, *settings, host, dialogs, services},
                                            std::move(source), subtitle, player.conventions,
                                            options.demo ? std::nullopt : options.second);
  host.attach(controller.get());
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  globalKeys = makeGlobalKeys(
      wayland && *wayland, [this](const GlobalAction& action) { controller->runAction(action.name); },
      [this](const std::vector<const GlobalAction*>& refused, Chord chord) {
        controller->shortcutsRefused(refused, chord);
      },
      [this](std::string_view note) { controller->postNote(note); });
  globalKeys->apply(controller->globalKeySettings());
  controller->setSoundCapture(platform::makeSoundCapture(clock));
  if (options.listen) controller->startListening();
  const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
  for (std::string_view note : texts::desktop::notes({.composited = host.composited(),
                               .waylandWithoutLayerShell = options.backend.waylandWithoutLayerShell,
                               .gnome = texts::desktop::isGnome(desktop ? desktop : "")})) {
    controller->postNote(note);
  }

  // Left at -1, the first tick rebuilds it with only the items shown then.
  contextMenu = buildMenu(controller->menu(), perform());
  host.onContextMenu([this](const GdkEvent* event) { contextMenu.menu->popup_at_pointer(event); });
  if (options.tray) {
    writeTrayIcon();
    tray = std::make_unique<Tray>(iconDir, kTrayIconName, buildMenu(controller->menu(), perform()));
  }
  // The tray host answers within a moment, if there is one; without one the
  // right-click menu is the only way in, so say so once.
  trayCheck = Glib::signal_timeout().connect_seconds(
      [this] {
        if (controller && (!tray || !tray->shown())) controller->postNote(texts::desktop::noTray);
        return false;
      },
      3);

  ticker = std::make_unique<TickSource>([this] { tick(); }, [this] { return controller->nextTickIn(); });
  if (controller->debugLogEnabled()) {
    debugTimer = Glib::signal_timeout().connect(
        [this] {
          std::cerr << Controller::debugLine(host.diagnostics()) << std::endl;
          return true;
        },
        static_cast<unsigned>(Controller::debugLogInterval * 1000));
  }
  // Signals only set the quit in motion; the main loop does the rest. One
  // that came while the subtitle loaded was held for this moment.
  for (int i = 0; i < stopsignals::kCount; ++i) {
    stopSignals[i] = g_unix_signal_add(stopsignals::kSignals[i], onStopSignal, this);
  }
  stopsignals::release();
  app.hold();  // no window of the application's kind: keep running anyway

  // Once the bar is up; the guide's dialog runs its own loop, the bar ticks on.
  // The demo's settings live in memory, but whether the guide was seen is
  // remembered for real: a second demo is not a first run.
  if (options.demo) guideMemory = platform::makeUserSettingsStore(std::cerr);
  Glib::signal_idle().connect_once(
      [this] { showGuideOnFirstLaunch(*controller, guideMemory ? *guideMemory : *settings); });
}

std::function<void(MenuAction)> GtkShell::perform() {
  return [this](MenuAction action) {
    if (controller) controller->perform(action);
  };
}

void GtkShell::rebuildMenus() {
  // An open menu keeps its items until it closes; the next tick catches up.
  if (controller->menuRevision() == menuRevision || contextMenu.menu->get_visible()) return;
  menuRevision = controller->menuRevision();
  // Swapped, not assigned: assigning would let go of the old accelerators
  // before the old menu, whose labels still point at them.
  BuiltMenu fresh = buildMenu(controller->menu(), perform());
  std::swap(contextMenu, fresh);
  if (tray) tray->setMenu(buildMenu(controller->menu(), perform()));
  auto shown = [this](MenuAction action) { return controller->menuItemShown(action); };
  showMenuItems(*contextMenu.menu, shown);
  if (tray) tray->showItems(shown);
}

void GtkShell::tick() {
  controller->tick();
  rebuildMenus();
}

GtkShell::~GtkShell() {
  for (guint id : stopSignals) {
    if (id) g_source_remove(id);
  }
  ticker.reset();
  debugTimer.disconnect();
  trayCheck.disconnect();
  host.attach(nullptr);
  tray.reset();
  preferences.reset();
  globalKeys.reset();  // the keys go back to the desktop
  if (controller) controller->source().cancel();  // again: cancelling twice is harmless
  controller.reset();
  if (!iconDir.empty()) {
    std::remove(path::append(iconDir, std::string(kTrayIconName) + ".png").c_str());
    ::rmdir(iconDir.c_str());
  }
}

gboolean GtkShell::onStopSignal(gpointer self) {
  // As the quit keys: the calibration is saved, the sources stop.
  static_cast<GtkShell*>(self)->controller->quit();
  return G_SOURCE_CONTINUE;
}

void GtkShell::quitNow() {
  if (quitting) return;
  quitting = true;
  // A dialog running its own loop would hold the quit up: answer it.
  for (Gtk::Window* w : Gtk::Window::list_toplevels()) {
    if (auto* dialog = dynamic_cast<Gtk::Dialog*>(w)) dialog->response(Gtk::RESPONSE_DELETE_EVENT);
  }
  app.release();
  app.quit();
}

void GtkShell::present() {
  // Looking for the bar by starting it again finds it even when hidden.
  if (controller->state().barHidden) controller->toggleBar();
  host.present();
}

void GtkShell::runAction(std::string_view name) {
  controller->runAction(name);
}

void GtkShell::open(const std::string& path) {
  host.present();
  controller->fileDropped(path);  // as if dropped on the bar
}

void GtkShell::writeTrayIcon() {
  // The tray host reads the icon from a file: the core's drawing, put
  // where only this user and this run look.
  std::string dir = path::append(Glib::get_user_runtime_dir(), "lumerix-" + std::to_string(::getpid()));
  if (g_mkdir_with_parents(dir.c_str(), 0700) != 0) return;
  cairo_surface_t* icon = drawIconSurface(kTrayIconPixels, text);
  const bool written =
      cairo_surface_write_to_png(icon, path::append(dir, std::string(kTrayIconName) + ".png").c_str()) ==
      CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(icon);
  if (written) iconDir = dir;
}

}  // namespace lumerix::gtk
