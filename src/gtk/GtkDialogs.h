#pragma once

#include <gtkmm.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/Dialogs.h"

namespace lumerix::gtk {

// Alerts, the first-run guide and the file and folder choosers as GTK
// dialogs; each runs modally (the bar keeps ticking meanwhile). Main
// thread only.
class GtkDialogs : public Dialogs {
 public:
  int runAlert(const Alert& alert) override;
  std::optional<std::string> chooseFile(const std::vector<std::string>& extensions) override;
  std::optional<std::string> chooseFolder() override;

  // The guide's rows as a widget: for the alert, and for the tests.
  static Gtk::Widget* buildGuide(const Alert& alert);
};

// What the application is asked to do, as hooks the shell fills in.
class GtkAppServices : public AppServices {
 public:
  std::function<void()> onActivate, onShowPreferences, onTerminate;
  void activate() override {
    if (onActivate) onActivate();
  }
  void openURL(const std::string& url) override;
  void showPreferences() override {
    if (onShowPreferences) onShowPreferences();
  }
  void checkForUpdates() override {}  // no updater on this platform: the packages update it
  void terminate() override {
    if (onTerminate) onTerminate();
  }
};

}  // namespace lumerix::gtk
