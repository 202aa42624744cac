#include "gtk/PreferencesWindow.h"

#include "linux/Autostart.h"
#include "ui/Preferences.h"

namespace lumerix::gtk {

namespace {

Glib::ustring str(std::string_view s) {
  return Glib::ustring(std::string(s));  // ustring's (pointer, n) counts characters, not bytes
}

}  // namespace

void CappedLabel::get_preferred_width_vfunc(int& minimum, int& natural) const {
  Gtk::Label::get_preferred_width_vfunc(minimum, natural);
  natural = std::min(natural, maxWidth);
  minimum = std::min(minimum, natural);
}

Gtk::Scale& PreferencesWindow::slider(Gtk::Scale& s, double minimum, double maximum) {
  s.set_range(minimum, maximum);
  s.set_draw_value(false);
  s.set_size_request(static_cast<int>(prefs::sliderWidth), -1);
  s.set_increments((maximum - minimum) / 100, (maximum - minimum) / 10);
  return s;
}

PreferencesWindow::PreferencesWindow(Controller& c)
    : controller(c),
      font(Gtk::ORIENTATION_HORIZONTAL),
      stroke(Gtk::ORIENTATION_HORIZONTAL),
      opacity(Gtk::ORIENTATION_HORIZONTAL),
      folder(static_cast<int>(prefs::folderLabelMaxWidth)),
      choose(str(prefs::chooseTitle)),
      folderRow(Gtk::ORIENTATION_HORIZONTAL, 8),
      startAtLogin(str(prefs::startAtLoginTitle)),
      listenAlways(str(prefs::listenAlwaysTitle)),
      listenPrivacy(str(prefs::listenPrivacy)) {
  // One row more than macOS has: start at login.
  const int height =
      static_cast<int>(prefs::windowHeight + prefs::rowSpacing + 24 + prefs::rowSpacing + prefs::listenRowHeight);
  set_title(str(prefs::windowTitle));
  set_default_size(static_cast<int>(prefs::windowWidth), height);
  set_size_request(static_cast<int>(prefs::windowWidth), height);
  set_resizable(false);
  set_type_hint(Gdk::WINDOW_TYPE_HINT_DIALOG);
  set_keep_above(true);  // over the player the bar floats on

  grid.set_row_spacing(static_cast<int>(prefs::rowSpacing));
  grid.set_column_spacing(static_cast<int>(prefs::columnSpacing));
  grid.set_halign(Gtk::ALIGN_CENTER);
  grid.set_valign(Gtk::ALIGN_CENTER);
  int row = 0;
  auto title = [&](std::string_view text) {
    auto* label = Gtk::make_managed<Gtk::Label>(str(text));
    label->set_halign(Gtk::ALIGN_END);
    grid.attach(*label, 0, row, 1, 1);
  };
  auto valueLabel = [&](Gtk::Label& label) {
    label.set_size_request(static_cast<int>(prefs::valueLabelWidth), -1);
    label.set_xalign(0);
    label.get_style_context()->add_class("dim-label");  // the secondary label colour
    grid.attach(label, 2, row, 1, 1);
  };
  for (auto [sliderRow, s, value] :
       {std::tuple{prefs::fontRow, &font, &fontValue}, std::tuple{prefs::strokeRow, &stroke, &strokeValue},
        std::tuple{prefs::alphaRow, &opacity, &alphaValue}}) {
    title(sliderRow.title);
    grid.attach(slider(*s, sliderRow.minimum, sliderRow.maximum), 1, row, 1, 1);
    s->set_value(sliderRow.initial);
    valueLabel(*value);
    ++row;
  }
  title(prefs::backgroundTitle);
  for (std::string_view item : prefs::backgroundItems) background.append(str(item));
  background.set_halign(Gtk::ALIGN_START);
  grid.attach(background, 1, row++, 1, 1);
  title(prefs::folderTitle);
  folder.set_text(str(prefs::folderInitial));
  folder.set_ellipsize(Pango::ELLIPSIZE_MIDDLE);
  folder.get_style_context()->add_class("dim-label");
  folderRow.pack_start(folder, Gtk::PACK_SHRINK);
  folderRow.pack_start(choose, Gtk::PACK_SHRINK);
  grid.attach(folderRow, 1, row++, 2, 1);
  grid.attach(startAtLogin, 1, row++, 2, 1);
  auto* listenRow = Gtk::make_managed<Gtk::Box>(Gtk::ORIENTATION_VERTICAL, 2);
  listenPrivacy.set_xalign(0);
  listenPrivacy.set_line_wrap(true);
  listenPrivacy.set_max_width_chars(48);
  listenPrivacy.get_style_context()->add_class("dim-label");
  listenRow->pack_start(listenAlways, Gtk::PACK_SHRINK);
  listenRow->pack_start(listenPrivacy, Gtk::PACK_SHRINK);
  grid.attach(*listenRow, 1, row++, 2, 1);
  add(grid);

  font.signal_value_changed().connect([this] {
    if (!syncing) controller.setFontSize(font.get_value());
    refreshValueLabels();
  });
  stroke.signal_value_changed().connect([this] {
    if (!syncing) controller.setStrokeWidth(stroke.get_value());
    refreshValueLabels();
  });
  opacity.signal_value_changed().connect([this] {
    if (!syncing) controller.setAlpha(opacity.get_value());
    refreshValueLabels();
  });
  background.signal_changed().connect([this] {
    if (!syncing && background.get_active_row_number() >= 0) controller.setBgMode(background.get_active_row_number());
  });
  choose.signal_clicked().connect([this] {
    if (controller.chooseSubtitleFolder()) folder.set_text(controller.preferenceValues().folder);
  });
  startAtLogin.signal_toggled().connect([this] {
    if (syncing) return;
    if (auto entry = autostart::entryPath()) {
      autostart::setEnabled(*entry, startAtLogin.get_active(), autostart::ownExecutable());
    }
    refresh();  // the box shows what the file says, also when writing failed
  });
  listenAlways.signal_toggled().connect([this] {
    if (!syncing) controller.setListenAlways(listenAlways.get_active());
  });
  signal_delete_event().connect([this](GdkEventAny*) {
    hide();
    return true;  // kept for the next show
  });
  grid.show_all();
  refresh();
}

void PreferencesWindow::refresh() {
  const prefs::Values v = controller.preferenceValues();
  syncing = true;
  font.set_value(v.fontSize);
  stroke.set_value(v.strokeWidth);
  opacity.set_value(v.alpha);
  background.set_active(static_cast<int>(v.bgMode));
  const auto entry = autostart::entryPath();
  startAtLogin.set_sensitive(entry.has_value());
  startAtLogin.set_active(entry && autostart::enabled(*entry));
  listenAlways.set_active(v.listenAlways);
  syncing = false;
  folder.set_text(v.folder);
  refreshValueLabels();
}

void PreferencesWindow::refreshValueLabels() {
  fontValue.set_text(prefs::fontValueLabel(font.get_value()));
  strokeValue.set_text(prefs::strokeValueLabel(stroke.get_value()));
  alphaValue.set_text(prefs::alphaValueLabel(opacity.get_value()));
}

void PreferencesWindow::showFromController() {
  refresh();
  set_position(Gtk::WIN_POS_CENTER);
  present();
}

}  // namespace lumerix::gtk
