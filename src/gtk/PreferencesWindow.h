#pragma once

#include <gtkmm.h>

#include "app/Controller.h"
#include "gtk/GlobalKeys.h"

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

// The one preferences window: seven rows, every control acting at once
// through the controller. Closing only hides it; refresh() on every show.
class PreferencesWindow : public Gtk::Window {
 public:
  // globalKeys: the shell's, which follows the shortcut row at once.
  explicit PreferencesWindow(Controller& controller, GlobalKeys* globalKeys = nullptr);
  ~PreferencesWindow() override;
  // Copies the controller's values into the controls and shows the window
  // in the middle of the screen, in front.
  void showFromController();
  // For the tests: the controls by row.
  Gtk::Scale& fontSlider() { return font; }
  Gtk::Scale& strokeSlider() { return stroke; }
  Gtk::Scale& alphaSlider() { return opacity; }
  Gtk::ComboBoxText& backgroundPopup() { return background; }
  Gtk::ComboBoxText& fallbackEncodingPopup() { return fallbackEncoding; }
  Gtk::Label& folderLabel() { return folder; }
  Gtk::Label& fontValueLabel() { return fontValue; }
  Gtk::Label& strokeValueLabel() { return strokeValue; }
  Gtk::Label& alphaValueLabel() { return alphaValue; }
  Gtk::CheckButton& startAtLoginBox() { return startAtLogin; }
  Gtk::Label& secondLabel() { return second; }
  Gtk::Button& secondOpenButton() { return secondOpen; }
  Gtk::Button& secondRemoveButton() { return secondRemove; }
  Gtk::Scale& secondFontSlider() { return secondFont; }
  Gtk::ComboBoxText& secondPositionPopup() { return secondPosition; }
  Gtk::ComboBoxText& secondColorPopup() { return secondColor; }
  Gtk::CheckButton& globalKeysBox() { return everywhere; }
  Gtk::ComboBoxText& chordPopup() { return chord; }
  Gtk::Label& globalKeysLabel() { return keysLine; }
  Gtk::CheckButton& listenAlwaysBox() { return listenAlways; }

 private:
  void refresh();
  void refreshValueLabels();
  void applyGlobalKeys();  // after a change of the shortcut row
  Gtk::Scale& slider(Gtk::Scale& s, double minimum, double maximum);

  Controller& controller;
  bool syncing = false;  // values set from the controller are not changes
  Gtk::Grid grid;
  Gtk::Scale font, stroke, opacity;
  Gtk::Label fontValue, strokeValue, alphaValue;
  Gtk::ComboBoxText background;
  Gtk::ComboBoxText fallbackEncoding;
  CappedLabel folder;
  Gtk::Button choose;
  Gtk::Box folderRow;
  Gtk::CheckButton startAtLogin;
  // The second subtitle's rows.
  CappedLabel second;
  Gtk::Button secondOpen, secondRemove;
  Gtk::Box secondRow;
  Gtk::Scale secondFont;
  Gtk::Label secondFontValue;
  Gtk::ComboBoxText secondPosition, secondColor;
  GlobalKeys* globalKeys;
  Gtk::Box keysRow;
  Gtk::CheckButton everywhere;
  Gtk::ComboBoxText chord;
  CappedLabel keysLine;
  Gtk::CheckButton listenAlways;
  Gtk::Label listenPrivacy;
};

}  // namespace lumerix::gtk
