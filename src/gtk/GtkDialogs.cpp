#include "gtk/GtkDialogs.h"

#include <glib.h>

#include <cstdio>

#include "ui/DesktopTexts.h"
#include "util/Numbers.h"

namespace lumerix::gtk {

namespace {

Glib::ustring markupEscaped(const std::string& s) {
  return Glib::Markup::escape_text(s);
}

// GTK's own label for its standard button, in the user's language.
Glib::ustring gtkLabel(const char* label) {
  return g_dgettext("gtk30", label);
}

}  // namespace

Gtk::Widget* GtkDialogs::buildGuide(const Alert& alert) {
  const GuideLayout& g = alert.guideLayout;
  auto* grid = Gtk::make_managed<Gtk::Grid>();
  grid->set_row_spacing(static_cast<int>(g.paragraphSpacing));
  grid->set_column_spacing(static_cast<int>(g.headIndent - g.symbolPointSize));
  grid->set_size_request(static_cast<int>(g.width), -1);
  auto theme = Gtk::IconTheme::get_default();
  int row = 0;
  for (const GuideRow& r : alert.guide) {
    // The Linux words name icons of the freedesktop theme; a row whose
    // icon the theme lacks goes without one.
    const std::string& icon = r.symbol;
    if (!icon.empty() && theme->has_icon(icon)) {
      auto* image = Gtk::make_managed<Gtk::Image>();
      image->set_from_icon_name(icon, Gtk::ICON_SIZE_MENU);
      image->set_pixel_size(static_cast<int>(g.symbolPointSize));
      image->set_valign(Gtk::ALIGN_START);
      grid->attach(*image, 0, row, 1, 1);
    }
    std::string body = r.body;
    if (!body.empty() && body.back() == '\n') body.pop_back();  // rows are paragraphs already
    auto* label = Gtk::make_managed<Gtk::Label>();
    // Pango reads the size the C way, whatever the locale.
    const std::string size = cFormat("%gpx", g.fontSize);
    label->set_markup("<span font=\"" + size + "\"><b>" + markupEscaped(r.heading) + "</b><span alpha=\"60%\">" +
                      markupEscaped(body) + "</span></span>");
    label->set_line_wrap(true);
    label->set_line_wrap_mode(Pango::WRAP_WORD_CHAR);
    label->set_max_width_chars(1);  // the grid's width decides where lines break
    label->set_hexpand(true);
    label->set_xalign(0);
    label->set_size_request(static_cast<int>(g.width - g.headIndent), -1);
    grid->attach(*label, 1, row, 1, 1);
    ++row;
  }
  grid->show_all();
  return grid;
}

int GtkDialogs::runAlert(const Alert& alert) {
  Gtk::MessageDialog dialog(alert.message, false,
                            alert.style == Alert::Style::warning ? Gtk::MESSAGE_WARNING : Gtk::MESSAGE_INFO,
                            Gtk::BUTTONS_NONE, true);
  if (!alert.informative.empty()) dialog.set_secondary_text(alert.informative);
  if (!alert.guide.empty()) dialog.get_message_area()->pack_start(*buildGuide(alert), Gtk::PACK_SHRINK);
  if (alert.buttons.empty()) {
    dialog.add_button(gtkLabel("_OK"), 0);
  } else {
    for (std::size_t i = 0; i < alert.buttons.size(); ++i) dialog.add_button(alert.buttons[i], static_cast<int>(i));
  }
  dialog.set_default_response(0);
  dialog.set_title(std::string(texts::brandName));
  dialog.set_keep_above(true);  // over the player the bar floats on
  dialog.set_position(Gtk::WIN_POS_CENTER);
  const int answer = dialog.run();
  return answer >= 0 ? answer : -1;
}

std::optional<std::string> GtkDialogs::chooseFile(const std::vector<std::string>& extensions) {
  auto chooser =
      Gtk::FileChooserNative::create(std::string(texts::desktop::openSubtitleTitle), Gtk::FILE_CHOOSER_ACTION_OPEN);
  auto filter = Gtk::FileFilter::create();
  std::string name;
  for (const std::string& ext : extensions) {
    // The patterns match case by case: "*.[sS][rR][tT]".
    std::string pattern = "*.";
    for (char c : ext) {
      pattern += g_ascii_isalpha(c) ? std::string{'[', g_ascii_tolower(c), g_ascii_toupper(c), ']'} : std::string{c};
    }
    filter->add_pattern(pattern);
    name += (name.empty() ? "*." : ", *.") + ext;
  }
  filter->set_name(name);
  chooser->add_filter(filter);
  if (chooser->run() != Gtk::RESPONSE_ACCEPT) return std::nullopt;
  const std::string path = chooser->get_filename();
  return path.empty() ? std::nullopt : std::optional(path);
}

std::optional<std::string> GtkDialogs::chooseFolder() {
  auto chooser = Gtk::FileChooserNative::create(std::string(texts::desktop::chooseFolderTitle),
                                                Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  if (chooser->run() != Gtk::RESPONSE_ACCEPT) return std::nullopt;
  const std::string path = chooser->get_filename();
  return path.empty() ? std::nullopt : std::optional(path);
}

void GtkAppServices::openURL(const std::string& url) {
  GError* error = nullptr;
  if (!gtk_show_uri_on_window(nullptr, url.c_str(), GDK_CURRENT_TIME, &error)) g_clear_error(&error);
}

}  // namespace lumerix::gtk
