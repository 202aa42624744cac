#pragma once

#include <gtkmm.h>

#include "app/Controller.h"

namespace lumerix::gtk {

// A label no wider than its limit: longer text is ellipsised instead of
// widening the window.
class CappedLabel : public Gtk::Label {
 public:
  explicit CappedLabel(int maxWidth) : maxWidth(maxWidth) {}

 protected:
  void get_preferred_width_vfunc(int& minimum, int& natural) const override;

 private:
  int maxWidth;
};

// The one preferences window: five rows, every control acting at once
// through the controller. Closing only hides it; refresh() on every show.
class PreferencesWindow : public Gtk::Window {
 public:
  explicit PreferencesWindow(Controller& controller);
  // Copies the controller's values into the controls and shows the window
  // in the middle of the screen, in front.
  void showFromController();
  // For the tests: the controls by row.
  Gtk::Scale& fontSlider() { return font; }
  Gtk::Scale& strokeSlider() { return stroke; }
  Gtk::Scale& alphaSlider() { return opacity; }
  Gtk::ComboBoxText& backgroundPopup() { return background; }
  Gtk::Label& folderLabel() { return folder; }
  Gtk::Label& fontValueLabel() { return fontValue; }
  Gtk::Label& strokeValueLabel() { return strokeValue; }
  Gtk::Label& alphaValueLabel() { return alphaValue; }
  Gtk::CheckButton& startAtLoginBox() { return startAtLogin; }
  Gtk::CheckButton& listenAlwaysBox() { return listenAlways; }

 private:
  void refresh();
  void refreshValueLabels();
  Gtk::Scale& slider(Gtk::Scale& s, double minimum, double maximum);

  Controller& controller;
  bool syncing = false;  // values set from the controller are not changes
  Gtk::Grid grid;
  Gtk::Scale font, stroke, opacity;
  Gtk::Label fontValue, strokeValue, alphaValue;
  Gtk::ComboBoxText background;
  CappedLabel folder;
  Gtk::Button choose;
  Gtk::Box folderRow;
  Gtk::CheckButton startAtLogin;
  Gtk::CheckButton listenAlways;
  Gtk::Label listenPrivacy;
};

}  // namespace lumerix::gtk
