#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <thread>

#include "SyncTestSupport.h"
#include "app/EpisodeMatch.h"
#include "linux/FileSettingsStore.h"
#include "mac/DefaultsValues.h"
#include "util/Files.h"

namespace lumerix {
namespace {

TEST(Settings, TypedReadsWithDefaultsAndZeroValues) {
  MemorySettingsStore s;
  s.registerDefaults({{"FontSize", 28.0}, {"BGMode", 0LL}});
  EXPECT_EQ(s.doubleFor("FontSize"), 28.0);
  s.set("FontSize", 31LL);  // whole numbers read as doubles and back
  EXPECT_EQ(s.doubleFor("FontSize"), 31.0);
  s.set("BGMode", 1.9);
  EXPECT_EQ(s.integerFor("BGMode"), 1);
  s.set("BGMode", std::string("band"));
  EXPECT_EQ(s.integerFor("BGMode"), 0);
  s.set("DidOnboard", 1LL);  // a number is not a boolean
  EXPECT_FALSE(s.boolFor("DidOnboard"));
  s.set("SubtitleFolder", 3.0);
  EXPECT_EQ(s.stringFor("SubtitleFolder"), std::nullopt);
  EXPECT_EQ(s.doubleFor("Missing"), 0.0);
  s.set("Huge", 1e300);
  EXPECT_EQ(s.integerFor("Huge"), 0);
}

// What `defaults write` leaves in the user defaults, read as the app reads it.
TEST(Settings, HandWrittenUserDefaultsMeanWhatTheirWriterMeant) {
  using nlohmann::json;
  struct Row {
    json stored;
    double asDouble;
    long long asInteger;
    bool asBool;
  };
  const Row rows[] = {
      {json(true), 1, 1, true},        // -bool YES
      {json(1LL), 1, 1, true},         // DebugLog -int 1
      {json(0LL), 0, 0, false},        //
      {json(28.9), 28.9, 28, true},    // -float
      {json("30"), 30, 30, true},      // FontSize 30, no type flag: a text
      {json(" 0.5 "), 0.5, 0, false},  // boolValue: "0" and zeros skipped, then "."
      {json("YES"), 0, 0, true},       //
      {json("true"), 0, 0, true},      //
      {json("no"), 0, 0, false},       //
      {json("-007"), -7, -7, true},    //
      {json("30px"), 0, 0, true},      // not a number in full; boolValue reads the 3
      {json(""), 0, 0, false},         //
      {json(nullptr), 0, 0, false},    // missing, or a kind no setting has
  };
  for (const Row& r : rows) {
    EXPECT_DOUBLE_EQ(mac::defaultsDouble(r.stored), r.asDouble) << r.stored;
    EXPECT_EQ(mac::defaultsInteger(r.stored), r.asInteger) << r.stored;
    EXPECT_EQ(mac::defaultsBool(r.stored), r.asBool) << r.stored;
  }
}

TEST(Settings, FileIsRewrittenAtomicallyAndKeepsOtherWritersKeys) {
  test::TempDir dir;
  const std::string path = dir.path("cfg/lumerix/settings.json");
  std::ostringstream warnings;
  {
    FileSettingsStore s(path, warnings);  // folders made on the first write
    s.set("FontSize", 30.0);
  }
  // Someone else adds a key while we run; our next write keeps it.
  FileSettingsStore s(path, warnings);
  dir.write("cfg/lumerix/settings.json", R"({"FontSize":30.0,"DebugLog":true})");
  s.set("BGMode", 1LL);
  EXPECT_TRUE(s.boolFor("DebugLog"));
  std::string text;
  ASSERT_TRUE(readWholeFile(path, text));
  EXPECT_EQ(nlohmann::json::parse(text), nlohmann::json::parse(R"({"FontSize":30.0,"DebugLog":true,"BGMode":1})"));
  EXPECT_EQ(warnings.str(), "");
  std::vector<std::string> files;
  for (const auto& e : std::filesystem::directory_iterator(dir.path("cfg/lumerix"))) {
    files.push_back(e.path().filename());
  }
  std::sort(files.begin(), files.end());
  // No temporary files left behind; the lock file stays for the next save.
  EXPECT_EQ(files, (std::vector<std::string>{"settings.json", "settings.json.lock"}));
}

// Settings kept elsewhere (a dotfiles repository, say) and linked in: the
// file the link names is updated, and the link stays a link.
TEST(Settings, ALinkedFileIsWrittenThroughTheLink) {
  test::TempDir dir;
  dir.write("dotfiles/lumerix.json", R"({"DebugLog":true})");
  std::filesystem::create_directories(dir.path("config"));
  std::filesystem::create_symlink("../dotfiles/lumerix.json", dir.path("config/settings.json"));
  std::ostringstream warnings;
  FileSettingsStore s(dir.path("config/settings.json"), warnings);
  s.set("FontSize", 32.0);
  EXPECT_TRUE(std::filesystem::is_symlink(dir.path("config/settings.json")));
  std::string text;
  ASSERT_TRUE(readWholeFile(dir.path("dotfiles/lumerix.json"), text));
  EXPECT_EQ(nlohmann::json::parse(text), nlohmann::json::parse(R"({"DebugLog":true,"FontSize":32.0})"));
  EXPECT_EQ(warnings.str(), "");
}

// Two instances saving at once lose none of each other's keys.
TEST(Settings, InstancesSavingAtOnceKeepEveryKey) {
  test::TempDir dir;
  const std::string path = dir.path("settings.json");
  std::ostringstream warningsA, warningsB;
  FileSettingsStore a(path, warningsA), b(path, warningsB);
  auto writeMany = [](FileSettingsStore& store, const char* prefix) {
    for (int i = 0; i < 150; ++i) store.set(prefix + std::to_string(i), static_cast<long long>(i));
  };
  std::thread other([&] { writeMany(b, "b"); });
  writeMany(a, "a");
  other.join();
  std::string text;
  ASSERT_TRUE(readWholeFile(path, text));
  EXPECT_EQ(nlohmann::json::parse(text).size(), 300u);
  EXPECT_EQ(warningsA.str() + warningsB.str(), "");
}

TEST(Settings, CorruptFileIsReportedOnceAndKeptAside) {
  test::TempDir dir;
  dir.write("settings.json", "{\"FontSize\": 30,");  // cut off mid-write by some other program
  std::ostringstream warnings;
  FileSettingsStore s(dir.path("settings.json"), warnings);
  EXPECT_EQ(s.doubleFor("FontSize"), 0.0);
  s.set("FontSize", 24.0);
  s.set("PanelAlpha", 0.5);
  const std::string said = warnings.str();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  std::string kept, now;
  ASSERT_TRUE(readWholeFile(dir.path("settings.json.corrupt"), kept));
  EXPECT_EQ(kept, "{\"FontSize\": 30,");
  ASSERT_TRUE(readWholeFile(dir.path("settings.json"), now));
  EXPECT_EQ(nlohmann::json::parse(now), nlohmann::json::parse(R"({"FontSize":24.0,"PanelAlpha":0.5})"));

  // Nested past all reason: writing it back would overflow the stack.
  const std::string deep = "{\"FontSize\":30,\"x\":" + std::string(80000, '[') + std::string(80000, ']') + "}";
  dir.write("settings.json", deep);
  std::ostringstream deepWarnings;
  FileSettingsStore nested(dir.path("settings.json"), deepWarnings);
  EXPECT_EQ(nested.doubleFor("FontSize"), 0.0);
  nested.set("FontSize", 26.0);
  ASSERT_TRUE(readWholeFile(dir.path("settings.json.corrupt"), kept));
  EXPECT_EQ(kept, deep);
  const std::string told = deepWarnings.str();
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
}

TEST(Settings, StringsThatAreNotUtf8AreKeptByteForByte) {
  test::TempDir dir;
  std::ostringstream warnings;
  const std::string latin1 = "/media/caf\xe9 100%";
  {
    FileSettingsStore s(dir.path("settings.json"), warnings);
    s.set("SubtitleFolder", latin1);
    s.set("Plain", std::string("50% off"));  // valid UTF-8 stays a plain string
  }
  std::string text;
  ASSERT_TRUE(readWholeFile(dir.path("settings.json"), text));
  EXPECT_EQ(nlohmann::json::parse(text),
            nlohmann::json::parse(R"({"SubtitleFolder":{"percentEncoded":"/media/caf%E9 100%25"},"Plain":"50% off"})"));
  FileSettingsStore again(dir.path("settings.json"), warnings);
  EXPECT_EQ(again.stringFor("SubtitleFolder"), latin1);
  EXPECT_EQ(again.stringFor("Plain"), "50% off");
  EXPECT_EQ(warnings.str(), "");
  // A malformed encoding is just an object: the wrong type, read as absent.
  dir.write("settings.json", R"({"SubtitleFolder":{"percentEncoded":"caf%E"}})");
  EXPECT_EQ(FileSettingsStore(dir.path("settings.json"), warnings).stringFor("SubtitleFolder"), std::nullopt);
}

TEST(EpisodeNames, NumberFromTrackAndPatternOnFileNames) {
  const std::pair<const char*, std::optional<long long>> tracks[] = {
      {"Episode 12", 12},
      {"Part 2: Chapter 7", 2},
      {"Trailer", std::nullopt},
      {"Show S01E05", 1},
      {"E007", 7},
      {"\u0661\u0662 then 3", std::nullopt},   // first run is not ASCII: no number
      {"99999999999999999999", std::nullopt},  // too large
  };
  for (const auto& [track, number] : tracks) EXPECT_EQ(episode::numberIn(track), number) << track;
  const std::pair<const char*, std::optional<long long>> tags[] = {
      {"Show.S01E02.mkv", 2},
      {"show.s1e7.720p", 7},
      {"2024 Show s03e11", 11},
      {"S123E4", std::nullopt},
      {"SE01", std::nullopt},
      {"S01E", std::nullopt},
      {"Episode 12", std::nullopt},  // no tag: the caller falls
                                     // back to the first number
      {"Season 1 S1x02 S02E05", 5},
  };
  for (const auto& [track, number] : tags) EXPECT_EQ(episode::seasonEpisodeIn(track), number) << track;

  struct Row {
    const char* name;
    long long episode;
    bool match;
  };
  const Row rows[] = {
      {"show.s01e07.srt", 7, true},   {"show s1e7 720p.vtt", 7, true},
      {"x.s01e007.srt", 7, true},     {"show.s01e17.srt", 7, false},
      {"show.s01e70.srt", 7, false},  {"s123e07.srt", 7, false},
      {"s01e0.srt", 0, true},         {"s01e000x.srt", 0, true},
      {"s01e05.srt", 0, false},       {"s01e10.srt", 10, true},
      {"s01e010.srt", 10, true},      {"s01e100.srt", 10, false},
      {"\u017f01e07.srt", 7, true},   {"s\u0660\u0661e07.srt", 7, true},  // long s; Arabic-Indic season
      {"s01e07\u0661.srt", 7, false}, {"se07.srt", 7, false},
      {"s01s02e07.srt", 7, true},
  };
  for (const Row& r : rows) EXPECT_EQ(episode::nameMatches(r.name, r.episode), r.match) << r.name;
  EXPECT_EQ(episode::findInFolder("/no/such/folder", 1), std::nullopt);
}

}  // namespace
}  // namespace lumerix
