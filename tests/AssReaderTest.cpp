#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>

#include "TestSupport.h"
#include "subtitles/AssReader.h"

namespace lumerix {
namespace {

using test::cuesOf;
using test::cuesOfFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Events in the usual v4+ format at 0:00:01.00-0:00:02.00 with these texts.
std::string script(std::initializer_list<const char*> texts) {
  std::string s = "[Script Info]\nScriptType: v4.00+\n\n[Events]\n";
  for (const char* t : texts) s += std::string("Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,") + t + "\n";
  return s;
}

TEST(AssReader, RealShapedScriptsGiveTheirDialogue) {
  EXPECT_THAT(cuesOfFile("night-train.ass"),
              ElementsAre(Cue{0.5, 1, "Written last, shown first"},
                          Cue{1.2, 3.4, "Well, well, well... look who's back."}, Cue{4, 6.5, "Me?\nI never left."},
                          Cue{7, 9, "PLATFORM 9\nCome on, hurry!"}, Cue{10, 12, "Positioned, not drawn"},
                          Cue{13.5, 15.5, "Half\nseconds"}, Cue{23, 24, "Tagged and lower case"},
                          Cue{36000, 36001, "Ten hours"}));
  EXPECT_THAT(cuesOfFile("night-train.ssa"),
              ElementsAre(Cue{1, 3, "这是第一句，对吗？"}, Cue{4, 6, "下一站：终点站\n请带好随身物品"}));
  EXPECT_THAT(cuesOfFile("reordered.ass"),
              ElementsAre(Cue{1, 2, "Default order before any Format line"},
                          Cue{3, 4, "Start and end swapped, commas kept, all of them"},
                          Cue{7, 8, "Three fields, and the last takes the rest"}));
}

TEST(AssReader, OnlyAScriptInfoFirstLineChoosesTheScriptReader) {
  EXPECT_TRUE(ass::isScript("\n \t\n [SCRIPT INFO]\t\n"));
  EXPECT_FALSE(ass::isScript("[Script Info] v4\n"));
  EXPECT_FALSE(ass::isScript("; comment\n[Script Info]\n"));
  EXPECT_FALSE(ass::isScript(""));
  // A SubRip file that quotes a script line is still SubRip...
  EXPECT_THAT(cuesOf("1\n00:00:01,000 --> 00:00:02,000\n[Script Info]\n"), ElementsAre(Cue{1, 2, "[Script Info]"}));
  // ...and a script holds no SubRip cues, whatever its lines look like.
  EXPECT_THAT(cuesOf("[Script Info]\n\n1\n00:00:01,000 --> 00:00:02,000\nText\n"), IsEmpty());
}

TEST(AssReader, TimesAreDecimalFractionsAndBadOnesSkipTheLine) {
  const std::pair<const char*, std::optional<double>> starts[] = {
      {"0:00:01.5", 1.5},   {"0:00:01.50", 1.5},   {"0:00:01.500", 1.5},  {"0:00:01.23", 1.23},
      {"123:00:00.1", 442800.1}, {" 0:01:02.03 ", 62.03}, {"0:00:01.123456789", 1.123456789},
      {"00:00:01", std::nullopt}, {"0:0:01.00", std::nullopt}, {"0:00:1.00", std::nullopt},
      {"0:00:60.00", std::nullopt}, {"0:00:01,00", std::nullopt}, {"0:00:01.", std::nullopt},
      {"-0:00:01.00", std::nullopt}, {"0:00:01.0x", std::nullopt}, {":00:01.00", std::nullopt},
  };
  for (const auto& [start, expected] : starts) {
    const std::string text = std::string("[Script Info]\n[Events]\nDialogue: 0,") + start +
                             ",999999:00:00.00,Default,,0,0,0,,x\n";
    const auto cues = cuesOf(text);
    if (!expected) {
      EXPECT_THAT(cues, IsEmpty()) << start;
      continue;
    }
    ASSERT_EQ(cues.size(), 1u) << start;
    EXPECT_EQ(cues[0].start, *expected) << start;  // the double nearest the decimal, as --dump-cues prints it
  }
  // Hours past any integer are still a time, or no line at all; never a crash.
  EXPECT_THAT(cuesOf("[Script Info]\n[Events]\nDialogue: 0,0:00:00.00," + std::string(400, '9') +
                     ":00:00.00,Default,,0,0,0,,x\n"),
              IsEmpty());
  EXPECT_EQ(cuesOf("[Script Info]\n[Events]\nDialogue: 0,0:00:00.00,1" + std::string(20, '0') +
                   ":00:00.00,Default,,0,0,0,,x\n")[0].end,
            3.6e23);
}

TEST(AssReader, TextLosesOverridesAndDrawingsAndKeepsItsWords) {
  const std::pair<const char*, const char*> cases[] = {
      {"{\\an8}Top", "Top"},
      {"a\\Nb\\nc", "a\nb\nc"},
      {"non\\hbreaking", "non breaking"},
      {"\\N\\N  x  \\N", "x"},
      {"{\\p1}m 0 0 l 1 1{\\p0}", ""},
      {"{\\pos(1,2)\\p2}m 0 0", ""},
      {"{\\p0}not a drawing", "not a drawing"},
      {"{\\pbo5}baseline offset, no drawing", "baseline offset, no drawing"},
      {"\\p1 outside a block is text", "\\p1 outside a block is text"},
      {"{unclosed \\p1", "{unclosed \\p1"},
      {"C:\\\\Nothing", "C:\\\nothing"},
      {"<b>bold</b> {\\i1}it{\\i0}", "bold it"},
      {"{\\c&H00FFFF&}5 > 3", "5 > 3"},
  };
  for (const auto& [raw, clean] : cases) {
    const auto cues = cuesOf(script({raw}));
    if (*clean == '\0') {
      EXPECT_THAT(cues, IsEmpty()) << raw;
      continue;
    }
    ASSERT_EQ(cues.size(), 1u) << raw;
    EXPECT_EQ(cues[0].text, clean) << raw;
  }
}

TEST(AssReader, EventsAtTheSameTimesMergeAnywhereInTheFile) {
  std::string s = script({"{\\blur2}Sign", "Line one", "{\\shad0}Sign"});
  s += "Dialogue: 0,0:00:00.50,0:00:02.00,Default,,0,0,0,,Earlier\n";
  s += "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,Line one\n";
  s += "Dialogue: 0,0:00:01.00,0:00:03.00,Default,,0,0,0,,Same start, other end\n";
  s += "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,Line two\n";
  EXPECT_THAT(cuesOf(s), ElementsAre(Cue{0.5, 2, "Earlier"}, Cue{1, 2, "Sign\nLine one\nLine two"},
                                     Cue{1, 3, "Same start, other end"}));
  // Thousands of events at one time stay cheap and each text counts once.
  std::string many = "[Script Info]\n[Events]\n";
  for (int i = 0; i < 20000; ++i) {
    many += "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,line " + std::to_string(i % 5000) + "\n";
  }
  const auto merged = cuesOf(many);
  ASSERT_EQ(merged.size(), 1u);
  EXPECT_EQ(std::count(merged[0].text.begin(), merged[0].text.end(), '\n'), 4999);
  // Events of one group far apart, in both halves of a long script, and
  // runs long enough to be grouped through a table: each group gathers its
  // texts in file order, once each, and stands where its first event stood.
  std::mt19937 rng(5);
  for (int round = 0; round < 20; ++round) {
    struct Event {
      int start, end, text;
    };
    std::vector<Event> events;
    std::string text = "[Script Info]\n[Events]\n";
    const int count = round < 10 ? 60 : 400;  // runs of a few, or of more than thirty at a start
    for (int i = 0; i < count; ++i) {
      const Event e{static_cast<int>(rng() % 6), 6 + static_cast<int>(rng() % 3), static_cast<int>(rng() % 4)};
      events.push_back(e);
      char line[96];
      std::snprintf(line, sizeof line, "Dialogue: 0,0:00:%02d.00,0:00:%02d.00,Default,,0,0,0,,{\\i%d}line %d\n", e.start,
                    e.end, i % 2, e.text);
      text += line;
    }
    std::vector<Cue> expected;
    for (std::size_t i = 0; i < events.size(); ++i) {
      const auto first = std::find_if(events.begin(), events.end(), [&](const Event& e) {
        return e.start == events[i].start && e.end == events[i].end;
      });
      const std::string words = "line " + std::to_string(events[i].text);
      if (first == events.begin() + static_cast<std::ptrdiff_t>(i)) {
        expected.push_back(Cue{double(events[i].start), double(events[i].end), words});
        continue;
      }
      auto group = std::find_if(expected.begin(), expected.end(), [&](const Cue& c) {
        return c.start == events[i].start && c.end == events[i].end;
      });
      const std::string joined = "\n" + group->text + "\n";
      if (joined.find("\n" + words + "\n") == std::string::npos) group->text += "\n" + words;
    }
    std::stable_sort(expected.begin(), expected.end(), [](const Cue& a, const Cue& b) { return a.start < b.start; });
    EXPECT_EQ(ass::readScript(text, 0), expected) << text;
    EXPECT_EQ(ass::readScript(text, std::string::npos), expected) << text;
  }
}


// Long scripts are read in two halves at once; whatever lies around the
// cut (a second format, another section), the cues are those of one pass.
TEST(AssReader, TwoHalvesGiveWhatOnePassGives) {
  std::mt19937 rng(11);
  const char* extras[] = {"Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text",
                          "Format: Start, End, Text", "[Fonts]", "[Events]", "Comment: 0,0:00:01.00,0:00:02.00,,",
                          "", "  [events]"};
  for (int round = 0; round < 200; ++round) {
    std::string text = "[Script Info]\n[Events]\n";
    for (int i = 0; i < 40; ++i) {
      // Whole milliseconds and finer fractions sort by different means.
      const int at = static_cast<int>(rng() % 20);
      const char* fractions[] = {"00", "5", "50", "0005", "1234567"};
      char times[64];
      std::snprintf(times, sizeof times, "0:00:%02d.%s,0:00:%02d.50", at, fractions[rng() % std::size(fractions)],
                    at + 1);
      if (rng() % 2) {
        text += std::string("Dialogue: 0,") + times + ",Default,,0,0,0,,line " + std::to_string(rng() % 4) + "\n";
      } else {
        text += std::string("Dialogue: ") + times + ",three, fields\n";
      }
      if (rng() % 6 == 0) text += std::string(extras[rng() % std::size(extras)]) + "\n";
    }
    ASSERT_EQ(SRTParser::parseDecoded(text, 0), SRTParser::parseDecoded(text, std::string::npos)) << text;
  }
}

}  // namespace
}  // namespace lumerix
