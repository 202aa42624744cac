#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "CommaLocale.h"
#include "ControllerFakes.h"
#include "ControllerRig.h"
#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "app/Controller.h"
#include "overlay/TextLayers.h"
#include "sync/SourceTexts.h"
#include "util/Files.h"
#include "util/Numbers.h"

namespace lumerix {
namespace {

using test::playingAt;
using ::testing::Contains;
using ::testing::ElementsAre;

const char* const kThreeCues =
    "1\n00:00:01,000 --> 00:00:03,000\nFirst\n\n"
    "2\n00:00:03,000 --> 00:00:05,000\nSecond\n\n"
    "3\n00:00:10,000 --> 00:00:12,000\nThird\n";

struct Rig : test::ControllerRig {

  Controller& start(std::optional<std::string> path = std::nullopt) {
    c = std::make_unique<Controller>(services(), std::move(owned),
                                     path);
    return *c;
  }
  std::string file(const std::string& name, const std::string& text) {
    dir.write(name, text);
    return dir.path(name);
  }
  // One tick with the source saying this, after the last hint has expired.
  void tickAt(std::optional<double> position, std::string track = "Show", bool playing = true) {
    source->next = {position, playing, std::move(track), position ? "" : "Nothing is playing", false, false};
    c->tick();
  }
  void expireHint() { clock.advance(3.01); }
  const Controller::State& s() const { return c->state(); }
};

// ---- start-up -------------------------------------------------------------------

TEST(ControllerStartup, SettingsPanelAndStartHint) {
  Rig r;
  r.settings.set("FontSize", 100.0);              // read as is: limits apply only on change
  r.settings.set("BGMode", std::string("band"));  // wrong type: zero
  r.start();
  EXPECT_EQ(r.s().fontSize, 100);
  EXPECT_EQ(r.s().bgMode, 0);
  EXPECT_EQ(r.s().alpha, 0.92);
  EXPECT_EQ(r.s().strokeWidth, 7.0);
  EXPECT_TRUE(r.s().autoPick);
  EXPECT_EQ(r.source->starts, 1);
  // 1920 x 1080: 816 wide, centred, bottom at a tenth of the height.
  EXPECT_THAT(r.host.calls, ElementsAre("panel:552,108,816,125", "textFrame:0,30,816,85", "statusFrame:0,4,816,17",
                                        "status:⇄ Auto-syncing with TV — click me once, then: ←→/,. offset · t "
                                        "background · ± font · o open"));
  // The hint holds for three seconds, then the tick's own line takes over.
  r.clock.advance(2.9);
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status.substr(0, 3), "⇄");
  r.clock.advance(0.2);
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status, "◌ Nothing is playing");

  Rig noScreen;
  noScreen.host.screen.reset();
  noScreen.host.savedFrame = Rect{10, 20, 700, 200};  // a saved frame wins
  noScreen.start();
  EXPECT_EQ(noScreen.host.calls.at(0), "panel:" + test::str({(1440 - 612) / 2.0, 90, 612, 125}));
  EXPECT_EQ(noScreen.s().winW, 700);
  EXPECT_EQ(noScreen.host.calls.at(1), "textFrame:0,30,700,160");
}

TEST(ControllerStartup, CommandLinePathAndFirstRunGuide) {
  Rig r;
  const std::string path = r.file("ep1.srt", kThreeCues);
  EXPECT_EQ(startupSubtitlePath({"lumerix", path, "ignored"}), path);
  EXPECT_EQ(startupSubtitlePath({"lumerix", r.dir.path("missing.srt")}), std::nullopt);
  EXPECT_EQ(startupSubtitlePath({"lumerix"}), std::nullopt);
  r.start(path);
  EXPECT_FALSE(r.s().autoPick);
  EXPECT_EQ(r.s().cues.size(), 3u);

  showGuideOnFirstLaunch(*r.c, r.settings);
  showGuideOnFirstLaunch(*r.c, r.settings);
  EXPECT_THAT(r.dialogs.calls, ElementsAre("activate", "alert:Welcome to Lumerix"));
  EXPECT_TRUE(r.settings.boolFor("DidOnboard"));
}

// ---- the tick -----------------------------------------------------------------

TEST(ControllerTick, StatusLineAndBrandDisplay) {
  Rig r;
  r.start(r.file("ep3.srt", kThreeCues));
  r.expireHint();
  r.tickAt(724.5, "Episode 3");
  EXPECT_EQ(r.host.status, "⇄ Episode 3  12:04 · ep3.srt");
  r.c->bumpOffset(1.5);
  r.c->cycleFPS();
  r.expireHint();
  r.tickAt(724.5, "Episode 3");
  EXPECT_EQ(r.host.status, "⇄ Episode 3  12:04 · ep3.srt  offset +1.5s  rate 1.0427");
  r.tickAt(3600, "Episode 3", false);
  EXPECT_EQ(r.host.status, "⏸ Episode 3  1:00:00 · ep3.srt  offset +1.5s  rate 1.0427");

  Rig none;
  none.start();
  none.expireHint();
  none.c->bumpOffset(0.1);
  none.c->bumpOffset(-0.06);  // not exactly zero: shown, as +0.0s
  none.expireHint();
  none.tickAt(5, "");
  EXPECT_EQ(none.host.status, "⇄   00:05 · no subtitle loaded (press O)  offset +0.0s");
  EXPECT_EQ(none.host.calls.back(), "status:" + none.host.status);

  // No position: the brand and the source's own words; the sheen runs on uptime.
  none.clock.now = 1012.5;
  none.tickAt(std::nullopt);
  EXPECT_EQ(none.host.layers.at(0).text, "LUMERIX");
  EXPECT_DOUBLE_EQ(none.host.brandPhase, 0.5);
  EXPECT_EQ(none.host.status, "◌ Nothing is playing");

  // Whatever a source lets through, the status line shows a clock.
  none.expireHint();
  none.tickAt(1e300, "Broken");
  EXPECT_EQ(none.host.status, "⇄ Broken  2562047788015215:30:07 · no subtitle loaded (press O)  offset +0.0s");
}

TEST(ControllerTick, CueSearchHoldsSmallBackwardSteps) {
  Rig r;
  r.start(r.file("a.srt",
                 "00:00:01,000 --> 00:00:03,000\nFirst\n\n00:00:03,000 --> 00:00:05,000\nSecond\n\n"
                 "00:00:20,000 --> 00:01:40,000\nLong\n\n00:00:30,000 --> 00:00:31,000\nA\n\n"
                 "00:00:32,000 --> 00:00:33,000\nB\n\n00:00:34,000 --> 00:00:35,000\nC\n\n"
                 "00:00:36,000 --> 00:00:37,000\nD\n\n00:00:40,000 --> 00:00:45,000\nOver1\n\n"
                 "00:00:41,000 --> 00:00:44,000\nOver2\n"));
  auto shown = [&](double position) {
    r.tickAt(position);
    return r.s().curText.value_or("<none>");
  };
  EXPECT_EQ(shown(0.5), "");
  EXPECT_EQ(shown(3.0 - 0.5), "First");
  EXPECT_EQ(shown(3.0), "Second");  // a shared boundary belongs to the later cue
  EXPECT_EQ(shown(5.0), "Second");  // the end itself is still shown
  EXPECT_EQ(shown(6), "");
  EXPECT_EQ(shown(25), "Long");
  EXPECT_EQ(shown(37.5), "");  // "Long" runs, but four later cues started since
  EXPECT_EQ(shown(42), "Over2");
  // Backward hold: 0.3 s back keeps the time, 0.5 s back is a seek.
  r.tickAt(50.0);
  r.tickAt(49.7);
  EXPECT_EQ(r.s().lastShownT, 50.0);
  r.tickAt(49.5);
  EXPECT_EQ(r.s().lastShownT, 49.5);
  // Rate first, then the offset in subtitle seconds.
  r.c->cycleFPS();
  r.c->bumpOffset(-2.0);
  r.tickAt(100.0);
  EXPECT_EQ(r.s().lastShownT, 102.27093760427095);
  // An adjustment clears the hold, so the next tick may step back freely.
  r.c->bumpOffset(-0.2);
  r.tickAt(100.0);
  EXPECT_DOUBLE_EQ(*r.s().lastShownT, 102.07093760427095);
}

// Between two ticks, the controller says when the text will next change,
// so that a cue need not wait for the next tick to appear.
TEST(ControllerTick, AnExtraTickIsDueWhenTheTextChangesBeforeTheNextOne) {
  Rig r;
  r.start(r.file("e.srt", kThreeCues));  // First 1–3, Second 3–5, Third 10–12
  auto extraAt = [&](double position, bool playing = true) {
    r.tickAt(position, "Show", playing);
    return r.c->extraTickIn();
  };
  EXPECT_NEAR(*extraAt(0.98), 0.022, 1e-9);       // First starts in 20 ms (+2 ms to be sure)
  EXPECT_EQ(extraAt(0.9), std::nullopt);          // 100 ms away: the next tick is sooner
  EXPECT_EQ(extraAt(0.98, false), std::nullopt);  // paused: nothing moves
  EXPECT_NEAR(*extraAt(9.97), 0.032, 1e-9);
  EXPECT_NEAR(*extraAt(11.99), 0.012, 1e-9);               // Third ends: shown up to 12.000 itself
  EXPECT_EQ(extraAt(12.5), std::nullopt);                  // nothing after the last cue
  r.source->next = {2.99, true, "Show", "", false, true};  // stalled
  r.c->tick();
  EXPECT_EQ(r.c->extraTickIn(), std::nullopt);
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.c->extraTickIn(), std::nullopt);

  // Through the rate and the offset: subtitle time 10 is position
  // (10 + 2) / 1.0427... away; the position runs at a second a second.
  r.c->cycleFPS();
  r.c->bumpOffset(-2.0);
  const double at = (10.0 + 2.0) / Controller::scalePresets[1].factor;
  EXPECT_NEAR(*extraAt(at - 0.01), 0.012, 1e-9);
}

TEST(ControllerTick, PermissionAlertOncePerOnset) {
  Rig r;
  r.start();
  r.dialogs.answers = {0, 1};  // "Open System Settings", then "Later"
  r.source->permission = true;
  for (int i = 0; i < 5; ++i) r.tickAt(std::nullopt);
  r.source->permission = false;
  r.tickAt(std::nullopt);
  r.source->permission = true;
  r.tickAt(std::nullopt);
  EXPECT_THAT(r.dialogs.calls,
              ElementsAre("activate", "alert:Lumerix can't follow the TV app",
                          "open:x-apple.systempreferences:com.apple.preference.security?Privacy_Automation", "activate",
                          "alert:Lumerix can't follow the TV app"));

  // The tick runs on while the alert is open (the modal loop's timer): the
  // permission coming and going meanwhile stacks no second alert on it.
  r.dialogs.calls.clear();
  r.source->permission = false;
  r.tickAt(std::nullopt);
  r.dialogs.whileAlertIsOpen = [&] {
    r.source->permission = false;
    r.tickAt(std::nullopt);
    r.source->permission = true;
    r.tickAt(std::nullopt);
  };
  r.source->permission = true;
  r.tickAt(std::nullopt);
  EXPECT_THAT(r.dialogs.calls, ElementsAre("activate", "alert:Lumerix can't follow the TV app"));
}

// ---- keys and adjustments ----------------------------------------------------------

TEST(ControllerKeys, EveryShortcutWithItsLimitsAndHints) {
  Rig r;
  r.start(r.file("k.srt", kThreeCues));
  Controller& c = *r.c;
  struct Row {
    int code;
    bool shift;
    const char* chars;
    const char* hint;  // nullptr: no hint expected
  };
  const Row rows[] = {
      {124, false, "", "Timing offset +0.5s"},
      {123, false, "", "Timing offset +0.0s"},
      {0, false, ",", "Timing offset -0.1s"},
      {0, false, ".", "Timing offset +0.0s"},
      {126, false, "", "Rate 1.0005"},
      {125, false, "", "Rate 1.0000"},
      {0, false, "f", "Frame-rate ratio 1.0427 (23.976→25)"},
      {0, false, "t", "Background: black band"},
      {0, false, "t", "Background: transparent + outline"},
      {0, false, "9", "Opacity 87%"},
      {0, false, "0", "Opacity 92%"},
      {0, false, "+", "Font size 30"},
      {0, false, "=", "Font size 32"},
      {0, false, "-", "Font size 30"},
      {0, false, "a", "Episode auto-pick re-enabled"},
  };
  for (const Row& row : rows) {
    r.host.status.clear();
    EXPECT_TRUE(c.handleKey(row.code, row.shift, row.chars)) << row.hint;
    EXPECT_EQ(r.host.status, row.hint);
    EXPECT_DOUBLE_EQ(r.s().hintUntil, r.clock.now + 3.0);
  }
  EXPECT_EQ(r.settings.doubleFor("FontSize"), 30);
  EXPECT_EQ(r.settings.integerFor("BGMode"), 0);
  EXPECT_EQ(r.settings.doubleFor("PanelAlpha"), r.s().alpha);
  EXPECT_THAT(r.host.calls, Contains("alpha:0.87"));
  for (const char* ignored : {"F", "Q", "O", "T", "x", "é", ""})
    EXPECT_FALSE(c.handleKey(0, false, ignored)) << ignored;
  EXPECT_FALSE(c.handleKey(0, false, "q\u0301"));  // q with a combining accent is another character

  for (int i = 0; i < 500; ++i) c.handleKey(125, false, "");
  EXPECT_EQ(r.host.status, "Rate 0.9000");
  for (int i = 0; i < 20; ++i) c.handleKey(0, false, "0");
  EXPECT_EQ(r.host.status, "Opacity 100%");
  for (int i = 0; i < 40; ++i) c.handleKey(0, false, "-");
  EXPECT_EQ(r.host.status, "Font size 12");
  EXPECT_EQ(r.settings.doubleFor("FontSize"), 12);
  for (int i = 0; i < 6; ++i) c.handleKey(0, false, "f");  // seven presses in all
  EXPECT_EQ(r.host.status, "Frame-rate ratio 1.000 original");
  EXPECT_EQ(r.s().scale, 1.0);

  // Shift+arrows resize without a hint; width never below 320, height never below 90.
  r.host.frame = {100, 100, 350, 125};
  r.host.calls.clear();
  c.handleKey(123, true, "");
  c.handleKey(125, true, "");  // Down with Shift makes it taller
  c.handleKey(126, true, "");
  c.handleKey(126, true, "");
  EXPECT_THAT(r.host.calls, ElementsAre("frame:100,100,320,125", "statusFrame:0,4,320,17", "frame:100,100,320,155",
                                        "statusFrame:0,4,320,17", "frame:100,100,320,125", "statusFrame:0,4,320,17",
                                        "frame:100,100,320,95", "statusFrame:0,4,320,17"));
  EXPECT_FALSE(r.s().curText);
}

TEST(ControllerKeys, QuitKeysSaveThenStop) {
  for (auto [code, chars] : {std::pair{53, "x"}, std::pair{0, "q"}}) {
    Rig r;
    const std::string path = r.file("q.srt", kThreeCues);
    r.start(path);
    r.c->bumpOffset(1.23456);
    std::filesystem::remove(path + ".sync.json");
    EXPECT_TRUE(r.c->handleKey(code, true, chars));
    std::string side;
    ASSERT_TRUE(readWholeFile(path + ".sync.json", side));
    EXPECT_EQ(nlohmann::json::parse(side), nlohmann::json::parse(R"({"offset":1.235,"scale":1.0})"));
    EXPECT_EQ(r.source->cancels, 1);
    EXPECT_EQ(r.dialogs.calls.back(), "terminate");
  }
}

// ---- calibration ---------------------------------------------------------------------

TEST(ControllerCalibration, TwoPointsGiveRateAndOffset) {
  Rig r;
  const std::string path = r.file("cal.srt", kThreeCues);
  r.start(path);
  Controller& c = *r.c;
  r.source->next = {};
  c.markPoint(1);
  EXPECT_EQ(r.host.status, "Not connected to the TV app — cannot calibrate");
  c.markPoint(2);
  EXPECT_EQ(r.host.status, "Not connected to the TV app — cannot calibrate");
  r.source->next = playingAt(100);
  c.markPoint(2);
  EXPECT_EQ(r.host.status, "Align near the beginning first and press 1");

  c.bumpOffset(-2);  // at 60 s the subtitle shows 58 s
  r.source->next = playingAt(60);
  c.markPoint(1);
  EXPECT_EQ(r.host.status, "① Marked first point at 01:00 — seek near the end, align, then press 2");
  r.source->next = playingAt(89.9);
  c.markPoint(2);
  EXPECT_EQ(r.host.status, "Points too close — try again a few minutes apart");
  c.bumpOffset(102);  // at 2460 s the subtitle shows 2560 s
  r.source->next = playingAt(2460);
  c.markPoint(2);
  EXPECT_EQ(r.host.status, "✓ Calibrated! rate 1.04250, offset -4.55s — saved");
  EXPECT_DOUBLE_EQ(r.s().scale, 1.0425);
  EXPECT_DOUBLE_EQ(r.s().offset, -4.55);
  std::string side;
  ASSERT_TRUE(readWholeFile(path + ".sync.json", side));
  EXPECT_EQ(nlohmann::json::parse(side), nlohmann::json::parse(R"({"offset":-4.55,"scale":1.0425})"));
  c.markPoint(2);
  EXPECT_EQ(r.host.status, "Align near the beginning first and press 1");

  // The accepted range includes 1.15 itself.
  for (auto [second, accepted] : {std::pair{100.0 + 1.15 * 100, true}, std::pair{100.0 + 1.1501 * 100, false}}) {
    Rig q;
    q.start();
    q.source->next = playingAt(100);
    q.c->markPoint(1);
    q.c->bumpOffset(second - 200);
    q.source->next = playingAt(200);
    q.c->markPoint(2);
    EXPECT_EQ(q.host.status.starts_with("✓ Calibrated! rate 1.15000"), accepted) << q.host.status;
    if (!accepted) {
      EXPECT_EQ(q.host.status, "Computed rate 1.1501 looks wrong — realign both points");
    }
  }
}

// ---- loading and side files ----------------------------------------------------------------

TEST(ControllerLoading, SideFilesRestoreTimingWhenWellFormed) {
  Rig r;
  r.start();
  struct Case {
    const char* side;  // nullptr: no side file
    const char* message;
  };
  const Case cases[] = {
      {nullptr, "Loaded Show.S01E02.srt · 3 cues"},
      {R"({"offset":0,"scale":1})", "Loaded Show.S01E02.srt · 3 cues"},
      {R"({"scale":1.0427})", "Loaded Show.S01E02.srt · 3 cues (restored offset +0.00s, rate 1.0427)"},
      {R"({"offset":1.25,"scale":1.0427093760427095})",
       "Loaded Show.S01E02.srt · 3 cues (restored offset +1.25s, rate 1.0427)"},
      {R"({"offset":"1.25","scale":1.04})", "Loaded Show.S01E02.srt · 3 cues"},  // one non-number spoils it
      {R"({"offset":true})", "Loaded Show.S01E02.srt · 3 cues"},
      {R"([1.5, 1.04])", "Loaded Show.S01E02.srt · 3 cues"},
      // The file's chosen encoding sits beside the timing (and is named in a
      // note of its own, the hint being long enough with the timing).
      {R"({"offset":1.25,"encoding":"windows-1252"})",
       "Loaded Show.S01E02.srt · 3 cues (restored offset +1.25s, rate 1.0000)"},
      {R"({"offset":1.25,"encoding":7})", "Loaded Show.S01E02.srt · 3 cues"},
      {R"({"offset":1.25,"encoding":"no-such-encoding"})",
       "Loaded Show.S01E02.srt · 3 cues (restored offset +1.25s, rate 1.0000)"},
      {"{not json", "Loaded Show.S01E02.srt · 3 cues"},
  };
  const std::string path = r.file("Show.S01E02.srt", kThreeCues);
  for (const Case& c : cases) {
    r.c->bumpOffset(3);  // live adjustments are discarded by a reload
    std::filesystem::remove(path + ".sync.json");
    if (c.side) r.dir.write("Show.S01E02.srt.sync.json", c.side);
    r.c->loadSubtitle(path);
    EXPECT_EQ(r.host.status, c.message) << (c.side ? c.side : "none");
  }
  EXPECT_EQ(r.settings.stringFor("SubtitleFolder"), test::TempDir::parentOf(path));

  // A failed load leaves everything as it was, the folder included.
  const std::string other = r.file("broken.srt", kThreeCues);
  std::filesystem::remove(other);
  r.settings.set("SubtitleFolder", std::string("/elsewhere"));
  r.c->loadSubtitle(other);
  EXPECT_EQ(r.host.status, "Failed to load: No such file or directory");
  EXPECT_EQ(r.s().subPath, path);
  EXPECT_EQ(r.settings.stringFor("SubtitleFolder"), "/elsewhere");

  // Saving rounds to what the file keeps, and leaves no temporary files behind.
  r.c->cycleFPS();
  r.c->bumpOffset(1.23456 - r.s().offset);
  std::string side;
  ASSERT_TRUE(readWholeFile(path + ".sync.json", side));
  EXPECT_EQ(nlohmann::json::parse(side), nlohmann::json::parse(R"({"offset":1.235,"scale":1.042709})"));
  int files = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(test::TempDir::parentOf(path))) ++files;
  EXPECT_EQ(files, 2);  // the subtitle and its side file
}

std::string fixtureBytes(const std::string& name) {
  std::string bytes;
  EXPECT_TRUE(readWholeFile(std::string(LUMERIX_FIXTURES) + "/" + name, bytes)) << name;
  return bytes;
}

nlohmann::json sideFileOf(const std::string& path) {
  std::string text;
  return readWholeFile(path + ".sync.json", text) ? nlohmann::json::parse(text) : nlohmann::json();
}

TEST(ControllerLoading, AWrongGuessCorrectedByTheUserStaysCorrected) {
  Rig r;
  const std::string path = r.file("pl.srt", fixtureBytes("encodings/pl-windows-1250.srt"));
  r.start();
  r.c->loadSubtitle(path);
  EXPECT_EQ(r.host.status, "Loaded pl.srt · 2 cues · Windows-1250");
  EXPECT_EQ(r.s().cues.at(0).text, "Zażółć gęślą jaźń. Dziękuję bardzo, do zobaczenia jutro.");

  // The menu offers the encodings beside the file commands; a choice that
  // cannot read the file changes nothing.
  const auto menu = r.c->menu();
  ASSERT_EQ(menu.at(2).title, "Reopen with Encoding");
  const auto& encodings = menu.at(2).submenu;
  ASSERT_GT(encodings.size(), 20u);
  EXPECT_EQ(encodings.at(0).title, "Automatic");
  EXPECT_TRUE(encodings.at(1).separator());
  EXPECT_EQ(encodings.at(2).title, "Unicode (UTF-8)");
  r.c->perform(encodings.at(2).action);
  EXPECT_EQ(r.host.status, "pl.srt cannot be read as UTF-8");
  EXPECT_EQ(r.s().subEncoding, "windows-1250");
  EXPECT_TRUE(sideFileOf(path).is_null());

  // Say it is Windows-1251: read so, remembered beside the timing, kept by
  // every later save of the timing and by a restart.
  r.c->bumpOffset(0.5);
  r.c->reopenWithEncoding("windows-1251");
  EXPECT_EQ(r.host.status, "Loaded pl.srt · 2 cues (restored offset +0.50s, rate 1.0000)");
  r.expireHint();  // the encoding follows the hint
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status, "pl.srt read as Windows-1251 — another: Reopen with Encoding");
  EXPECT_NE(r.s().cues.at(0).text.find("Za"), std::string::npos);
  EXPECT_EQ(sideFileOf(path), nlohmann::json::parse(R"({"offset":0.5,"scale":1.0,"encoding":"windows-1251"})"));
  r.c->bumpOffset(0.5);
  EXPECT_EQ(sideFileOf(path)["encoding"], "windows-1251");
  r.c->quit();

  Rig again;
  again.start(path);
  EXPECT_EQ(again.s().subEncoding, "windows-1251");
  EXPECT_EQ(again.s().offset, 1.0);
  // "Automatic" forgets the choice and guesses again.
  again.c->perform(again.c->menu().at(2).submenu.at(0).action);
  EXPECT_EQ(again.s().subEncoding, "windows-1250");
  EXPECT_EQ(sideFileOf(path), nlohmann::json::parse(R"({"offset":1.0,"scale":1.0})"));

  Rig none;
  none.start();
  none.c->reopenWithEncoding("windows-1252");
  EXPECT_EQ(none.host.status, "No subtitle loaded to reopen — press O to choose one");
}

TEST(ControllerLoading, FilesWithoutCuesAndThePreferredEncoding) {
  Rig r;
  r.start();
  r.c->loadSubtitle(r.file("empty.srt", "WEBVTT\n\nNOTE nothing yet\n"));
  EXPECT_EQ(r.host.status, "No subtitles found in empty.srt");
  EXPECT_EQ(r.s().subPath, r.dir.path("empty.srt"));

  // A few Cyrillic bytes are too little for the guess: the preference reads them.
  const std::string path = r.file("few.srt", "1\n00:00:01,000 --> 00:00:02,000\n\xCF\xF0\xE8\xE2\xE5\xF2\n");
  EXPECT_THAT(Controller::fallbackEncodingItems(), Contains("Cyrillic (Windows-1251)"));
  EXPECT_EQ(Controller::fallbackEncodingItems().at(0), "Automatic");
  const auto items = Controller::fallbackEncodingItems();
  const auto cyrillic = std::find(items.begin(), items.end(), "Cyrillic (Windows-1251)") - items.begin();
  r.c->setFallbackEncodingIndex(cyrillic);
  EXPECT_EQ(r.settings.stringFor("FallbackEncoding"), "windows-1251");
  EXPECT_EQ(r.c->preferenceValues().fallbackEncoding, cyrillic);
  r.c->loadSubtitle(path);
  EXPECT_EQ(r.host.status, "Loaded few.srt · 1 cues · Windows-1251");
  EXPECT_EQ(r.s().cues.at(0).text, "Привет");
  r.c->setFallbackEncodingIndex(0);
  EXPECT_EQ(r.settings.stringFor("FallbackEncoding"), "");
  EXPECT_EQ(r.c->preferenceValues().fallbackEncoding, 0);
}

TEST(ControllerLoading, DroppedAndChosenFilesTurnAutoPickOnForTheNextTrack) {
  Rig r;
  const std::string path = r.file("mine.srt", kThreeCues);
  r.start(path);
  EXPECT_FALSE(r.s().autoPick);
  EXPECT_EQ(Controller::subtitlePathFrom({"/a/notes.txt", "/a/B.SRT", "/a/c.vtt"}), "/a/B.SRT");
  EXPECT_EQ(Controller::subtitlePathFrom({"/a/notes.txt", "/a/movie.mkv"}), std::nullopt);
  EXPECT_EQ(Controller::subtitlePathFrom({"/a/movie.mkv", "/a/Op.SSA", "/a/b.srt"}), "/a/Op.SSA");
  EXPECT_EQ(Controller::subtitlePathFrom({"/a/x.assx", "/a/x.ass"}), "/a/x.ass");

  r.source->next = playingAt(10, "Episode 3");
  r.dialogs.chosenFile = path;
  r.c->handleKey(0, false, "o");
  EXPECT_THAT(r.dialogs.calls, ElementsAre("activate", "choose:srt,vtt,ass,ssa"));
  EXPECT_TRUE(r.s().autoPick);
  EXPECT_EQ(r.s().lastTrack, "Episode 3");
  r.dialogs.chosenFile.reset();
  r.c->openFileDialog();  // cancelled: nothing changes
  EXPECT_EQ(r.s().subPath, path);
}

// ---- episode auto-pick --------------------------------------------------------------------

TEST(ControllerAutoPick, FollowsTrackChangesIntoTheSubtitleFolder) {
  Rig r;
  for (const char* name :
       {"show.s01e07.srt", "Show S1E7 720p.VTT", "x.s01e007.srt", "show.s01e17.srt", "show.s01e70.srt",
        "show.s01e08.ass", "show.s01e09.ssa.txt", "Show.S01E09.SSA", ".show.s01e03.srt", "Show.S01E05.srt",
        "Show.S02E05.srt"}) {
    r.dir.write(name, kThreeCues);
  }
  r.start();
  r.settings.set("SubtitleFolder", test::TempDir::parentOf(r.dir.path("x")));
  r.tickAt(std::nullopt);  // nothing playing: no pick
  EXPECT_FALSE(r.s().subPath);

  r.tickAt(1, "Episode 7");
  EXPECT_EQ(r.s().subName, "Show S1E7 720p.VTT");  // "S" sorts before "s" and "x"
  r.tickAt(1.5, "Episode 8");
  EXPECT_EQ(r.s().subName, "show.s01e08.ass");
  r.tickAt(1.7, "Episode 9");
  EXPECT_EQ(r.s().subName, "Show.S01E09.SSA");  // what only ends in .txt is not a subtitle
  r.tickAt(2, "Episode 5");
  EXPECT_EQ(r.s().subName, "Show.S01E05.srt");  // the season is not compared
  r.tickAt(3, "Episode 3");
  EXPECT_EQ(r.s().subName, ".show.s01e03.srt");  // hidden files count
  r.tickAt(4, "Episode 42");
  EXPECT_EQ(r.s().subName, ".show.s01e03.srt");  // nothing for 42, and cues are loaded: keep quiet
  r.tickAt(5, "Credits");
  EXPECT_EQ(r.s().subName, ".show.s01e03.srt");

  // Paused, or the same track again: nothing happens. Off: remembered, not picked.
  r.c->loadSubtitle(r.dir.path("show.s01e17.srt"));
  r.tickAt(6, "Episode 7", false);
  EXPECT_EQ(r.s().subName, "show.s01e17.srt");
  r.dialogs.chosenFile = r.dir.path("show.s01e17.srt");
  r.source->next = playingAt(6, "Episode 7");
  r.c->openFileDialog();
  r.tickAt(7, "Episode 7");
  EXPECT_EQ(r.s().subName, "show.s01e17.srt");  // chosen by hand while 7 plays: kept
  r.c->menuAutoPick();
  r.tickAt(8, "Episode 7");
  EXPECT_EQ(r.s().subName, "Show S1E7 720p.VTT");  // re-enabled: picked on the next playing tick

  r.c->applySubtitleFolder("/no/such/folder");
  EXPECT_EQ(r.host.status, "Subtitle folder set: folder");
}

TEST(ControllerAutoPick, NoFileHintOnlyWhileNothingIsLoaded) {
  Rig r;
  r.start();
  r.settings.set("SubtitleFolder", test::TempDir::parentOf(r.dir.path("x")));
  r.tickAt(1, "Episode 9");
  EXPECT_EQ(r.host.status, "No subtitle found for “Episode 9” — press O to choose one");
  r.expireHint();
  r.tickAt(2, "Trailer");  // no digits: no search, no hint
  EXPECT_EQ(r.host.status, "⇄ Trailer  00:02 · no subtitle loaded (press O)");
}

// ---- rendering ------------------------------------------------------------------------------

TEST(ControllerRender, CacheAndGeometry) {
  Rig r;
  r.start();
  Controller& c = *r.c;
  r.host.calls.clear();
  c.render("Hello", false);
  c.render("Hello", false);  // unchanged: nothing at all
  // 816 - 60 = 756 wide, 30 in from each side, 26 up; 20 + 6 tall.
  EXPECT_THAT(r.host.take(), ElementsAre("text:Hello", "textFrame:30,26,756,26", "band:hidden"));
  EXPECT_EQ(r.host.layers.size(), 2u);  // outline, then fill
  EXPECT_EQ(r.host.layers[0].strokeWidth, 7.0);
  EXPECT_FALSE(r.host.layers[1].shadow);

  c.handleKey(0, false, "t");  // band: no outline, the band sized to the text
  r.host.take();
  c.render("Hello\nthere world", false);
  EXPECT_THAT(r.host.take(), ElementsAre("text:Hello\nthere world", "textFrame:30,26,756,46", "bandFrame:337,19,142,58",
                                         "band:shown"));
  EXPECT_EQ(r.host.layers.size(), 1u);

  c.panelResized();  // the same text re-laid out for the new size
  r.host.take();
  c.render("Hello\nthere world", false);
  EXPECT_EQ(r.host.take().size(), 4u);

  c.render("Lumerix", true);
  EXPECT_THAT(r.host.take(), ElementsAre("brand:LUMERIX", "textFrame:0,22,816,97", "band:hidden"));
  EXPECT_EQ(r.host.layers.at(0).kerning, 4.0);
  c.render("", true);
  EXPECT_THAT(r.host.take(), ElementsAre("brand:", "band:hidden"));

  for (auto [size, brandSize] : {std::pair{20.0, 40.0}, std::pair{30.0, 46.0}, std::pair{60.0, 52.0}}) {
    EXPECT_EQ(attributedLayers("x", true, size, 7, 0).at(0).font.size, brandSize);
  }
  EXPECT_EQ(attributedLayers("x", false, 28, 0, 0).size(), 1u);                // no stroke: fill only
  EXPECT_EQ(attributedLayers("x", false, 1e300, 7, 0).at(0).font.size, 4096);  // what a settings file may hold
  EXPECT_EQ(attributedLayers("x", false, 28, 7, 1).size(), 1u);                // band: never an outline
}

TEST(ControllerPreferences, ControlsWriteAtOnceAndTheWindowShowsTheLiveValues) {
  Rig r;
  r.start();
  prefs::Values v = r.c->preferenceValues();
  EXPECT_EQ(v.fontSize, 28);
  EXPECT_EQ(v.strokeWidth, 7);
  EXPECT_EQ(v.alpha, 0.92);
  EXPECT_EQ(v.bgMode, 0);
  EXPECT_EQ(v.folder, "not set — open a subtitle once");
  EXPECT_FALSE(v.listenAlways);
  r.c->setListenAlways(true);
  EXPECT_TRUE(r.c->preferenceValues().listenAlways);
  EXPECT_TRUE(r.settings.boolFor("ListenAlways"));

  r.c->render("Hi", false);
  r.c->setFontSize(33.7);  // every intermediate slider value is kept
  EXPECT_EQ(r.settings.doubleFor("FontSize"), 33.7);
  EXPECT_FALSE(r.s().curText);
  r.c->render("Hi", false);
  r.c->setStrokeWidth(0);
  EXPECT_EQ(r.settings.doubleFor("StrokeWidth"), 0);
  EXPECT_FALSE(r.s().curText);
  r.c->render("Hi", false);
  r.host.take();
  r.c->setAlpha(0.55);  // the panel at once; the text keeps its layout
  EXPECT_THAT(r.host.take(), ElementsAre("alpha:0.55"));
  EXPECT_EQ(r.settings.doubleFor("PanelAlpha"), 0.55);
  EXPECT_TRUE(r.s().curText);
  r.c->setBgMode(1);
  EXPECT_EQ(r.settings.integerFor("BGMode"), 1);
  EXPECT_FALSE(r.s().curText);
  r.c->handleKey(0, false, "+");  // keys and the window share the fields
  v = r.c->preferenceValues();
  EXPECT_EQ(v.fontSize, 35.7);
  EXPECT_EQ(v.bgMode, 1);

  r.c->loadSubtitle(r.file("Show.srt", kThreeCues));
  EXPECT_EQ(r.c->preferenceValues().folder, test::TempDir::parentOf(r.dir.path("Show.srt")));
  EXPECT_FALSE(r.c->chooseSubtitleFolder());  // cancelled: nothing changes
  EXPECT_EQ(r.c->preferenceValues().folder, test::TempDir::parentOf(r.dir.path("Show.srt")));
  r.dialogs.chosenFolder = "/media/shows/Dark";
  EXPECT_TRUE(r.c->chooseSubtitleFolder());
  EXPECT_EQ(r.c->preferenceValues().folder, "/media/shows/Dark");
  EXPECT_EQ(r.host.status, "Subtitle folder set: Dark");
  EXPECT_THAT(r.dialogs.calls, ElementsAre("chooseFolder", "chooseFolder"));

  // The value labels read the sliders: truncated, one decimal, a percentage.
  EXPECT_EQ(prefs::fontValueLabel(28.9), "28");
  EXPECT_EQ(prefs::strokeValueLabel(7), "7.0");
  EXPECT_EQ(prefs::alphaValueLabel(0.92), "92%");
  EXPECT_EQ(prefs::alphaValueLabel(0.29), "28%");  // 28.999...: one less, as intended
}

TEST(ControllerPreferences, AHandWrittenBackgroundModeShowsAsOneOfTheTwoChoices) {
  for (long long written : {7LL, -1LL, 2LL}) {
    Rig r;
    r.settings.set("BGMode", written);
    r.start();
    EXPECT_EQ(r.c->preferenceValues().bgMode, 0) << written;
  }
}

TEST(ControllerKeys, NumbersKeepTheirPointInACommaLocale) {
  test::CommaLocale comma;
  if (!comma.ok) GTEST_SKIP() << "no locale with a decimal comma is installed";
  Rig r;
  r.start(r.file("k.srt", kThreeCues));
  r.c->handleKey(0, false, ".");
  EXPECT_EQ(r.host.status, "Timing offset +0.1s");
  r.c->handleKey(126, false, "");
  EXPECT_EQ(r.host.status, "Rate 1.0005");
  r.expireHint();  // the status line shows the corrections
  r.tickAt(5);
  EXPECT_THAT(r.host.status, testing::EndsWith("offset +0.1s  rate 1.0005"));
  EXPECT_EQ(prefs::strokeValueLabel(7), "7.0");
  EXPECT_EQ(cFormat("%.10g", 192.5), "192.5");
}

// The Linux build names the player it follows and never speaks of the TV
// app, the Automation setting or an app bundle; episodes come from S01E02
// tags first, since players there report file names.
TEST(ControllerPlatforms, LinuxWordsAndEpisodeTags) {
  std::vector<std::string> words;
  auto collect = [&](const UiTexts& t) {
    for (const auto* s : {&t.startHint, &t.notConnected, &t.grantMenuTitle, &t.grantHint}) words.push_back(*s);
    for (const Alert* a : {&t.permissionAlert, &t.aboutAlert, &t.onboardingAlert}) {
      words.push_back(a->message + a->informative);
      for (const auto& row : a->guide) words.push_back(row.heading + row.body);
    }
  };
  collect(linuxUiTexts("mpv"));
  collect(linuxUiTexts(""));
  for (const SourceTexts& t : {linuxSourceTexts("mpv", {"/usr/libexec/lumerix"}), linuxSourceTexts("", {})}) {
    for (const auto* s : {&t.poller.connecting, &t.poller.permission, &t.poller.idle, &t.poller.unreadable,
                          &t.stream.missing, &t.stream.noPosition, &t.stream.otherPlayerSuffix}) {
      words.push_back(*s);
    }
  }
  for (const std::string& w : words) {
    // The bar's keys are plain letters; a capital would read as Shift.
    EXPECT_EQ(w.find("T background"), std::string::npos) << w;
    for (const char* banned : {"TV", "Automation", "bundle", "macOS", "System Settings"}) {
      EXPECT_EQ(w.find(banned), std::string::npos) << banned << " in: " << w;
    }
  }
  EXPECT_EQ(linuxSourceTexts("mpv", {}).poller.idle, "mpv is not playing");
  EXPECT_EQ(linuxSourceTexts("", {}).poller.idle, "No player is playing");
  EXPECT_EQ(linuxSourceTexts("Firefox", {}).poller.idle, "Browsers announce only videos with sound: unmute the tab");
  EXPECT_EQ(linuxSourceTexts("", {"/opt/a", "/usr/libexec/lumerix"}).stream.missing,
            "Sync helper lumerix-mpris is missing (looked in /opt/a, /usr/libexec/lumerix)");

  Rig r;
  r.dir.write("Show.S01E02.srt", kThreeCues);
  r.dir.write("Show.S01E01.srt", kThreeCues);
  r.c = std::make_unique<Controller>(
      ControllerServices{r.clock, r.settings, r.host, r.dialogs, r.dialogs}, std::move(r.owned), std::nullopt,
      Conventions{linuxUiTexts("mpv"), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys});
  EXPECT_TRUE(r.host.status.starts_with("⇄ Auto-syncing with mpv — click me once")) << r.host.status;
  r.settings.set("SubtitleFolder", test::TempDir::parentOf(r.dir.path("x")));
  r.tickAt(1, "Show.S01E02.mkv");
  EXPECT_EQ(r.s().subName, "Show.S01E02.srt");
  r.c->menuGrantPermission();  // nothing to open, only words
  r.source->permission = true;
  r.tickAt(2, "Show.S01E02.mkv");
  EXPECT_THAT(r.dialogs.calls, ElementsAre("activate", "alert:Lumerix can't follow mpv"));
  EXPECT_EQ(r.host.status, "Nothing to grant: players share their position over MPRIS");
  // The menu names the bar's keys and offers neither updates nor a
  // permission there.
  EXPECT_EQ(r.c->menu().at(0).keyEquivalent, "o");
  EXPECT_TRUE(r.c->menu().at(0).plainKey);
  for (const MenuItem& item : r.c->menu()) {
    EXPECT_NE(item.action, MenuAction::checkUpdates) << item.title;
    EXPECT_NE(item.action, MenuAction::grantPermission) << item.title;
  }

  Rig mac;  // the same name on macOS: the first number, episode 1
  mac.dir.write("Show.S01E02.srt", kThreeCues);
  mac.dir.write("Show.S01E01.srt", kThreeCues);
  mac.start();
  mac.settings.set("SubtitleFolder", test::TempDir::parentOf(mac.dir.path("x")));
  mac.tickAt(1, "Show.S01E02.mkv");
  EXPECT_EQ(mac.s().subName, "Show.S01E01.srt");
  EXPECT_EQ(mac.c->menu().at(15).title, "Grant TV Permission…");
  EXPECT_EQ(mac.c->menu().at(14).action, MenuAction::checkUpdates);
  EXPECT_FALSE(mac.c->menu().at(0).plainKey);
}

TEST(ControllerPanel, HoverAndKeyHints) {
  Rig r;
  r.start();
  r.host.calls.clear();
  r.c->hoverChanged(true);
  r.host.key = true;
  r.c->keyWindowChanged();
  r.c->hoverChanged(false);
  EXPECT_THAT(
      r.host.calls,
      ElementsAre("backdrop:in", "status:Drag anywhere to move · click once to enable shortcuts", "backdrop:in",
                  "status:Shortcuts active — ←→/,. offset · t background · ± font · o open · q quit", "backdrop:out"));
  EXPECT_EQ(Controller::debugLine({true, true, 8194, false, 101, {552, 108, 816, 125}, {}}),
            "PXDBG onActiveSpace=1 visible=1 occlusion=8194 key=0 level=101 frame={{552, 108}, {816, 125}}");
  // macOS writes the frame as the platform prints a rectangle.
  EXPECT_EQ(Controller::debugLine({false, true, 2, true, 101, {0.5, 1, 2, 3}, "{{0.5, 1}, {2, 3}}"}),
            "PXDBG onActiveSpace=0 visible=1 occlusion=2 key=1 level=101 frame={{0.5, 1}, {2, 3}}");
}

TEST(ControllerMenu, EveryItemReachesItsOperation) {
  Rig r;
  r.start();
  for (MenuAction a :
       {MenuAction::offsetM5, MenuAction::offsetP1, MenuAction::fontUp, MenuAction::prefs, MenuAction::checkUpdates,
        MenuAction::about, MenuAction::howTo, MenuAction::grantPermission, MenuAction::quit}) {
    r.c->perform(a);
  }
  EXPECT_DOUBLE_EQ(r.s().offset, -0.4);
  EXPECT_EQ(r.s().fontSize, 30);
  EXPECT_THAT(
      r.dialogs.calls,
      ElementsAre("prefs", "activate", "updates", "activate", "alert:Lumerix 0.1", "activate",
                  "alert:Welcome to Lumerix",
                  "open:x-apple.systempreferences:com.apple.preference.security?Privacy_Automation", "terminate"));
  EXPECT_EQ(r.host.status, "Enable Lumerix → TV in the Automation list");
}

TEST(ControllerPanel, DesktopNotesWaitForTheHintsThenShowOnceEach) {
  Rig r;
  r.start();
  for (auto note : texts::desktop::notes({.composited = false, .waylandWithoutLayerShell = true, .gnome = true})) {
    r.c->postNote(note);
  }
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status.substr(0, 3), "⇄");  // the start hint keeps its three seconds
  r.expireHint();
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status, texts::desktop::gnomeWayland);
  r.clock.advance(2.9);
  r.tickAt(5.0);
  EXPECT_EQ(r.host.status, texts::desktop::gnomeWayland);
  r.clock.advance(0.2);
  r.tickAt(5.0);
  EXPECT_EQ(r.host.status, texts::desktop::noCompositor);
  r.expireHint();
  r.tickAt(std::nullopt);
  EXPECT_EQ(r.host.status, "◌ Nothing is playing");
  EXPECT_THAT(texts::desktop::notes({}), ::testing::IsEmpty());
  // The GNOME advice only where the desktop is GNOME.
  EXPECT_THAT(texts::desktop::notes({.waylandWithoutLayerShell = true}), ElementsAre(texts::desktop::noLayerShell));
  for (const char* gnome : {"GNOME", "ubuntu:GNOME", "GNOME-Classic:GNOME"})
    EXPECT_TRUE(texts::desktop::isGnome(gnome));
  for (const char* other : {"", "KDE", "sway", "GNOME-Flashback", "X-Cinnamon", "gnome"}) {
    EXPECT_FALSE(texts::desktop::isGnome(other)) << other;
  }
}

// ---- a whole evening, call by call ---------------------------------------------------------------

TEST(ControllerScript, PlaybackSeeksPausesEpisodesAndPermission) {
  Rig r;
  r.dir.write("Show.S01E01.srt", kThreeCues);
  r.dir.write("Show.S01E02.srt", "00:00:01,000 --> 00:00:02,000\nNext episode\n");
  r.start(r.dir.path("Show.S01E01.srt"));
  r.c->menuAutoPick();
  r.expireHint();
  r.host.take();
  auto tick = [&](std::optional<double> position, const char* track, bool playing = true) {
    r.clock.advance(0.05);
    r.tickAt(position, track, playing);
  };
  tick(1.2, "Episode 1");
  tick(3.5, "Episode 1");
  tick(3.2, "Episode 1");  // 0.3 s back: held
  tick(2.7, "Episode 1");  // 0.5 s back: followed
  tick(2.7, "Episode 1", false);
  r.source->permission = true;
  r.dialogs.answers = {1};
  tick(std::nullopt, "Episode 1", false);
  r.source->permission = false;
  tick(10.5, "Episode 1");
  tick(1.5, "Episode 2");
  r.expireHint();
  tick(1.5, "Episode 2");
  EXPECT_THAT(
      r.host.calls,
      ElementsAre("text:First", "textFrame:30,26,756,26", "band:hidden", "status:⇄ Episode 1  00:01 · Show.S01E01.srt",
                  "text:Second", "textFrame:30,26,756,26", "band:hidden", "status:⇄ Episode 1  00:03 · Show.S01E01.srt",
                  "text:First", "textFrame:30,26,756,26", "band:hidden", "status:⇄ Episode 1  00:02 · Show.S01E01.srt",
                  "status:⏸ Episode 1  00:02 · Show.S01E01.srt", "brand:LUMERIX", "textFrame:0,22,816,97",
                  "band:hidden", "status:◌ Nothing is playing", "text:Third", "textFrame:30,26,756,26", "band:hidden",
                  "status:⇄ Episode 1  00:10 · Show.S01E01.srt", "status:Loaded Show.S01E02.srt · 1 cues",
                  "text:Next episode", "textFrame:30,26,756,26", "band:hidden",
                  "status:⇄ Episode 2  00:01 · Show.S01E02.srt"));
  EXPECT_THAT(r.dialogs.calls, ElementsAre("activate", "alert:Lumerix can't follow the TV app"));
}

}  // namespace
}  // namespace lumerix
