#pragma once

#include <gtkmm.h>

#include <memory>
#include <optional>
#include <string>

#include "app/Controller.h"
#include "app/Demo.h"
#include "app/PlatformServices.h"
#include "gtk/DisplayBackend.h"
#include "gtk/GlobalKeys.h"
#include "gtk/GtkDialogs.h"
#include "gtk/OverlayWindow.h"
#include "gtk/PangoText.h"
#include "gtk/PreferencesWindow.h"
#include "gtk/TickSource.h"
#include "gtk/TrayMenu.h"

namespace lumerix::gtk {

struct ShellOptions {
  std::optional<std::string> subtitle;  // an existing file
  std::optional<std::string> second;    // shown with it
  bool demo = false;
  std::string_view demoSample;  // the bundled sample subtitle's text, for the demo
  std::string player;           // MPRIS name; empty: the "TargetPlayer" setting, else any player
  BackendChoice backend;
  bool tray = true;  // false where no session bus could carry it
  bool listen = false;  // sync the subtitle by listening from the start
};

// The program with its bar: the controller and everything it talks to on
// this desktop, the timers that drive it and the signals that stop it. One
// per process, on the main thread, inside the application's run.
class GtkShell {
 public:
  GtkShell(Gtk::Application& app, ShellOptions options);
  ~GtkShell();
  GtkShell(const GtkShell&) = delete;
  GtkShell& operator=(const GtkShell&) = delete;

  // A second launch: the bar comes to the front, with the file it named.
  void present();
  void open(const std::string& path);
  // `lumerix --do NAME`; a name this build does not know is dropped.
  void runAction(std::string_view name);

 private:
  void tick();
  void quitNow();
  static gboolean onStopSignal(gpointer self);
  void writeTrayIcon();
  void rebuildMenus();  // when the controller's menu changed
  std::function<void(MenuAction)> perform();

  Gtk::Application& app;
  SystemClock clock;
  TextEngine text;
  std::unique_ptr<SettingsStore> settings;
  std::unique_ptr<SettingsStore> guideMemory;  // the user's own settings, for the demo's guide
  std::optional<DemoFolder> demoFolder;
  platform::PlayerServices player;
  OverlayWindow host;
  GtkDialogs dialogs;
  GtkAppServices services;
  std::unique_ptr<Controller> controller;
  std::unique_ptr<GlobalKeys> globalKeys;  // after the controller it drives, gone before it
  std::unique_ptr<PreferencesWindow> preferences;
  BuiltMenu contextMenu;
  std::unique_ptr<Tray> tray;
  std::string iconDir;
  std::unique_ptr<TickSource> ticker;
  sigc::connection debugTimer, trayCheck;
  guint stopSignals[3] = {0, 0, 0};
  bool quitting = false;
  int menuRevision = -1;  // the controller's, when the menus last showed what it wants
};

}  // namespace lumerix::gtk
