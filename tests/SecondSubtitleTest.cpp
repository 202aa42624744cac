#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>
#include <nlohmann/json.hpp>

#include "ControllerFakes.h"
#include "ControllerRig.h"
#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "app/Controller.h"
#include "app/EpisodeMatch.h"
#include "platform/KeyCodes.h"
#include "program/Program.h"
#include "subtitles/SpanAlign.h"
#include "util/Files.h"

namespace lumerix {
namespace {

using ::testing::ElementsAre;

const char* const kFirst =
    "1\n00:00:01,000 --> 00:00:03,000\nFirst\n\n"
    "2\n00:00:10,000 --> 00:00:12,000\nThird\nline two\n";
const char* const kSecond =
    "1\n00:00:02,000 --> 00:00:04,000\nEins\n\n"
    "2\n00:00:06,000 --> 00:00:08,000\nZwei\n";

struct Rig : test::ControllerRig {

  Controller& start(std::optional<std::string> path = std::nullopt, std::optional<std::string> second = std::nullopt) {
    c = std::make_unique<Controller>(services(), std::move(owned),
                                     path, Conventions{}, second);
    return *c;
  }
  std::string file(const std::string& name, const std::string& text) {
    dir.write(name, text);
    return dir.path(name);
  }
  std::string folder() const { return test::TempDir::parentOf(dir.path("x")); }
  void tickAt(double position, std::string track = "Show") {
    source->next = test::playingAt(position, std::move(track));
    c->tick();
  }
  std::string firstShown() const { return host.layers.empty() ? "" : host.layers.back().text; }
  std::string secondShown() const { return host.secondLayers.empty() ? "" : host.secondLayers.back().text; }
  const Controller::State& s() const { return c->state(); }
  nlohmann::json side(const std::string& path) const {
    std::string text;
    return readWholeFile(path + ".sync.json", text) ? nlohmann::json::parse(text) : nlohmann::json();
  }
};

TEST(SecondSubtitle, BothShowAtTheirOwnTimesWithTheirOwnSideFiles) {
  Rig r;
  const std::string first = r.file("a.srt", kFirst);
  const std::string second = r.file("b.srt", kSecond);
  r.dir.write("b.srt.sync.json", R"({"offset":-1})");
  r.start(first, second);
  EXPECT_EQ(r.s().second.name, "b.srt");
  EXPECT_EQ(r.s().second.offset, -1);
  EXPECT_EQ(r.s().offset, 0);

  struct Step {
    double at;
    const char *first, *second;
  };
  // The second runs a second late: its "Eins" (2 to 4 s) shows from 3 to 5.
  for (const Step& step : {Step{1.5, "First", ""}, Step{3.0, "First", "Eins"}, Step{4.5, "", "Eins"},
                           Step{5.5, "", ""}, Step{7.5, "", "Zwei"}, Step{10.5, "Third\nline two", ""}}) {
    r.tickAt(step.at);
    EXPECT_EQ(r.firstShown(), step.first) << step.at;
    EXPECT_EQ(r.secondShown(), step.second) << step.at;
    EXPECT_EQ(r.c->secondShown(), step.second) << step.at;
  }
  // The next change of the second's text gets its own extra tick: "Zwei"
  // starts at 7 s of player time (6 s of its own).
  r.tickAt(6.98);
  ASSERT_TRUE(r.c->extraTickIn());
  EXPECT_NEAR(*r.c->extraTickIn(), 0.022, 1e-9);

  // Removing it leaves the first as it was, and forgets the pair.
  r.c->perform(MenuAction::removeSecond);
  EXPECT_FALSE(r.c->secondShown());
  EXPECT_FALSE(r.c->menuItemShown(MenuAction::removeSecond));
  EXPECT_EQ(r.settings.stringFor("SecondSubtitlePath"), "");
  r.host.take();
  r.tickAt(7.5);
  EXPECT_THAT(r.host.calls, testing::Contains("second:@0,0,0,0"));
  EXPECT_EQ(r.s().subPath, first);
}

TEST(SecondSubtitle, SwitchingDecidesWhichTimingEveryKeyMoves) {
  Rig r;
  const std::string first = r.file("a.srt", kFirst);
  const std::string second = r.file("b.srt", kSecond);
  r.start(first);
  r.c->handleKey(0, false, "s");
  EXPECT_EQ(r.host.status, "No second subtitle — open one from the menu");
  EXPECT_FALSE(r.s().adjustSecond);
  r.dialogs.chosenFile = second;
  r.c->perform(MenuAction::openSecond);
  EXPECT_EQ(r.host.status, "Loaded b.srt as the second · 2 cues");
  EXPECT_TRUE(r.c->menuItemShown(MenuAction::removeSecond));
  const int revision = r.c->menuRevision();

  r.c->handleKey(0, false, "s");
  EXPECT_EQ(r.host.status, "Adjusting: second subtitle");
  r.c->handleKey(0, false, ".");
  EXPECT_EQ(r.host.status, "Timing offset +0.1s (second)");
  r.c->handleKey(keycode::right, false, "");
  r.c->handleKey(0, false, ",");
  r.c->perform(MenuAction::offsetP5);
  r.c->handleKey(keycode::up, false, "");
  r.c->handleKey(keycode::up, false, "");
  r.c->handleKey(keycode::down, false, "");
  EXPECT_DOUBLE_EQ(r.s().second.offset, 1.0);
  EXPECT_DOUBLE_EQ(r.s().second.scale, 1.0005);
  r.c->handleKey(0, false, "f");
  EXPECT_EQ(r.host.status, "Frame-rate ratio 1.0427 (23.976→25) (second)");
  EXPECT_EQ(r.side(second), nlohmann::json::parse(R"({"offset":1.0,"scale":1.042709})"));
  // The first was never touched, nor written.
  EXPECT_EQ(r.s().offset, 0);
  EXPECT_EQ(r.s().scale, 1);
  EXPECT_EQ(r.s().scaleIdx, 0);
  EXPECT_FALSE(std::filesystem::exists(first + ".sync.json"));

  // The status line says whose timing it shows.
  r.clock.advance(3.1);
  r.tickAt(3);
  EXPECT_EQ(r.host.status, "⇄ Show  00:03 · second: b.srt  offset +1.0s  rate 1.0427");

  // Two-point calibration of the second alone: marked on the second's clock.
  r.source->next = test::playingAt(100);
  r.c->handleKey(0, false, "1");
  r.c->bumpOffset(+2);  // aligned by ear, then the second point
  r.source->next = test::playingAt(1000);
  r.c->handleKey(0, false, "2");
  EXPECT_NEAR(r.s().second.scale, (1000 * 1.0427093760427095 + 3 - (100 * 1.0427093760427095 + 1)) / 900, 1e-9);
  EXPECT_THAT(r.host.status, testing::EndsWith("— saved (second)"));
  EXPECT_EQ(r.s().offset, 0);
  EXPECT_TRUE(r.s().calPoints.empty());

  // Back to the first: the same keys move it, and only it.
  const double secondOffset = r.s().second.offset;
  r.c->handleKey(0, false, "s");
  EXPECT_EQ(r.host.status, "Adjusting: first subtitle");
  r.c->handleKey(0, false, ".");
  EXPECT_EQ(r.host.status, "Timing offset +0.1s");
  r.c->handleKey(0, false, "f");
  EXPECT_DOUBLE_EQ(r.s().offset, 0.1);
  EXPECT_EQ(r.s().scaleIdx, 1);
  EXPECT_EQ(r.s().second.offset, secondOffset);
  EXPECT_EQ(r.side(first), nlohmann::json::parse(R"({"offset":0.1,"scale":1.042709})"));

  // Quitting saves both; reloading the second restores its own timing.
  std::filesystem::remove(second + ".sync.json");
  r.c->quit();
  EXPECT_NEAR(r.side(second)["offset"].get<double>(), secondOffset, 1e-3);
  r.c->loadSecondSubtitle(second);
  EXPECT_NEAR(r.s().second.offset, secondOffset, 1e-3);
  EXPECT_GT(r.c->menuRevision(), revision);
}

TEST(SecondSubtitle, BadInputLeavesTheFirstAsItWas) {
  Rig r;
  const std::string second = r.file("b.srt", kSecond);
  r.start();
  // Without a first, a second is the first.
  r.c->fileDropped(second, true);
  EXPECT_EQ(r.s().subPath, second);
  EXPECT_FALSE(r.s().second.path);

  const std::string first = r.file("a.srt", kFirst);
  r.c->fileDropped(first, false);
  r.c->fileDropped(second, true);
  EXPECT_EQ(r.s().subPath, first);
  EXPECT_EQ(r.s().second.path, second);

  // The first's own file, under any of its names, is refused.
  std::filesystem::create_symlink(first, r.dir.path("link.srt"));
  for (const std::string& same : {first, r.dir.path("link.srt"), r.dir.path("./a.srt")}) {
    r.c->loadSecondSubtitle(same);
    EXPECT_EQ(r.host.status, "That file is the first subtitle already — choose another for the second") << same;
    EXPECT_EQ(r.s().second.path, second);
  }
  // A file that cannot be read changes neither.
  r.c->loadSecondSubtitle(r.dir.path("missing.srt"));
  EXPECT_EQ(r.host.status, "Failed to load: No such file or directory");
  EXPECT_EQ(r.s().subPath, first);
  EXPECT_EQ(r.s().second.path, second);
  EXPECT_EQ(r.s().cues.size(), 2u);
}

TEST(SecondSubtitle, FollowsTheEpisodeByHowTheNamesDiffer) {
  Rig r;
  for (const char* name : {"Show.S01E02.en.srt", "Show.S01E02.zh.srt", "Show.S01E03.en.srt", "Show.S01E03.zh.srt",
                           "Show.S01E04.en.srt", "Show.S01E04.zh-old.srt"}) {
    r.dir.write(name, kFirst);
  }
  r.dir.write("Show.S01E03.zh.srt.sync.json", R"({"offset":2.5})");
  r.start();
  r.settings.set("SubtitleFolder", r.folder());
  r.tickAt(1, "Episode 2");
  EXPECT_EQ(r.s().subName, "Show.S01E02.en.srt");
  r.c->loadSecondSubtitle(r.dir.path("Show.S01E02.zh.srt"));

  r.tickAt(1, "Episode 3");
  EXPECT_EQ(r.s().subName, "Show.S01E03.en.srt");
  EXPECT_EQ(r.s().second.name, "Show.S01E03.zh.srt");
  EXPECT_EQ(r.s().second.offset, 2.5);
  // Both loads are told: the first's now, the second's after it.
  EXPECT_THAT(r.host.status, testing::StartsWith("Loaded Show.S01E03.en.srt"));
  r.clock.advance(3.1);
  r.tickAt(2, "Episode 3");
  EXPECT_THAT(r.host.status, testing::StartsWith("Loaded Show.S01E03.zh.srt as the second"));

  // No file named by the rule: no second rather than a near miss.
  r.clock.advance(3.1);
  r.tickAt(1, "Episode 4");
  EXPECT_EQ(r.s().subName, "Show.S01E04.en.srt");
  EXPECT_FALSE(r.s().second.path);
  r.clock.advance(3.1);
  r.tickAt(2, "Episode 4");
  EXPECT_EQ(r.host.status, "No second subtitle for Show.S01E04.en.srt — second removed");
  EXPECT_EQ(r.settings.stringFor("SecondSubtitlePath"), "");

  // A file named by the rule that will not load: no second either, rather
  // than the last episode's under this one.
  Rig u;
  for (const char* name : {"Show.S01E02.en.srt", "Show.S01E02.zh.srt", "Show.S01E03.en.srt"}) u.dir.write(name, kFirst);
  std::filesystem::create_directory(u.dir.path("Show.S01E03.zh.srt"));
  u.start();
  u.settings.set("SubtitleFolder", u.folder());
  u.tickAt(1, "Episode 2");
  u.c->loadSecondSubtitle(u.dir.path("Show.S01E02.zh.srt"));
  u.tickAt(1, "Episode 3");
  EXPECT_EQ(u.s().subName, "Show.S01E03.en.srt");
  EXPECT_FALSE(u.s().second.path);
  u.clock.advance(3.1);
  u.tickAt(2, "Episode 3");
  EXPECT_THAT(u.host.status, testing::StartsWith("Failed to load: "));
  u.clock.advance(3.1);
  u.tickAt(3, "Episode 3");
  EXPECT_EQ(u.host.status, "No second subtitle for Show.S01E03.en.srt — second removed");
}

TEST(SecondSubtitle, TheStartUpPairComesBack) {
  Rig one;
  const std::string first = one.file("en/Show.S01E05.srt", kFirst);
  const std::string second = one.file("zh/Show.S01E05.srt", kSecond);
  one.file("en/Show.S01E06.srt", kFirst);
  one.file("zh/Show.S01E06.srt", kSecond);
  one.start(first, second);
  EXPECT_EQ(one.settings.stringFor("SecondSubtitlePath"), second);
  EXPECT_EQ(one.settings.stringFor("SecondSubtitleFirst"), first);

  // The same first at start: its second with it. Another first: none.
  for (const bool same : {true, false}) {
    Rig again;
    again.settings.set("SecondSubtitlePath", second);
    again.settings.set("SecondSubtitleFirst", first);
    again.start(same ? first : one.dir.path("en/Show.S01E06.srt"));
    EXPECT_EQ(again.s().second.path.has_value(), same);
  }

  // Started bare, the episode picked brings the second of its folder by the
  // remembered pair's names.
  Rig bare;
  bare.settings.set("SecondSubtitlePath", second);
  bare.settings.set("SecondSubtitleFirst", first);
  bare.settings.set("SubtitleFolder", test::TempDir::parentOf(first));
  bare.start();
  bare.tickAt(1, "Episode 6");
  EXPECT_EQ(bare.s().subPath, one.dir.path("en/Show.S01E06.srt"));
  EXPECT_EQ(bare.s().second.path, one.dir.path("zh/Show.S01E06.srt"));
  EXPECT_EQ(bare.settings.stringFor("SecondSubtitleFirst"), one.dir.path("en/Show.S01E06.srt"));
}

TEST(SecondSubtitle, PairedNamesSwapWhatDiffers) {
  using episode::pairedName;
  struct Case {
    const char *first, *second, *newFirst;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"Show.S01E02.en.srt", "Show.S01E02.zh.srt", "Show.S01E03.en.srt", "Show.S01E03.zh.srt"},
      {"Show.S01E02.srt", "Show.S01E02.zh.srt", "Show.S01E03.srt", "Show.S01E03.zh.srt"},
      {"A.S01E12.en.srt", "A.S01E12.eng.vtt", "A.S01E13.en.srt", "A.S01E13.eng.vtt"},
      {"en.Show.S01E02.srt", "zh.Show.S01E02.srt", "en.Show.S01E03.srt", "zh.Show.S01E03.srt"},
      {"Show.S01E02.srt", "Show.S01E02.srt", "Show.S01E03.srt", "Show.S01E03.srt"},  // folder per language
      {"Show.S01E02.en.srt", "Show.S01E02.zh.srt", "Other.S01E03.fr.srt", std::nullopt},
      {"Show 中文 02.srt", "Show 英文 02.srt", "Show 中文 03.srt", "Show 英文 03.srt"},
  };
  for (const Case& c : cases) EXPECT_EQ(pairedName(c.first, c.second, c.newFirst), c.expected) << c.first;
}

TEST(SecondSubtitle, HeadlessLinesCarryTheSecondBesideTheText) {
  Rig r;
  std::ostringstream out;
  ConsoleHost console(r.clock, out);
  auto owned = std::make_unique<test::ScriptedSource>();
  test::ScriptedSource* source = owned.get();
  Controller c({r.clock, r.settings, console, r.dialogs, r.dialogs}, std::move(owned), r.file("a.srt", kFirst));
  auto tickAt = [&](double position) {
    source->next = test::playingAt(position, "Show");
    c.tick();
    console.flushText(c.state().lastPosition, c.state().lastShownT, c.secondShown());
  };
  auto texts = [&] {
    std::vector<std::string> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) {
      const auto json = nlohmann::json::parse(line);
      if (!json.contains("text")) continue;
      lines.push_back(json["text"].get<std::string>() + "|" + (json.contains("second") ? json["second"].get<std::string>() : "-"));
    }
    out.str("");
    return lines;
  };
  tickAt(1.5);
  EXPECT_THAT(texts(), ElementsAre("First|-"));
  c.loadSecondSubtitle(r.file("b.srt", kSecond));
  for (double at : {1.6, 3.0, 3.5, 4.5, 5.5}) tickAt(at);
  EXPECT_THAT(texts(), ElementsAre("First|Eins", "|Eins", "|"));
}

// Dialogue-like cues: a line of 1 to 3.5 s every 1 to 4 s, for ten minutes.
std::vector<Cue> dialogue(unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> gap(1.0, 4.0), length(1.0, 3.5);
  std::vector<Cue> cues;
  for (double t = 5; t < 600; t += gap(random)) {
    const double end = t + length(random);
    cues.push_back({t, end, "line"});
    t = end;
  }
  return cues;
}

// The same lines timed for another release: c' = (c − shift) / rate, each
// edge a little off, some lines left out and some cut in two.
std::vector<Cue> retimed(const std::vector<Cue>& cues, double rate, double shift, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> jitter(-0.12, 0.12), chance(0, 1);
  std::vector<Cue> out;
  for (const Cue& cue : cues) {
    const double a = (cue.start - shift) / rate + jitter(random), b = (cue.end - shift) / rate + jitter(random);
    const double roll = chance(random);
    if (roll < 0.1) continue;
    if (roll < 0.2) {
      out.push_back({a, (a + b) / 2, "half"});
      out.push_back({(a + b) / 2, b, "half"});
    } else {
      out.push_back({a, b, "line"});
    }
  }
  return out;
}

TEST(SecondToFirst, SpansLineUpOrNothingIsClaimed) {
  const std::vector<Cue> first = dialogue(1);
  struct Case {
    double rate, shift;
  };
  for (const Case c : {Case{1.0, 3.2}, Case{25 / 23.976, -41.7}, Case{23.976 / 25, 12.0}, Case{1.0004, -0.8}}) {
    const auto fit = alignSpans(retimed(first, c.rate, c.shift, 7), first);
    ASSERT_TRUE(fit) << c.rate << " " << c.shift;
    EXPECT_NEAR(fit->rate, c.rate, 2e-4) << c.rate;
    EXPECT_NEAR(fit->shift, c.shift, 0.1) << c.shift;
    EXPECT_GT(fit->overlap, 0.8);
  }
  // Another film's lines, or too few, are no match.
  EXPECT_FALSE(alignSpans(dialogue(2), first));
  EXPECT_FALSE(alignSpans({first.begin(), first.begin() + 2}, first));
  EXPECT_FALSE(alignSpans({}, first));
}

TEST(SecondToFirst, TheSecondTakesTheFirstsShownTiming) {
  Rig r;
  const std::vector<Cue> cues = dialogue(3);
  auto srt = [](const std::vector<Cue>& list) {
    std::string text;
    int n = 0;
    for (const Cue& cue : list) {
      char line[96];
      auto stamp = [](double t) {
        const long long ms = std::llround(t * 1000);
        char b[32];
        std::snprintf(b, sizeof b, "%02lld:%02lld:%02lld,%03lld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                      ms % 1000);
        return std::string(b);
      };
      std::snprintf(line, sizeof line, "%d\n%s --> %s\n", ++n, stamp(cue.start).c_str(), stamp(cue.end).c_str());
      text += line + cue.text + "\n\n";
    }
    return text;
  };
  const std::string first = r.file("en.srt", srt(cues));
  const std::string second = r.file("zh.srt", srt(retimed(cues, 25 / 23.976, 20, 5)));
  r.dir.write("en.srt.sync.json", R"({"offset":1.5})");
  r.start(first, second);
  r.c->perform(MenuAction::secondToFirst);
  EXPECT_THAT(r.host.status, testing::StartsWith("✓ Second timed to the first: rate 0.9590"));
  // At any player position both show the same line's time.
  for (double p : {50.0, 300.0, 550.0}) {
    const double firstT = p * r.s().scale + r.s().offset;
    const double secondT = p * r.s().second.scale + r.s().second.offset;
    EXPECT_NEAR(secondT, (firstT - 20) / (25 / 23.976), 0.1) << p;
  }
  EXPECT_EQ(r.s().offset, 1.5);
  EXPECT_NEAR(r.side(second)["scale"].get<double>(), 0.959040, 1e-4);

  // Not the same film: the second keeps its timing.
  r.c->loadSecondSubtitle(r.file("other.srt", srt(dialogue(4))));
  r.c->perform(MenuAction::secondToFirst);
  EXPECT_EQ(r.host.status, "Second to First: no sure match with the first — timing unchanged");
  EXPECT_EQ(r.s().second.offset, 0);
  EXPECT_FALSE(std::filesystem::exists(r.dir.path("other.srt.sync.json")));
}

// ---- layout ------------------------------------------------------------------------------

TEST(SecondSubtitleLayout, TwoBlocksWithTheirOwnSizeColourAndPlace) {
  Rig r;
  const std::string first = r.file("a.srt", kFirst);
  const std::string second = r.file("b.srt", kSecond);
  r.start(first, second);
  // 816 x 125; blocks 756 wide, 20 a line (+6), the second below the first.
  r.tickAt(3.0);
  EXPECT_EQ(test::str(r.host.secondFrame), "30,26,756,26");
  EXPECT_EQ(test::str(r.host.textFrame), "30,54,756,26");
  ASSERT_EQ(r.host.secondLayers.size(), 2u);  // outline and fill, as the first's
  EXPECT_DOUBLE_EQ(r.host.secondLayers.back().font.size, 22.4);
  EXPECT_EQ(r.host.secondLayers.back().foreground, (RGBA{1, 230 / 255.0, 128 / 255.0, 1}));
  EXPECT_EQ(r.host.layers.back().font.size, 28);
  EXPECT_EQ(r.host.layers.back().foreground, RGBA::white(1, 1));

  // Only the first has a cue: the second's line keeps its place.
  r.tickAt(1.5);
  EXPECT_EQ(r.secondShown(), "");
  EXPECT_EQ(test::str(r.host.textFrame), "30,54,756,26");
  // Only the second: the first's place is kept too, when it is above.
  r.c->setSecondAbove(true);
  r.tickAt(7.0);
  EXPECT_EQ(test::str(r.host.textFrame), "30,26,756,26");
  EXPECT_EQ(test::str(r.host.secondFrame), "30,54,756,26");
  EXPECT_EQ(r.settings.stringFor("SecondPosition"), "above");

  // Two lines and a line need more than 125: the bar grows, once.
  r.c->setSecondAbove(false);
  r.c->setSecondFontSize(30);
  r.c->setSecondColor("#a8d8ff");
  r.host.take();
  r.tickAt(10.5);
  r.tickAt(10.6);
  EXPECT_THAT(r.host.calls, testing::Contains("frame:552,108,816,130"));
  EXPECT_EQ(r.host.frame.height, 130);
  EXPECT_EQ(test::str(r.host.textFrame), "30,54,756,46");
  EXPECT_EQ(r.c->preferenceValues().second.fontSize, 30);
  EXPECT_EQ(r.c->preferenceValues().second.color, 2);
  EXPECT_EQ(r.settings.stringFor("SecondColor"), "#A8D8FF");

  // The band lies behind both blocks.
  r.c->toggleBG();
  r.tickAt(3.0);
  EXPECT_EQ(r.host.calls.back(), "band:shown");
  EXPECT_THAT(r.host.calls, testing::Contains("bandFrame:367,19,82,66"));
}

TEST(SecondSubtitleLayout, SettingsGiveTheLookAndAFollowingSize) {
  Rig r;
  r.settings.set("SecondColor", std::string("not a colour"));
  r.settings.set("SecondPosition", std::string("sideways"));
  r.settings.set("FontSize", 40.0);
  r.start(r.file("a.srt", kFirst), r.file("b.srt", kSecond));
  const prefs::Values::Second v = r.c->preferenceValues().second;
  EXPECT_EQ(v.color, 0);     // the soft yellow
  EXPECT_EQ(v.position, 0);  // below
  EXPECT_EQ(v.fontSize, 32);
  EXPECT_EQ(v.file, "b.srt");
  r.c->bumpFont(+2);  // followed while unset
  EXPECT_EQ(r.c->preferenceValues().second.fontSize, 33.6);
}

}  // namespace
}  // namespace lumerix
