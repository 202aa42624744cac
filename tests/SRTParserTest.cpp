#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "TestSupport.h"
#include "subtitles/SRTParser.h"
#include "util/TextDecoding.h"

namespace lumerix {
namespace {

using test::cuesOf;
using test::cuesOfFile;
using test::fixture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- decoding --------------------------------------------------------------

TEST(ReaderDecoding, ByteOrderMarkAndLineEndsDoNotChangeTheCues) {
  const auto plain = cuesOfFile("episode-lf.srt");
  ASSERT_EQ(plain.size(), 5u);
  EXPECT_EQ(cuesOfFile("episode-bom.srt"), plain);
  EXPECT_EQ(cuesOfFile("episode.srt"), plain);  // CR LF throughout
  EXPECT_EQ(plain[0], (Cue{1.2, 3.4, "Previously, on the night shift..."}));
  EXPECT_EQ(plain[4].start, 3600.0);
}

TEST(ReaderDecoding, FilesThatAreNotUtf8AreReadInTheirOwnEncoding) {
  EXPECT_THAT(cuesOfFile("gb18030.srt"), ElementsAre(Cue{1, 2, "这是第一句。"}, Cue{3, 4, "下一站：终点站"}));
  EXPECT_THAT(cuesOfFile("latin1.srt"), ElementsAre(Cue{1, 2, "Ça va? Très bien."}, Cue{3, 4, "À bientôt, señor."}));
  EXPECT_EQ(convertToUtf8("\xA4\xA4\xA4\xE5", "BIG5"), std::optional<std::string>("中文"));
}

TEST(ReaderDecoding, OnlyOneLeadingByteOrderMarkIsDropped) {
  // A second mark is text; it is not white space, so it even survives trimming.
  const auto cues = cuesOf(
      "\xEF\xBB\xBF\xEF\xBB\xBF"
      "1\n00:00:01,000 --> 00:00:02,000\n\xEF\xBB\xBFHi");
  ASSERT_EQ(cues.size(), 1u);
  EXPECT_EQ(cues[0].text, "\xEF\xBB\xBFHi");
  // A mark followed by what is not UTF-8 is no mark: the first line then
  // carries its eight-bit reading, which no timing can match, and the cue
  // is still found on the next line.
  const auto legacy = cuesOf(
      "\xEF\xBB\xBF"
      "1\n00:00:01,000 --> 00:00:02,000\nd\xE9j\xE0 vu\n");
  ASSERT_EQ(legacy.size(), 1u);
  EXPECT_EQ(legacy[0].text, "déjà vu");
}

TEST(ReaderDecoding, ConversionsAreAllOrNothing) {
  EXPECT_EQ(convertToUtf8("caf\xE9", "ISO-8859-1"), std::optional<std::string>("café"));
  EXPECT_EQ(convertToUtf8("ok \x81", "GB18030"), std::nullopt);       // cut-off pair at the end
  EXPECT_EQ(convertToUtf8("ok \x80 ok", "GB18030"), std::nullopt);    // undefined single byte
  EXPECT_EQ(convertToUtf8("abc", "NO-SUCH-ENCODING"), std::nullopt);  // no converter
  // Output larger than the first buffer guess still converts whole.
  std::string many(100000, '\xA4');
  for (std::size_t i = 1; i < many.size(); i += 2) many[i] = '\xA4';
  auto out = convertToUtf8(many, "BIG5");
  ASSERT_TRUE(out);
  EXPECT_EQ(out->size(), 150000u);
}

// ---- file errors -----------------------------------------------------------

TEST(ReaderFiles, ReadFailuresKeepTheSystemsOwnDescription) {
  auto missing = SRTParser::parse(fixture("no-such-file.srt"));
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(describe(missing.error()), "No such file or directory");
  auto directory = SRTParser::parse(fixture(""));
  ASSERT_FALSE(directory.ok());
  EXPECT_EQ(describe(directory.error()), "Is a directory");
  EXPECT_EQ(describe(SubtitleReadError{SRTParseError::unreadable}), "Cannot read subtitle file (unsupported encoding)");
}

TEST(ReaderFiles, FilesWithoutCuesGiveAnEmptyListNotAnError) {
  EXPECT_THAT(cuesOfFile("empty.srt"), IsEmpty());
  EXPECT_THAT(cuesOf("WEBVTT\n\nNOTE nothing here\n"), IsEmpty());
  EXPECT_THAT(cuesOf("\n\n\n   \n"), IsEmpty());
}

// ---- line ends and blank runs ------------------------------------------------

TEST(ReaderBlocks, LineEndsOfEveryKindGiveTheSameCues) {
  const std::vector<Cue> expected{{1, 2, "a\nb"}, {3, 4, "c"}};
  for (const char* eol : {"\n", "\r\n", "\r"}) {
    std::string s = "1" + std::string(eol) + "00:00:01,000 --> 00:00:02,000" + eol + "a" + eol + "b" + eol + eol + "2" +
                    eol + "00:00:03,000 --> 00:00:04,000" + eol + "c" + eol;
    EXPECT_EQ(cuesOf(s), expected) << "line end " << testing::PrintToString(std::string(eol));
  }
  // Mixed in one file; "\n\r" is two line ends, so it separates blocks.
  EXPECT_EQ(cuesOf("1\r\n00:00:01,000 --> 00:00:02,000\ra\nb\n\r2\r00:00:03,000 --> 00:00:04,000\r\nc"), expected);
}

TEST(ReaderBlocks, BlankRunsOfAnyWhiteSpaceSeparateBlocks) {
  // Tabs, no-break spaces, ideographic spaces and line/paragraph separators
  // are all white space to the blank-run rule.
  const std::vector<Cue> expected{{1, 2, "a"}, {3, 4, "b"}};
  for (const char* gap : {"\n\n", "\n \t\n", "\n\u00A0\n\n", "\n\u3000\u2028\n", "\n\f\n", "\n\u2029\n \n"}) {
    std::string s = std::string("00:00:01,000 --> 00:00:02,000\na") + gap + "00:00:03,000 --> 00:00:04,000\nb";
    EXPECT_EQ(cuesOf(s), expected) << testing::PrintToString(std::string(gap));
  }
  // Vertical tab and U+0085 are not white space to that rule: no split, and
  // the second timing line becomes text of the first cue.
  for (const char* gap : {"\n\v\n", "\n\u0085\n"}) {
    std::string s = std::string("00:00:01,000 --> 00:00:02,000\na") + gap + "00:00:03,000 --> 00:00:04,000\nb";
    auto cues = cuesOf(s);
    ASSERT_EQ(cues.size(), 1u) << testing::PrintToString(std::string(gap));
    EXPECT_EQ(cues[0].start, 1.0);
  }
}

TEST(ReaderBlocks, MalformedFileKeepsWhatTheGrammarAllows) {
  EXPECT_THAT(cuesOfFile("malformed.srt"),
              ElementsAre(Cue{1, 2, "First.\n2\n00:00:03,000 --> 00:00:04,000\nGlued to the first cue."},
                          Cue{5, 6, "Before the spaces"}, Cue{5, 5.5, "Same start as cue 4, so it sorts after it."},
                          Cue{8, 7, "Ends before it starts."}, Cue{9, 10, "Third, but written first."}));
}

TEST(ReaderBlocks, WebVttHeadersNotesStylesAndSettingsFallAway) {
  EXPECT_THAT(cuesOfFile("lecture.vtt"), ElementsAre(Cue{1, 2, "Good evening."}, Cue{3, 4, "This cue has no hours."},
                                                     Cue{5.5, 7, "Ticket, please."}));
}

TEST(ReaderBlocks, WebVttAsTheWebWritesItReadsWithReferencesDecoded) {
  EXPECT_THAT(cuesOfFile("web.vtt"),
              ElementsAre(Cue{1, 4, "Tom & Jerry <3"}, Cue{4.5, 6.25, "Caf\u00E9\u00A0au\u00A0lait \u00E9t\u00E9 \u263A"},
                          Cue{6, 9, "Step by step\n<b>not a tag</b> &amp;"},
                          Cue{9, 3600, "\u200Eleft \u200Fright &copy; \uFFFD \uFFFD \uFFFD &#; &# &amp"}));
  // The same text without the WEBVTT line is SubRip: shown as written.
  const auto subRip = cuesOf("1\n00:00:01,000 --> 00:00:02,000\nTom &amp; Jerry &#233;\n");
  ASSERT_EQ(subRip.size(), 1u);
  EXPECT_EQ(subRip[0].text, "Tom &amp; Jerry &#233;");
  // The mark goes before the header is looked at; a saturated huge number
  // is no character, and a reference alone still makes a cue.
  EXPECT_THAT(cuesOf("\xEF\xBB\xBFWEBVTT\n\n00:01.000 --> 00:02.000\n&#99999999999999999999;\n\n"
                     "00:03.000 --> 00:04.000\n<i>&nbsp;</i>\n"),
              ElementsAre(Cue{1, 2, "\uFFFD"}, Cue{3, 4, "\u00A0"}));
}

TEST(ReaderBlocks, LinesBeforeTheTimingLineAreDroppedAndOnlyWhitespaceLinesAreSkipped) {
  // The block's first line is whitespace-only (tab and spaces) and dropped;
  // a line of form feed only is not "whitespace", so it is kept as text
  // and then trimmed away at the end of the text.
  EXPECT_THAT(cuesOf(" \t\nid\nnote\n00:00:01,000 --> 00:00:02,000\n  indented\nlast\n\f"),
              ElementsAre(Cue{1, 2, "indented\nlast"}));
  // The first kept line that matches wins, even if a later one also matches.
  EXPECT_THAT(cuesOf("00:00:01,000 --> 00:00:02,000\n00:00:03,000 --> 00:00:04,000\ntext"),
              ElementsAre(Cue{1, 2, "00:00:03,000 --> 00:00:04,000\ntext"}));
}

// ---- the timing line -------------------------------------------------------------

struct TimingCase {
  const char* line;
  bool matches;
  double start;
  double end;
};

TEST(ReaderTiming, TimingLinesAreReadAsWritten) {
  const TimingCase cases[] = {
      {"00:00:01,000 --> 00:00:02,000", true, 1, 2},
      {"00:00:01,5 --> 00:00:02,25", true, 1.005, 2.025},  // short fractions are thousandths
      {"00:00:01,50 --> 00:00:02,500", true, 1.05, 2.5},
      {"00:00:01.000 --> 00:00:02.000 align:start line:0", true, 1, 2},
      {"0:0:01,000 --> 0:00:02,000", false, 0, 0},  // minutes need two digits
      {"1:02:03,004 --> 12:34:56,789", true, 3723.004, 45296.789},
      {"00:01.000 --> 00:04.000", true, 1, 4},  // hours are optional on each side
      {"00:01.5 --> 01:00:02.25", true, 1.005, 3602.025},
      {"59:59,999 --> 60:00,000", true, 3599.999, 3600},
      {"1:02.000 --> 00:03.000", false, 0, 0},           // hourless minutes need two digits
      {"123:45.000 --> 00:01.000", true, 1425, 1},       // from the run's last two digits
      {"00:01.000 --> 100:02.000", false, 0, 0},         // nor can the end side skip one
      {"1:23:45:67,000 --> 00:01.000", true, 85567, 1},  // 23:45:67: the leftmost that fits
      {"100:00:01,000 --> 100:00:02,000", false, 0, 0},  // end side cannot skip a digit
      {"100:00:03,000 --> 00:00:04,000", true, 3, 4},    // start side matches from the second digit
      {"00:00:01,0000 --> 00:00:02,000", false, 0, 0},   // four-digit start fraction
      {"00:00:01,000 --> 00:00:02,0009", true, 1, 2},    // end fraction takes three, ignores the rest
      {"00:00:01,000-->00:00:02,000", true, 1, 2},
      {"00:00:01,000\t\u00A0-->\u3000 00:00:02,000", true, 1, 2},
      {"00:00:01,000 -> 00:00:02,000", false, 0, 0},
      {"00:00:01;000 --> 00:00:02,000", false, 0, 0},
      {"Cue 7: 00:00:01,000 --> 00:00:02,000", true, 1, 2},  // found anywhere in the line
      {"00:00:99,999 --> 99:99:99,999", true, 99.999, 99 * 3600 + 99 * 60 + 99.999},
      {"12:00:00,000 --> 00:00:01,000 --> 00:00:02,000", true, 43200, 1},
      {"x 1:00:00,000 --> 2:00:00,000 2:00:00,000 --> 3:00:00,000", true, 3600, 7200},
      {"00:00:01,000 --> \u0661\u0662:00:02,000", false, 0, 0},  // Arabic-Indic digits are not digits here
  };
  for (const auto& c : cases) {
    auto cues = cuesOf(std::string(c.line) + "\ntext");
    if (!c.matches) {
      EXPECT_THAT(cues, IsEmpty()) << c.line;
      continue;
    }
    ASSERT_EQ(cues.size(), 1u) << c.line;
    EXPECT_DOUBLE_EQ(cues[0].start, c.start) << c.line;
    EXPECT_DOUBLE_EQ(cues[0].end, c.end) << c.line;
  }
}

// The matcher is hand-written; a general backtracking engine is the oracle.
// On this alphabet ECMAScript's \s and the reader's white space agree, so
// plain std::regex can stand in for the pattern.
TEST(ReaderTiming, MatcherAgreesWithABacktrackingRegexOnRandomLines) {
  const std::regex pattern(
      R"((?:(\d{1,2}):)?(\d{2}):(\d{2})[,.](\d{1,3})[ \t]*-->[ \t]*(?:(\d{1,2}):)?(\d{2}):(\d{2})[,.](\d{1,3}))");
  const std::string alphabet = "0123456789:::,.  \t-->>x";
  std::mt19937 rng(20261121);
  const std::string seeds[] = {"00:00:01,000 --> 00:00:02,000", "1:2:3,4 --> 5:6:7,8", "123:45:67,8901-->12:34:56,7",
                               "00:01.000 --> 00:02.000", "1:23,4-->56:07.8 --> 9:10:11,12"};
  int matched = 0;
  for (int n = 0; n < 20000; ++n) {
    std::string line = seeds[n % std::size(seeds)];
    // Mutate a valid-looking line so matches stay common.
    for (int k = std::uniform_int_distribution<int>(0, 4)(rng); k > 0; --k) {
      std::size_t pos = std::uniform_int_distribution<std::size_t>(0, line.size())(rng);
      char ch = alphabet[std::uniform_int_distribution<std::size_t>(0, alphabet.size() - 1)(rng)];
      switch (rng() % 3) {
        case 0:
          line.insert(pos, 1, ch);
          break;
        case 1:
          if (pos < line.size()) line.erase(pos, 1);
          break;
        default:
          if (pos < line.size()) line[pos] = ch;
          break;
      }
    }
    std::smatch m;
    const bool expected = std::regex_search(line, m, pattern);
    auto cues = cuesOf(line + "\nt");
    ASSERT_EQ(cues.size(), expected ? 1u : 0u) << '"' << line << '"';
    if (!expected) continue;
    ++matched;
    auto side = [&](int g) {
      const int hours = m[g].matched ? std::stoi(m[g]) : 0;
      return hours * 3600 + std::stoi(m[g + 1]) * 60 + std::stoi(m[g + 2]) + std::stoi(m[g + 3]) / 1000.0;
    };
    ASSERT_EQ(cues[0].start, side(1)) << '"' << line << '"';
    ASSERT_EQ(cues[0].end, side(5)) << '"' << line << '"';
  }
  EXPECT_GT(matched, 2000);  // the oracle saw both outcomes often
}

// ---- text clean-up and tags --------------------------------------------------------

TEST(ReaderText, TagsAreRemovedOnceAndNothingElseChanges) {
  const std::pair<const char*, const char*> cases[] = {
      {"<i>Hello</i> {\\an8}world", "Hello world"},
      {"<i> </i>", " "},  // no trimming after the tags go
      {"<>", "<>"},       // an empty pair of angle brackets is text
      {"a <> b", "a <> b"},
      {"<<b>x", "x"},
      {"<a<b>>", ">"},  // one pass: what the removal joins stays
      {"{}x{", "x{"},
      {"{a}{b}c", "c"},
      {"x < y and y > z", "x  z"},
      {"<font color=\"#ff0\">\nyellow\n</font>", "\nyellow\n"},  // tags span lines
      {"5 > 3 < 4", "5 > 3 < 4"},
      {"Tom &amp; Jerry &lt;3", "Tom &amp; Jerry &lt;3"},  // entities stay as written
      {"{\\pos(10,20)}<b>{x}</b>", ""},
      {"  \u00A0padded\u3000\t", "padded"},
  };
  for (const auto& [raw, clean] : cases) {
    auto cues = cuesOf(std::string("00:00:01,000 --> 00:00:02,000\n") + raw);
    if (*clean == '\0') {
      EXPECT_THAT(cues, IsEmpty()) << raw;
      continue;
    }
    ASSERT_EQ(cues.size(), 1u) << raw;
    EXPECT_EQ(cues[0].text, clean) << raw;
  }
  EXPECT_THAT(cuesOf("00:00:01,000 --> 00:00:02,000\n<i></i>"), IsEmpty());
  EXPECT_THAT(cuesOf("00:00:01,000 --> 00:00:02,000\n"), IsEmpty());
}

TEST(ReaderText, TrimmingTakesLineEndsAndSeparatorsButNotOtherControls) {
  // U+2028 and U+0085 are line ends at the text's edges; a vertical tab is
  // trimmed too (U+000B is in the line-end range); U+0007 is not.
  auto cues = cuesOf("00:00:01,000 --> 00:00:02,000\n\u2028\u0085\v a b \u2029\n\x07");
  ASSERT_EQ(cues.size(), 1u);
  EXPECT_EQ(cues[0].text, "a b \u2029\n\x07");
}

// ---- sorting ---------------------------------------------------------------------

TEST(ReaderSorting, SortedByStartWithTiesInFileOrder) {
  std::string s;
  const double starts[] = {5, 1, 5, 3, 1, 5};
  for (int i = 0; i < 6; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "00:00:%02d,000 --> 00:00:59,000\ncue %d\n\n", static_cast<int>(starts[i]), i);
    s += line;
  }
  std::vector<std::string> order;
  for (const Cue& c : cuesOf(s)) order.push_back(c.text);
  EXPECT_THAT(order, ElementsAre("cue 1", "cue 4", "cue 3", "cue 0", "cue 2", "cue 5"));
}

// Big files are read in two halves at once; whatever the text around the
// cut, the cues and their order are those of a single pass.
TEST(ReaderSorting, TwoHalvesGiveWhatOnePassGives) {
  std::mt19937 rng(5);
  const char* pieces[] = {
      "\n", "\n\n",     " \n", "\n \n", "\n\f\n", "\u3000\n\n", "é\n\n", "x", "00:00:0", "1,000 --> 00:00:02,000",
      "2",  "<i>a</i>", " ",   "\t",    "\u2028", "-->"};
  for (int round = 0; round < 300; ++round) {
    std::string text;
    for (int i = 0; i < 60; ++i) {
      if (rng() % 3 == 0) {
        text += std::to_string(i) + "\n00:00:" + std::to_string(10 + rng() % 50) + ",000 --> 00:01:00,000\nline\n";
      }
      text += pieces[rng() % std::size(pieces)];
    }
    const auto whole = SRTParser::parseDecoded(text, std::string::npos);
    const auto halves = SRTParser::parseDecoded(text, 0);
    ASSERT_EQ(halves, whole) << text;
  }
}

}  // namespace
}  // namespace lumerix
