// The GTK shell's own pieces. The tables and geometry need no display; the
// menu, the preferences window and the drawing need GTK, and are skipped
// where no display can be opened (CI runs them under Xvfb).
#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtkmm.h>
#include <pango/pangocairo.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "CommaLocale.h"
#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "ScopedEnv.h"
#include "app/Controller.h"
#include "gtk/Blur.h"
#include "gtk/CairoCanvas.h"
#include "gtk/DropPaths.h"
#include "gtk/GtkDialogs.h"
#include "gtk/KeyMap.h"
#include "gtk/PanelGeometry.h"
#include "gtk/PreferencesWindow.h"
#include "gtk/RaisePolicy.h"
#include "gtk/TrayMenu.h"
#include "overlay/TextLayers.h"
#include "platform/KeyCodes.h"
#include "ui/Menu.h"
#include "ui/Texts.h"

namespace lumerix::gtk {
namespace {

using ::testing::ElementsAre;

TEST(GtkKeyMap, CodesShiftAndCharactersAsTheControllerReadsThem) {
  struct Row {
    unsigned keyval, state;
    int code;
    bool shift;
    std::string characters;
    unsigned latin = 0;  // what the same key types on the user's Latin layout
  };
  const Row rows[] = {
      {GDK_KEY_Escape, GDK_CONTROL_MASK, keycode::escape, false, ""},  // Escape quits whatever is held
      {GDK_KEY_Left, 0, keycode::left, false, ""},
      {GDK_KEY_Left, GDK_SHIFT_MASK, keycode::left, true, ""},
      {GDK_KEY_KP_Right, 0, keycode::right, false, ""},
      {GDK_KEY_Down, GDK_SHIFT_MASK, keycode::down, true, ""},
      {GDK_KEY_KP_Up, 0, keycode::up, false, ""},
      {GDK_KEY_q, 0, keycode::none, false, "q"},
      {GDK_KEY_q, GDK_CONTROL_MASK, keycode::none, false, ""},  // held with Control: none of the bar's keys
      {GDK_KEY_comma, GDK_CONTROL_MASK, keycode::none, false, ""},
      {GDK_KEY_Left, GDK_MOD1_MASK, keycode::none, false, ""},
      {GDK_KEY_t, GDK_SUPER_MASK, keycode::none, false, ""},
      {GDK_KEY_Q, GDK_SHIFT_MASK, keycode::none, true, "Q"},  // not a shortcut: the controller says so
      {GDK_KEY_comma, 0, keycode::none, false, ","},
      {GDK_KEY_plus, GDK_SHIFT_MASK, keycode::none, true, "+"},
      {GDK_KEY_KP_Add, 0, keycode::none, false, "+"},
      {GDK_KEY_KP_Subtract, 0, keycode::none, false, "-"},
      {GDK_KEY_KP_0, 0, keycode::none, false, "0"},
      {GDK_KEY_Cyrillic_o, 0, keycode::none, false, "о"},
      {GDK_KEY_Cyrillic_shcha, 0, keycode::none, false, "o", GDK_KEY_o},  // a Russian layout: the o key
      {GDK_KEY_Greek_tau, 0, keycode::none, false, "t", GDK_KEY_t},
      {GDK_KEY_Cyrillic_IE, GDK_SHIFT_MASK, keycode::none, true, "T", GDK_KEY_T},
      {GDK_KEY_t, 0, keycode::none, false, "t", GDK_KEY_e},  // a Latin key stays itself
      {GDK_KEY_F5, 0, keycode::none, false, ""},
      {GDK_KEY_Return, 0, keycode::none, false, ""},
      {GDK_KEY_Shift_L, GDK_SHIFT_MASK, keycode::none, true, ""},
  };
  for (const Row& r : rows) {
    const KeyStroke k = keyPressFromGdk(r.keyval, r.state, r.latin);
    EXPECT_EQ(k.code, r.code) << gdk_keyval_name(r.keyval);
    EXPECT_EQ(k.shift, r.shift) << gdk_keyval_name(r.keyval);
    EXPECT_EQ(k.characters, r.characters) << gdk_keyval_name(r.keyval);
  }
}

TEST(GtkDrop, TheFirstLocalSubtitleOfAUriListIsTaken) {
  auto chosen = [](const std::string& uriList) { return Controller::subtitlePathFrom(localPathsFromUriList(uriList)); };
  // Comments, CRLF, other schemes and other hosts are not local files.
  EXPECT_EQ(chosen("# from a file manager\r\nhttp://example.org/a.srt\r\nfile://elsewhere/b.srt\r\n"
                   "file:///home/me/notes.txt\r\nfile:///home/me/Show%20S01E02.SRT\r\nfile:///home/me/c.vtt\r\n"),
            "/home/me/Show S01E02.SRT");
  EXPECT_EQ(chosen("file://localhost/tmp/ep.vtt"), "/tmp/ep.vtt");
  EXPECT_EQ(chosen("file:///tmp/%E4%B8%AD%E6%96%87.srt\n"), "/tmp/中文.srt");
  EXPECT_EQ(chosen("file:///tmp/movie.mkv\nfile:///tmp/movie.ass\n"), std::nullopt);  // refused
  EXPECT_EQ(chosen(""), std::nullopt);
  EXPECT_THAT(localPathsFromUriList("file:///a.srt\nnot a uri\nfile:///b%2Fc.srt"), ElementsAre("/a.srt"));
}

TEST(GtkPanelGeometry, CoordinatesAndTheSavedFrame) {
  const Rect main{0, 0, 1920, 1080};
  // 816 x 125 at (552, 108) from the bottom: 847 from the top.
  EXPECT_EQ(toDesktop({552, 108, 816, 125}, main), (Rect{552, 847, 816, 125}));
  EXPECT_EQ(fromDesktop({552, 847, 816, 125}, main), (Rect{552, 108, 816, 125}));
  EXPECT_EQ(toDesktop({10, 20, 400, 100}, {1920, 0, 1280, 1024}), (Rect{1930, 904, 400, 100}));

  EXPECT_EQ(parseFrameString(frameString({552, 108.5, 816, 125})), (Rect{552, 108.5, 816, 125}));
  EXPECT_EQ(parseFrameString("-40 7 320 90"), (Rect{-40, 7, 320, 90}));
  // Frames written where the locale's decimal mark is a comma read back.
  EXPECT_EQ(parseFrameString("192,5 226,8 581 125"), (Rect{192.5, 226.8, 581, 125}));
  {
    test::CommaLocale comma;  // GTK sets the user's locale: the frame must not follow it
    EXPECT_EQ(frameString({192.5, 226.8, 581, 125}), "192.5 226.8 581 125");
    EXPECT_EQ(parseFrameString(frameString({192.5, 226.8, 581, 125})), (Rect{192.5, 226.8, 581, 125}));
  }
  for (const char* bad : {"", "1 2 3", "1 2 3 4 5", "1 2 0 4", "1 2 3 -4", "a b c d", "1 2 3 4x", "nan 2 3 4"}) {
    EXPECT_EQ(parseFrameString(bad), std::nullopt) << bad;
  }
}

TEST(GtkPanelGeometry, SavedFramesComeBackOntoAMonitor) {
  const Size min{320, 90};
  const std::vector<Rect> two{{0, 0, 1920, 1080}, {1920, 0, 1280, 1024}};
  // Where it fits, it stays.
  EXPECT_EQ(clampOntoMonitors({2000, 500, 800, 125}, two, min), (Rect{2000, 500, 800, 125}));
  // Straddling: onto the monitor it overlaps most, whole.
  EXPECT_EQ(clampOntoMonitors({1800, 500, 800, 125}, two, min), (Rect{1920, 500, 800, 125}));
  // A monitor that went away: onto the first.
  EXPECT_EQ(clampOntoMonitors({4000, 2000, 800, 125}, two, min), (Rect{1120, 955, 800, 125}));
  // Too large, too small.
  EXPECT_EQ(clampOntoMonitors({0, 0, 3000, 2000}, two, min), (Rect{0, 0, 1920, 1080}));
  EXPECT_EQ(clampOntoMonitors({10, 10, 100, 20}, two, min), (Rect{10, 10, 320, 90}));
  EXPECT_EQ(clampOntoMonitors({10, 10, 100, 20}, {}, min), (Rect{10, 10, 320, 90}));
  // The output a layer surface goes on agrees with where the frame is put,
  // also when the monitor it holds most of is not the first.
  EXPECT_EQ(monitorHolding({1800, 500, 800, 125}, two), 1);
  EXPECT_EQ(monitorHolding({1000, 500, 800, 125}, two), 0);
  EXPECT_EQ(monitorHolding({4000, 2000, 800, 125}, two), 0);
  EXPECT_EQ(monitorHolding({4000, 2000, 800, 125}, {}), -1);
}

TEST(GtkPanelGeometry, EdgesResizeDownToTheMinimumAndNoFurther) {
  const Size window{800, 125};
  EXPECT_EQ(edgesAt(400, 60, window, 6), Edge::none);
  EXPECT_EQ(edgesAt(2, 60, window, 6), Edge::left);
  EXPECT_EQ(edgesAt(797, 124, window, 6), Edge::right | Edge::bottom);
  EXPECT_EQ(edgesAt(0, 0, window, 6), Edge::left | Edge::top);
  EXPECT_EQ(edgesAt(3, 3, {4, 4}, 6), Edge::right | Edge::bottom);  // tiny: the nearer edges
  EXPECT_STREQ(cursorForEdges(Edge::left | Edge::top), "nwse-resize");
  EXPECT_STREQ(cursorForEdges(Edge::none), "");

  const Rect start{100, 100, 800, 125};
  const Size min{320, 90};
  EXPECT_EQ(resizedFrame(start, Edge::right, 50, 0, min), (Rect{100, 100, 850, 125}));
  // The left edge stops 320 short of the right one, which stays put.
  EXPECT_EQ(resizedFrame(start, Edge::left, 700, 0, min), (Rect{580, 100, 320, 125}));
  EXPECT_EQ(resizedFrame(start, Edge::top | Edge::right, -10, 100, min), (Rect{100, 135, 790, 90}));
  EXPECT_EQ(resizedFrame(start, Edge::bottom, 0, -500, min), (Rect{100, 100, 800, 90}));
}

TEST(GtkRaisePolicy, OnlyAForeignManagedWindowOverTheBarEarnsARaise) {
  const Rect area{100, 600, 600, 120};
  const Rect overBar{0, 0, 1280, 720}, beside{0, 0, 90, 90}, touching{0, 500, 100, 100};
  const StackedWindow bar{1, area, true, true, true};
  using K = Restack::Kind;
  struct Case {
    const char* what;
    std::vector<StackedWindow> stack;  // bottom to top
    bool locked;
    Restack expected;
  };
  const Case cases[] = {
      {"nothing above", {{9, overBar}, bar}, false, {}},
      {"a player's window over the bar", {bar, {9, overBar}}, false, {K::top}},
      {"a window elsewhere on the screen", {bar, {9, beside}}, false, {}},
      {"a window that only touches the bar's corner", {bar, {9, touching}}, false, {}},
      {"another program's menu (override-redirect)", {bar, {9, overBar, true}}, false, {}},
      {"a lock screen mapped over everything", {bar, {9, overBar, true}}, false, {}},
      {"a managed window while the screen is locked", {bar, {9, overBar}}, true, {}},
      {"our dialog above the bar", {bar, {5, overBar, false, true}}, false, {}},
      {"our dialog under the bar comes over it", {{5, overBar, false, true}, bar}, false, {K::below, 5}},
      {"a player over the bar, our dialog over both",
       {bar, {9, overBar}, {5, overBar, false, true}},
       false,
       {K::below, 5}},
      {"between a player and our dialog: in place", {{9, overBar}, bar, {5, overBar, false, true}}, false, {}},
      {"a player over our dialog and the bar", {bar, {5, overBar, false, true}, {9, overBar}}, false, {K::top}},
      {"our dialog elsewhere on the screen", {{5, beside, false, true}, bar}, false, {}},
  };
  for (const Case& c : cases) {
    RaiseMemory memory;
    EXPECT_EQ(placeBar(c.stack, c.locked, memory), c.expected) << c.what;
  }
}

TEST(GtkRaisePolicy, AWindowThatKeepsItselfOnTopIsNotFoughtForEver) {
  const StackedWindow bar{1, {100, 600, 600, 120}, true, true, true};
  const std::vector<StackedWindow> pushy{bar, {7, {0, 0, 1280, 720}}};
  RaiseMemory memory;
  int raises = 0;
  for (int i = 0; i < 10; ++i) raises += placeBar(pushy, false, memory).kind == Restack::Kind::top;
  EXPECT_EQ(raises, kMaxRaisesInARow);
  // Another window is a new fight; the pushy one, once gone, is forgiven.
  EXPECT_EQ(placeBar({bar, {8, {0, 0, 1280, 720}}}, false, memory).kind, Restack::Kind::top);
  EXPECT_EQ(placeBar({bar}, false, memory).kind, Restack::Kind::stay);
  EXPECT_EQ(placeBar(pushy, false, memory).kind, Restack::Kind::top);
}

TEST(GtkBlur, SpreadsAPointEvenlyAndKeepsItsWeight) {
  std::vector<unsigned char> image(41 * 41, 0);
  image[20 * 41 + 20] = 255;
  std::vector<unsigned char> same = image;
  blurAlpha(same.data(), 41, 41, 41, 0);  // no blur asked: untouched
  EXPECT_EQ(same, image);
  // A bigger spot, so rounding does not eat it.
  for (int y = 17; y < 24; ++y)
    for (int x = 17; x < 24; ++x) image[static_cast<std::size_t>(y * 41 + x)] = 255;
  long before = 0;
  for (unsigned char v : image) before += v;
  blurAlpha(image.data(), 41, 41, 41, 2.5);
  long after = 0;
  for (unsigned char v : image) after += v;
  EXPECT_NEAR(after, before, before * 0.05);
  auto at = [&](int x, int y) { return image[static_cast<std::size_t>(y * 41 + x)]; };
  EXPECT_LT(at(20, 20), 255);
  EXPECT_GT(at(27, 20), 0);  // spread beyond the spot
  EXPECT_EQ(at(27, 20), at(13, 20));
  EXPECT_EQ(at(20, 27), at(20, 13));
  EXPECT_EQ(at(0, 0), 0);
}

// ---- with GTK ---------------------------------------------------------------------------

class WithGtk : public ::testing::Test {
 protected:
  void SetUp() override {
    static const bool display = gtk_init_check(nullptr, nullptr);
    if (!display) GTEST_SKIP() << "no display";
    static Glib::RefPtr<Gtk::Application> keep =
        Gtk::Application::create("io.lumerix.Tests", Gio::APPLICATION_NON_UNIQUE);
  }
};

std::vector<std::string> describe(Gtk::Menu& menu) {
  std::vector<std::string> out;
  for (Gtk::Widget* child : menu.get_children()) {
    if (dynamic_cast<Gtk::SeparatorMenuItem*>(child)) {
      out.push_back("---");
      continue;
    }
    auto* item = dynamic_cast<Gtk::MenuItem*>(child);
    std::string line = item->get_label();
    // The shortcut the item's label shows is the one its accelerator group holds.
    GList* closures = gtk_widget_list_accel_closures(GTK_WIDGET(item->gobj()));
    for (GList* c = closures; c; c = c->next) {
      auto* closure = static_cast<GClosure*>(c->data);
      GtkAccelKey* key = gtk_accel_group_find(
          gtk_accel_group_from_accel_closure(closure),
          [](GtkAccelKey*, GClosure* candidate, gpointer wanted) -> gboolean { return candidate == wanted; }, closure);
      gchar* label = key ? gtk_accelerator_get_label(key->accel_key, key->accel_mods) : nullptr;
      if (label) line += std::string(" [") + label + "]";
      g_free(label);
    }
    g_list_free(closures);
    if (Gtk::Menu* sub = item->get_submenu()) {
      for (const std::string& s : describe(*sub)) line += " {" + s + "}";
    }
    out.push_back(line);
  }
  return out;
}

TEST_F(WithGtk, TheMenuIsTheCoresTitleForTitleWithTheBarsKeys) {
  std::vector<MenuAction> performed;
  BuiltMenu built =
      buildMenu(statusMenu(linuxUiTexts("mpv"), MenuStyle::barKeys), [&](MenuAction a) { performed.push_back(a); });
  BuiltMenu mac = buildMenu(statusMenu(macUiTexts()), [](MenuAction) {});
  EXPECT_THAT(describe(*mac.menu).at(0), "Open Subtitle… [Ctrl+O]");
  // The Linux menu names the bar's own keys, and has no update command.
  EXPECT_THAT(describe(*built.menu),
              ElementsAre("Open Subtitle… [O]", "Re-enable Episode Auto-pick [A]", "---",
                          "Subtitle Timing {−0.5 s [Left]} {−0.1 s [,]} {+0.1 s [.]} {+0.5 s [Right]}",
                          "Sync by Listening [L]", "Bigger Text [+]", "Smaller Text [-]", "Toggle Background Style [T]", "---", "Preferences…",
                          "Player Permission…", "How to Use…", "About Lumerix", "---", "Quit Lumerix [Q]"));
  // Items act through the core's actions, the submenu's too.
  auto children = built.menu->get_children();
  dynamic_cast<Gtk::MenuItem*>(children.at(6))->activate();
  dynamic_cast<Gtk::MenuItem*>(dynamic_cast<Gtk::MenuItem*>(children.at(3))->get_submenu()->get_children().at(1))
      ->activate();
  EXPECT_THAT(performed, ElementsAre(MenuAction::fontDown, MenuAction::offsetM1));
  // Without a tray host (none here) the indicator starts and nothing breaks.
  Tray tray("", "lumerix-status", buildMenu(statusMenu(linuxUiTexts("")), [](MenuAction) {}));
  EXPECT_FALSE(tray.shown());
  // While listening, and once a sync by listening can be undone, the menu
  // is built anew and swapped in.
  BuiltMenu listening = buildMenu(statusMenu(linuxUiTexts(""), MenuStyle::barKeys, {true, true}), [](MenuAction) {});
  const auto lines = describe(*listening.menu);
  EXPECT_EQ(lines.at(4), "Stop Listening [L]");
  EXPECT_EQ(lines.at(5), "Undo Sync");
  tray.setMenu(std::move(listening));
}

struct PrefsRig {
  lumerix::test::FakeSystem clock;
  MemorySettingsStore settings;
  lumerix::test::RecordingHost host;
  lumerix::test::RecordingDialogs dialogs;
  Controller controller{
      {clock, settings, host, dialogs, dialogs}, std::make_unique<lumerix::test::ScriptedSource>(), std::nullopt};
};

TEST_F(WithGtk, PreferencesShowTheControllersValuesAndWriteThroughIt) {
  PrefsRig r;
  r.controller.bumpFont(+2);  // 30
  r.controller.toggleBG();
  PreferencesWindow window(r.controller);
  window.showFromController();
  EXPECT_EQ(window.get_title(), "Lumerix Preferences");
  EXPECT_FALSE(window.get_resizable());
  EXPECT_EQ(window.fontSlider().get_value(), 30);
  EXPECT_EQ(window.fontValueLabel().get_text(), "30");
  EXPECT_EQ(window.strokeValueLabel().get_text(), "7.0");
  EXPECT_EQ(window.alphaValueLabel().get_text(), "92%");
  EXPECT_EQ(window.backgroundPopup().get_active_text(), "Black band");
  EXPECT_EQ(window.folderLabel().get_text(), "not set — open a subtitle once");
  EXPECT_EQ(r.settings.doubleFor("FontSize"), 30) << "showing writes nothing new";

  window.fontSlider().set_value(41.7);
  EXPECT_EQ(r.settings.doubleFor("FontSize"), 41.7);
  EXPECT_EQ(window.fontValueLabel().get_text(), "41");
  window.alphaSlider().set_value(0.5);
  EXPECT_EQ(r.settings.doubleFor("PanelAlpha"), 0.5);
  EXPECT_EQ(r.host.calls.back(), "alpha:0.50");
  window.backgroundPopup().set_active(0);
  EXPECT_EQ(r.settings.integerFor("BGMode"), 0);

  // A keyboard change shows on the next show, not before.
  r.controller.bumpFont(-2);
  EXPECT_EQ(window.fontSlider().get_value(), 41.7);
  window.hide();
  window.showFromController();
  EXPECT_EQ(window.fontSlider().get_value(), 39.7);
  int minimum = 0, natural = 0;
  window.folderLabel().set_text(std::string(300, 'x'));
  window.folderLabel().get_preferred_width(minimum, natural);
  EXPECT_LE(natural, 200);

  // Start at login: the box writes the desktop's autostart entry, and shows
  // what the folder holds, also after someone else removed it.
  char config[] = "/tmp/lumerix-autostart-XXXXXX";
  ASSERT_NE(::mkdtemp(config), nullptr);
  std::optional<test::ScopedEnv> home(std::in_place, "XDG_CONFIG_HOME", config);
  const std::string entry = std::string(config) + "/autostart/io.lumerix.Lumerix.desktop";
  window.showFromController();
  EXPECT_FALSE(window.startAtLoginBox().get_active());
  window.startAtLoginBox().set_active(true);
  EXPECT_EQ(::access(entry.c_str(), F_OK), 0);
  ::unlink(entry.c_str());
  window.showFromController();
  EXPECT_FALSE(window.startAtLoginBox().get_active());
  home.reset();
  std::filesystem::remove_all(config);
}

TEST_F(WithGtk, TheGuideHasItsRowsAndIconsOnlyWhereTheThemeHasThem) {
  const Alert guide = linuxUiTexts("mpv").onboardingAlert;
  Gtk::Widget* widget = GtkDialogs::buildGuide(guide);
  auto* grid = dynamic_cast<Gtk::Grid*>(widget);
  ASSERT_NE(grid, nullptr);
  for (int row = 0; row < 5; ++row) {
    auto* label = dynamic_cast<Gtk::Label*>(grid->get_child_at(1, row));
    ASSERT_NE(label, nullptr) << row;
    EXPECT_EQ(label->get_text(), guide.guide[static_cast<std::size_t>(row)].heading +
                                     guide.guide[static_cast<std::size_t>(row)].body.substr(
                                         0, guide.guide[static_cast<std::size_t>(row)].body.size() - 1));
    const std::string& icon = guide.guide[static_cast<std::size_t>(row)].symbol;
    EXPECT_EQ(grid->get_child_at(0, row) != nullptr, Gtk::IconTheme::get_default()->has_icon(icon)) << icon;
  }
  delete widget;
}

// ---- drawing (no display needed, but the same fonts) -------------------------------------

// Pixels of a surface whose alpha passes the threshold.
int inked(cairo_surface_t* s, int x0, int y0, int x1, int y1, int threshold = 128) {
  cairo_surface_flush(s);
  const unsigned char* data = cairo_image_surface_get_data(s);
  const int stride = cairo_image_surface_get_stride(s);
  int n = 0;
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) n += data[y * stride + x * 4 + 3] >= threshold;
  return n;
}

// A transparent surface of this size with what draw puts on it through the canvas.
cairo_surface_t* drawn(int width, int height, TextEngine& engine, const std::function<void(CairoCanvas&)>& draw) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  cairo_t* cr = cairo_create(surface);
  LineCache lines(engine);
  {
    CairoCanvas canvas(cr, height, lines);
    draw(canvas);
  }
  cairo_destroy(cr);
  return surface;
}

TEST(GtkText, ChineseSubtitlesGetABoldCjkFaceAndInk) {
  TextEngine engine("Sans");
  const TextLayer fill = attributedLayers("这是第一句。這是第二句", false, 28, 7, 0).back();
  // The requested face is not on Linux: the bold fallback, and for Han
  // characters fontconfig's CJK face at that weight.
  PangoLayout* layout = engine.layout(fill, 0);
  PangoLayoutRun* run = pango_layout_get_line_readonly(layout, 0)->runs->data
                            ? static_cast<PangoLayoutRun*>(pango_layout_get_line_readonly(layout, 0)->runs->data)
                            : nullptr;
  ASSERT_NE(run, nullptr);
  PangoFontDescription* used = pango_font_describe(run->item->analysis.font);
  const std::string family = pango_font_description_get_family(used);
  EXPECT_NE(family.find("CJK"), std::string::npos) << family;
  EXPECT_GE(pango_font_description_get_weight(used), PANGO_WEIGHT_BOLD) << family;
  pango_font_description_free(used);
  g_object_unref(layout);

  cairo_surface_t* surface = drawn(400, 60, engine, [&](CairoCanvas& c) { c.drawTextBlock(fill, {0, 10, 400, 40}); });
  EXPECT_GT(inked(surface, 0, 0, 400, 60), 1500) << "glyphs, not empty boxes or nothing";
  cairo_surface_destroy(surface);
}

// A font that lacks a symbol draws a box with its hex code: every symbol
// the status line, hints, menu and guide use must have a glyph in the fonts
// installed (the package depends on them). Taken from the texts' sources,
// so that a new symbol is checked the day it is written.
TEST(GtkText, EverySymbolTheTextsUseHasAGlyph) {
  std::set<gunichar> symbols;
  for (const char* file : {"ui/Texts.cpp", "ui/Texts.h", "ui/DesktopTexts.h", "ui/Menu.cpp", "ui/Preferences.h",
                           "ui/Preferences.cpp", "sync/SourceTexts.cpp", "app/Controller.cpp"}) {
    std::ifstream in(std::string(LUMERIX_SOURCE_DIR) + "/src/" + file);
    ASSERT_TRUE(in) << file;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_TRUE(g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) << file;
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
      if (g_utf8_get_char(p) >= 0x2000) symbols.insert(g_utf8_get_char(p));  // past the Latin and Greek letters
    }
  }
  ASSERT_GE(symbols.size(), 8u) << "the texts were found";
  TextEngine engine("Sans");
  for (gunichar c : symbols) {
    char utf8[8] = {};
    g_unichar_to_utf8(c, utf8);
    for (bool bold : {false, true}) {  // the status line, and the guide's titles
      PangoLayout* layout = engine.layout(attributedLayers(utf8, false, 13, 0, 0).back(), 0);
      PangoFontDescription* font = pango_font_description_from_string(bold ? "Sans Bold 13" : "Sans 13");
      pango_layout_set_font_description(layout, font);
      EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0)
          << "no font has U+" << std::hex << std::uppercase << c << " " << utf8 << (bold ? " (bold)" : "");
      pango_font_description_free(font);
      g_object_unref(layout);
    }
  }
}

TEST(GtkText, MeasuringWrapsAtTheWidthAsDrawingDoes) {
  TextEngine engine("Sans");
  const TextLayer fill = attributedLayers("Half a second early? Half a second late?", false, 28, 7, 0).back();
  const Size one = engine.measure(fill, {2000, 2000});
  const Size wrapped = engine.measure(fill, {300, 2000});
  EXPECT_GT(one.width, 300);
  EXPECT_LE(wrapped.width, 300);
  EXPECT_GE(wrapped.height, 2 * one.height - 1);
  EXPECT_EQ(engine.measure(fill, {300, 40}).height, 40) << "no taller than asked";
}

TEST(GtkCanvas, TheOutlineLayerCastsItsShadowDownwards) {
  TextEngine engine("Sans");
  const TextLayer outline = attributedLayers("HH", false, 40, 7, 0).front();
  ASSERT_TRUE(outline.shadow.has_value());
  cairo_surface_t* surface = drawn(200, 100, engine, [&](CairoCanvas& c) {
    c.drawTextBlock(outline, {0, 20, 200, 60});
  });
  // Faint shadow pixels (alpha under the outline's) sit more below the
  // glyphs than above them: the offset is one point down. Rows: the first
  // and last with any pixel at least this opaque.
  auto rows = [&](int threshold) {
    std::pair<int, int> span{100, 0};
    for (int y = 0; y < 100; ++y) {
      if (inked(surface, 0, y, 200, y + 1, threshold) > 0) span = {std::min(span.first, y), std::max(span.second, y)};
    }
    return span;
  };
  const auto [topRow, bottomRow] = rows(1);
  const auto [solidTop, solidBottom] = rows(200);
  EXPECT_GT(bottomRow - solidBottom, solidTop - topRow);
  cairo_surface_destroy(surface);
}

TEST(GtkCanvas, TheIconIsTheCoresWhiteCard) {
  TextEngine engine("Sans");
  cairo_surface_t* icon = drawIconSurface(36, engine);
  cairo_surface_flush(icon);
  const unsigned char* data = cairo_image_surface_get_data(icon);
  const int stride = cairo_image_surface_get_stride(icon);
  auto pixel = [&](int x, int y) { return data + y * stride + x * 4; };  // BGRA, premultiplied
  EXPECT_EQ(pixel(0, 0)[3], 0) << "transparent corner";
  EXPECT_EQ(pixel(4, 18)[0], 255) << "white card";
  // The longer line: 3.5 to 14.5 points from the left, 5.2 to 7.8 up: rows 28 and 29 at double size.
  EXPECT_LT(pixel(18, 23)[0], 40) << "dark line";
  cairo_surface_destroy(icon);
}

}  // namespace
}  // namespace lumerix::gtk
