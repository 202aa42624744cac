#include "gtk/PreferencesWindow.h"

#include <algorithm>

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

PreferencesWindow::PreferencesWindow(Controller& c, GlobalKeys* keys)
    : controller(c),
      font(Gtk::ORIENTATION_HORIZONTAL),
      stroke(Gtk::ORIENTATION_HORIZONTAL),
      opacity(Gtk::ORIENTATION_HORIZONTAL),
      folder(static_cast<int>(prefs::folderLabelMaxWidth)),
      choose(str(prefs::chooseTitle)),
      folderRow(Gtk::ORIENTATION_HORIZONTAL, 8),
      startAtLogin(str(prefs::startAtLoginTitle)),
      second(static_cast<int>(prefs::folderLabelMaxWidth)),
      secondOpen(str(prefs::secondOpenTitle)),
      secondRemove(str(prefs::secondRemoveTitle)),
      secondRow(Gtk::ORIENTATION_HORIZONTAL, 8),
      secondFont(Gtk::ORIENTATION_HORIZONTAL),
      globalKeys(keys),
      keysRow(Gtk::ORIENTATION_HORIZONTAL, 8),
      everywhere(str(globalKeysCheckTitle)),
      keysLine(static_cast<int>(prefs::windowWidth - 40)),
      listenAlways(str(prefs::listenAlwaysTitle)),
      listenPrivacy(str(prefs::listenPrivacy)) {
  // Rows more than the five: the fallback encoding, start at login (not on
  // macOS), the shortcuts' two, the second subtitle's, then listening's.
  const int height = static_cast<int>(prefs::windowHeight + 4 * (prefs::rowSpacing + 24) + prefs::secondRowsHeight +
                                      prefs::rowSpacing + prefs::listenRowHeight);
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
  title(prefs::fallbackEncodingTitle);
  for (const std::string& item : Controller::fallbackEncodingItems()) fallbackEncoding.append(item);
  fallbackEncoding.set_halign(Gtk::ALIGN_START);
  grid.attach(fallbackEncoding, 1, row++, 1, 1);
  title(prefs::folderTitle);
  folder.set_text(str(prefs::folderInitial));
  folder.set_ellipsize(Pango::ELLIPSIZE_MIDDLE);
  folder.get_style_context()->add_class("dim-label");
  folderRow.pack_start(folder, Gtk::PACK_SHRINK);
  folderRow.pack_start(choose, Gtk::PACK_SHRINK);
  grid.attach(folderRow, 1, row++, 2, 1);
  grid.attach(startAtLogin, 1, row++, 2, 1);

  title(prefs::secondTitle);
  second.set_ellipsize(Pango::ELLIPSIZE_MIDDLE);
  second.get_style_context()->add_class("dim-label");
  secondRow.pack_start(second, Gtk::PACK_SHRINK);
  secondRow.pack_start(secondOpen, Gtk::PACK_SHRINK);
  secondRow.pack_start(secondRemove, Gtk::PACK_SHRINK);
  grid.attach(secondRow, 1, row++, 2, 1);
  title(prefs::secondFontRow.title);
  grid.attach(slider(secondFont, prefs::secondFontRow.minimum, prefs::secondFontRow.maximum), 1, row, 1, 1);
  valueLabel(secondFontValue);
  ++row;
  title(prefs::secondPositionTitle);
  for (std::string_view item : prefs::secondPositionItems) secondPosition.append(str(item));
  secondPosition.set_halign(Gtk::ALIGN_START);
  grid.attach(secondPosition, 1, row++, 1, 1);
  title(prefs::secondColorTitle);
  for (const prefs::ColorChoice& choice : prefs::secondColors) secondColor.append(str(choice.title));
  secondColor.set_halign(Gtk::ALIGN_START);
  grid.attach(secondColor, 1, row++, 1, 1);
  title(globalKeysTitle);
  for (Chord each : chordChoices(KeyNames::pc)) chord.append(chordText(each, KeyNames::pc));
  keysRow.pack_start(everywhere, Gtk::PACK_SHRINK);
  keysRow.pack_start(chord, Gtk::PACK_SHRINK);
  grid.attach(keysRow, 1, row++, 2, 1);
  keysLine.set_xalign(0);
  keysLine.set_ellipsize(Pango::ELLIPSIZE_END);
  keysLine.get_style_context()->add_class("dim-label");
  grid.attach(keysLine, 0, row++, 3, 1);
  auto* listenRow = Gtk::make_managed<Gtk::Box>(Gtk::ORIENTATION_VERTICAL, 2);
  listenPrivacy.set_xalign(0);
  listenPrivacy.set_line_wrap(true);
  listenPrivacy.set_max_width_chars(48);
  listenPrivacy.get_style_context()->add_class("dim-label");
  listenRow->pack_start(listenAlways, Gtk::PACK_SHRINK);
  listenRow->pack_start(listenPrivacy, Gtk::PACK_SHRINK);
  grid.attach(*listenRow, 1, row++, 2, 1);
  add(grid);

  secondOpen.signal_clicked().connect([this] {
    controller.openSecondFileDialog();
    refresh();
  });
  secondRemove.signal_clicked().connect([this] {
    controller.removeSecondSubtitle();
    refresh();
  });
  secondFont.signal_value_changed().connect([this] {
    if (!syncing) controller.setSecondFontSize(secondFont.get_value());
    refreshValueLabels();
  });
  secondPosition.signal_changed().connect([this] {
    if (!syncing && secondPosition.get_active_row_number() >= 0) {
      controller.setSecondAbove(secondPosition.get_active_row_number() == 1);
    }
  });
  secondColor.signal_changed().connect([this] {
    const int i = secondColor.get_active_row_number();
    if (!syncing && i >= 0) controller.setSecondColor(std::string(prefs::secondColors[i].hex));
  });

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
  fallbackEncoding.signal_changed().connect([this] {
    if (!syncing && fallbackEncoding.get_active_row_number() >= 0) {
      controller.setFallbackEncodingIndex(fallbackEncoding.get_active_row_number());
    }
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
  everywhere.signal_toggled().connect([this] {
    if (syncing) return;
    controller.setGlobalShortcuts(everywhere.get_active());
    applyGlobalKeys();
  });
  chord.signal_changed().connect([this] {
    const int i = chord.get_active_row_number();
    const auto choices = chordChoices(KeyNames::pc);
    if (syncing || i < 0 || static_cast<std::size_t>(i) >= choices.size()) return;
    controller.setGlobalChord(choices[static_cast<std::size_t>(i)]);
    applyGlobalKeys();
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
  // The desktop's answer comes later: show it when it does.
  if (globalKeys) {
    globalKeys->onChange([this] {
      if (get_visible()) refresh();
    });
  }
}

PreferencesWindow::~PreferencesWindow() {
  if (globalKeys) globalKeys->onChange(nullptr);
}

void PreferencesWindow::refresh() {
  const prefs::Values v = controller.preferenceValues();
  syncing = true;
  font.set_value(v.fontSize);
  stroke.set_value(v.strokeWidth);
  opacity.set_value(v.alpha);
  background.set_active(static_cast<int>(v.bgMode));
  fallbackEncoding.set_active(static_cast<int>(v.fallbackEncoding));
  const auto entry = autostart::entryPath();
  startAtLogin.set_sensitive(entry.has_value());
  startAtLogin.set_active(entry && autostart::enabled(*entry));
  secondFont.set_value(v.second.fontSize);
  secondPosition.set_active(static_cast<int>(v.second.position));
  secondColor.set_active(static_cast<int>(v.second.color));  // -1: none of ours
  const GlobalKeySettings keys = controller.globalKeySettings();
  const auto choices = chordChoices(KeyNames::pc);
  const auto at = std::find(choices.begin(), choices.end(), keys.chord);
  // A chord written into the settings by hand shows as itself.
  while (chord.get_model()->children().size() > choices.size()) chord.remove_text(static_cast<int>(choices.size()));
  if (at == choices.end()) chord.append(chordText(keys.chord, KeyNames::pc));
  chord.set_active(at == choices.end() ? static_cast<int>(choices.size()) : static_cast<int>(at - choices.begin()));
  const GlobalKeysState state = globalKeys ? globalKeys->state() : GlobalKeysState::unavailable;
  everywhere.set_active(keys.enabled && state != GlobalKeysState::unavailable);
  everywhere.set_sensitive(state != GlobalKeysState::unavailable);
  chord.set_sensitive(state == GlobalKeysState::active);
  // Where the desktop binds the keys, it may have chosen others: say which.
  keysLine.set_text(state == GlobalKeysState::active && globalKeys && globalKeys->choosesKeys()
                        ? boundKeysLine(globalKeys->bound())
                        : globalKeysLine(state, keys.chord,
                                         globalKeys ? globalKeys->refused() : std::vector<const GlobalAction*>{},
                                         KeyNames::pc));
  keysLine.set_tooltip_text(keysLine.get_text());
  listenAlways.set_active(v.listenAlways);
  syncing = false;
  second.set_text(v.second.file);
  secondRemove.set_sensitive(v.second.loaded);
  folder.set_text(v.folder);
  refreshValueLabels();
}

void PreferencesWindow::applyGlobalKeys() {
  if (globalKeys) globalKeys->apply(controller.globalKeySettings());
  refresh();
}

void PreferencesWindow::refreshValueLabels() {
  fontValue.set_text(prefs::fontValueLabel(font.get_value()));
  strokeValue.set_text(prefs::strokeValueLabel(stroke.get_value()));
  alphaValue.set_text(prefs::alphaValueLabel(opacity.get_value()));
  secondFontValue.set_text(prefs::fontValueLabel(secondFont.get_value()));
}

void PreferencesWindow::showFromController() {
  refresh();
  set_position(Gtk::WIN_POS_CENTER);
  present();
}

}  // namespace lumerix::gtk
