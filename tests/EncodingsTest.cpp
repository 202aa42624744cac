#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "subtitles/Encodings.h"
#include "subtitles/SRTParser.h"
#include "util/TextDecoding.h"

namespace lumerix {
namespace {

using test::fixture;
using ::testing::ElementsAre;

SubtitleFile fileOf(const std::string& name, const encoding::Preference& preference = {}) {
  auto file = SRTParser::read(fixture(name), preference);
  EXPECT_TRUE(file.ok()) << name;
  return file ? std::move(file).value() : SubtitleFile{};
}

std::vector<std::string> textsOf(const SubtitleFile& file) {
  std::vector<std::string> texts;
  for (const Cue& cue : file.cues) texts.push_back(cue.text);
  return texts;
}

// A couple of real sentences per language, saved as that language's files
// usually are; each must come back exactly, and say how it was read.
TEST(Encodings, EveryLanguageReadsBackInItsOwnEncoding) {
  struct Case {
    const char* file;
    const char* encoding;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"en-windows-1252.srt", "windows-1252", {"It’s “fine” — €20, isn’t it?", "Ça va? Très bien, merci. À bientôt!"}},
      {"pl-windows-1250.srt", "windows-1250",
       {"Zażółć gęślą jaźń. Dziękuję bardzo, do zobaczenia jutro.", "Příliš žluťoučký kůň úpěl ďábelské ódy."}},
      {"ru-windows-1251.srt", "windows-1251", {"Привет! Как дела? Я не знаю, что сказать.", "Добрий вечір, ми з України."}},
      {"ru-koi8-r.srt", "KOI8-R", {"Где мой поезд? Он уже ушёл, а я остался.", "Спасибо, до свидания!"}},
      {"el-windows-1253.srt", "windows-1253", {"Καλημέρα! Πού είναι ο σταθμός;", "Ευχαριστώ πολύ, τα λέμε αύριο."}},
      {"tr-windows-1254.srt", "windows-1254", {"Günaydın! İstasyon nerede?", "Çok teşekkür ederim, yarın görüşürüz."}},
      {"he-windows-1255.srt", "windows-1255", {"שלום! איפה התחנה?", "תודה רבה, נתראה מחר."}},
      {"ar-windows-1256.srt", "windows-1256", {"مرحبا! أين المحطة؟", "شكرا جزيلا، أراك غدا."}},
      {"lt-windows-1257.srt", "windows-1257",
       {"Labas rytas! Kur yra stotis? Ačiū labai.", "Sveiki! Kur ir stacija? Paldies, līdz rītam."}},
      {"th-windows-874.srt", "windows-874", {"สวัสดีครับ สถานีรถไฟอยู่ที่ไหน", "ขอบคุณมากครับ แล้วพบกันใหม่พรุ่งนี้"}},
      {"ja-shift-jis.srt", "Shift_JIS", {"こんにちは！駅はどこですか？", "ありがとうございます。また明日会いましょう。"}},
      {"ja-euc-jp.srt", "EUC-JP", {"こんにちは！駅はどこですか？", "ありがとうございます。また明日会いましょう。"}},
      {"ko-cp949.srt", "CP949", {"안녕하세요! 역이 어디에 있어요?", "정말 감사합니다. 똠방각하, 내일 봐요."}},
      {"zh-big5.srt", "Big5", {"這是第一句。下一站：終點站。", "請帶好隨身物品，謝謝您的搭乘。"}},
      {"zh-gb18030.srt", "GB18030", {"这是第一句。下一站：终点站。", "请带好随身物品，谢谢您的乘坐。"}},
      {"ru-utf-16le-bom.srt", "UTF-16LE", {"Привет! Как дела?", "Спасибо, до свидания!"}},
      {"zh-utf-16be-bom.srt", "UTF-16BE", {"這是第一句。", "下一站：終點站。"}},
      {"ja-utf-32le-bom.srt", "UTF-32LE", {"こんにちは！", "また明日。"}},
      {"ko-utf-32be-bom.srt", "UTF-32BE", {"안녕하세요!", "내일 봐요."}},
      {"ru-utf-16le.srt", "UTF-16LE", {"Привет! Как дела?", "Спасибо, до свидания!"}},
      {"zh-utf-16be.srt", "UTF-16BE", {"这是第一句。", "下一站：终点站。"}},
      {"ja-utf-16le.srt", "UTF-16LE", {"こんにちは！駅はどこですか？", "ありがとうございます。"}},
      {"el-utf-16be.srt", "UTF-16BE", {"Καλημέρα!", "Ευχαριστώ πολύ."}},
  };
  for (const Case& c : cases) {
    const auto file = fileOf(std::string("encodings/") + c.file);
    EXPECT_EQ(file.encoding, c.encoding) << c.file;
    EXPECT_EQ(textsOf(file), c.lines) << c.file;
    ASSERT_EQ(file.cues.size(), 2u) << c.file;
    EXPECT_EQ(file.cues[1].start, 3.0) << c.file;
  }
  // Scripts take the same road: a Big5 one with its override and line break.
  const auto script = fileOf("encodings/zh-big5.ass");
  EXPECT_EQ(script.encoding, "Big5");
  EXPECT_THAT(textsOf(script), ElementsAre("這是第一句，對嗎？", "下一站：終點站\n請帶好隨身物品，謝謝您的搭乘。"));
}

std::string decoded(std::string bytes, const encoding::Preference& preference = {}) {
  auto d = encoding::decode(std::move(bytes), preference);
  return d ? d->name + ":" + d->text : "none";
}

TEST(Encodings, TheOrderOfTheDecisions) {
  using P = encoding::Preference;
  const std::string cp1251 = "\xCF\xF0\xE8\xE2\xE5\xF2";  // Привет
  // A mark decides, and is not text; a mark whose text does not follow
  // decides nothing.
  EXPECT_EQ(decoded(std::string("\xFF\xFE" "A\0", 4)), "UTF-16LE:A");
  EXPECT_EQ(decoded(std::string("\xFF\xFE\0\0" "A\0\0\0", 8)), "UTF-32LE:A");
  EXPECT_EQ(decoded(std::string("\0\0\xFE\xFF\0\0\0A", 8)), "UTF-32BE:A");
  EXPECT_EQ(decoded("\xEF\xBB\xBF" "A"), "UTF-8:A");
  EXPECT_EQ(decoded("\xFE\xFF" "\xD8\x00"), "windows-1252:þÿØ\u0000");  // a lone surrogate is no UTF-16
  // Valid UTF-8 stays UTF-8 whatever the user prefers for unsure guesses.
  EXPECT_EQ(decoded("Привет", P{"", "windows-1251"}), "UTF-8:Привет");
  // The file's own choice comes first, when it reads; otherwise it is as
  // if there were none.
  EXPECT_EQ(decoded("\xFF\xFE" "A\0", P{"windows-1252", ""}), "windows-1252:ÿþA\u0000");
  EXPECT_EQ(decoded("caf\xC3\xA9", P{"windows-1251", ""}), "windows-1251:cafГ©");
  EXPECT_EQ(decoded("\x82\xA0", P{"EUC-JP", ""}), decoded("\x82\xA0"));  // no EUC-JP pair starts with 0x82
  EXPECT_EQ(decoded("caf\xE9", P{"UTF-8", ""}), decoded("caf\xE9"));
  // Names are ours in any case, or the common other names.
  EXPECT_EQ(decoded(cp1251, P{"CP1251", ""}), "windows-1251:Привет");
  EXPECT_EQ(decoded(cp1251, P{"WINDOWS-1251", ""}), "windows-1251:Привет");
  EXPECT_EQ(decoded(cp1251, P{"no-such-encoding", ""}), decoded(cp1251));
  // Six foreign bytes are too few to trust the detector with: the user's
  // preferred encoding goes first. Plenty of them, and the detector wins.
  EXPECT_EQ(decoded(cp1251, P{"", "windows-1251"}), "windows-1251:Привет");
  const auto russian = fileOf("encodings/ru-windows-1251.srt", P{"", "windows-1253"});
  EXPECT_EQ(russian.encoding, "windows-1251");
  // At the end of the road ISO 8859-1 takes what nothing else reads (0x81
  // is undefined in Windows-1252, and no lead byte in GB 18030 or Big5).
  EXPECT_EQ(decoded("ok \x81 ok"), "ISO-8859-1:ok \u0081 ok");
}

TEST(Encodings, EveryChoiceHasAConverterAndAName) {
  for (const auto& choice : encoding::choices()) {
    const auto text = encoding::decode("1\n00:00:01,000 --> 00:00:02,000\nabc\n", {std::string(choice.name), ""});
    ASSERT_TRUE(text) << choice.name;
    if (text->text.find("abc") != std::string::npos) {
      EXPECT_EQ(text->name, choice.name);
    }
    EXPECT_FALSE(encoding::displayName(choice.name).empty());
    EXPECT_NE(choice.title.find(encoding::displayName(choice.name)), std::string_view::npos) << choice.title;
  }
  EXPECT_EQ(encoding::displayName("windows-1251"), "Windows-1251");
  EXPECT_EQ(encoding::displayName("SHIFT_JIS"), "Shift-JIS");
  EXPECT_EQ(encoding::displayName("IBM866"), "IBM866");
}

// Zero bytes tell UTF-16 without a mark; eight-bit text with a stray zero
// is not mistaken for it.
TEST(Encodings, UnmarkedUtf16NeedsItsZeroBytes) {
  std::string stray = "1\n00:00:01,000 --> 00:00:02,000\nnull";
  stray += '\0';
  stray += " byte\n";
  EXPECT_EQ(decoded(stray).substr(0, 6), "UTF-8:");
  EXPECT_EQ(decoded(std::string("A\0B", 3)), "UTF-8:" + std::string("A\0B", 3));  // too short to tell
}

}  // namespace
}  // namespace lumerix
