#include "subtitles/Encodings.h"

#include <uchardet/uchardet.h>

#include <algorithm>
#include <system_error>
#include <thread>

#include "util/TextDecoding.h"
#include "util/Unicode.h"

namespace lumerix::encoding {

namespace {

constexpr Choice kChoices[] = {
    {"UTF-8", "Unicode (UTF-8)"},
    {"UTF-16LE", "Unicode (UTF-16 LE)"},
    {"UTF-16BE", "Unicode (UTF-16 BE)"},
    {"windows-1252", "Western (Windows-1252)"},
    {"windows-1250", "Central European (Windows-1250)"},
    {"windows-1257", "Baltic (Windows-1257)"},
    {"windows-1251", "Cyrillic (Windows-1251)"},
    {"KOI8-R", "Cyrillic (KOI8-R)"},
    {"KOI8-U", "Cyrillic (KOI8-U)"},
    {"windows-1253", "Greek (Windows-1253)"},
    {"windows-1254", "Turkish (Windows-1254)"},
    {"windows-1255", "Hebrew (Windows-1255)"},
    {"windows-1256", "Arabic (Windows-1256)"},
    {"windows-874", "Thai (Windows-874)"},
    {"windows-1258", "Vietnamese (Windows-1258)"},
    {"GB18030", "Chinese Simplified (GB 18030)"},
    {"Big5", "Chinese Traditional (Big5)"},
    {"Shift_JIS", "Japanese (Shift-JIS)"},
    {"EUC-JP", "Japanese (EUC-JP)"},
    {"CP949", "Korean (CP949)"},
};

// What each of our names is read with, best first, and how it is shown.
// Windows files are what the wild is full of: Shift-JIS and Korean are
// read by their Windows supersets, which add the characters Windows tools
// write, and Big5 falls back to Windows' own variant.
struct Reading {
  std::string_view name;
  std::string_view shown;
  std::string_view converters[2];
};
constexpr Reading kReadings[] = {
    {"UTF-8", "UTF-8", {}},
    {"UTF-16LE", "UTF-16 LE", {"UTF-16LE"}},
    {"UTF-16BE", "UTF-16 BE", {"UTF-16BE"}},
    {"UTF-32LE", "UTF-32 LE", {"UTF-32LE"}},
    {"UTF-32BE", "UTF-32 BE", {"UTF-32BE"}},
    {"windows-1250", "Windows-1250", {"WINDOWS-1250"}},
    {"windows-1251", "Windows-1251", {"WINDOWS-1251"}},
    {"windows-1252", "Windows-1252", {"WINDOWS-1252"}},
    {"windows-1253", "Windows-1253", {"WINDOWS-1253"}},
    {"windows-1254", "Windows-1254", {"WINDOWS-1254"}},
    {"windows-1255", "Windows-1255", {"WINDOWS-1255"}},
    {"windows-1256", "Windows-1256", {"WINDOWS-1256"}},
    {"windows-1257", "Windows-1257", {"WINDOWS-1257"}},
    {"windows-1258", "Windows-1258", {"WINDOWS-1258"}},
    {"windows-874", "Windows-874", {"CP874"}},
    {"KOI8-R", "KOI8-R", {"KOI8-R"}},
    {"KOI8-U", "KOI8-U", {"KOI8-U"}},
    {"GB18030", "GB 18030", {"GB18030"}},
    {"Big5", "Big5", {"BIG5", "CP950"}},
    {"Shift_JIS", "Shift-JIS", {"CP932", "SHIFT_JIS"}},
    {"EUC-JP", "EUC-JP", {"EUC-JP"}},
    {"CP949", "CP949", {"CP949"}},
    {"ISO-8859-1", "ISO 8859-1", {"ISO-8859-1"}},
};

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return lowerAscii(x) == lowerAscii(y);
         });
}

const Reading* readingOf(std::string_view name) {
  for (const Reading& r : kReadings) {
    if (sameName(r.name, name)) return &r;
  }
  return nullptr;
}

// Our name for an encoding named in any case, or by another of its names.
std::string nameOf(std::string_view name) {
  static constexpr std::pair<std::string_view, std::string_view> aliases[] = {
      {"UTF8", "UTF-8"},        {"CP1250", "windows-1250"}, {"CP1251", "windows-1251"}, {"CP1252", "windows-1252"},
      {"CP1253", "windows-1253"}, {"CP1254", "windows-1254"}, {"CP1255", "windows-1255"}, {"CP1256", "windows-1256"},
      {"CP1257", "windows-1257"}, {"CP1258", "windows-1258"}, {"CP874", "windows-874"},   {"SHIFT-JIS", "Shift_JIS"},
      {"SJIS", "Shift_JIS"},    {"CP932", "Shift_JIS"},     {"EUC-KR", "CP949"},         {"UHC", "CP949"},
      {"BIG-5", "Big5"},        {"CP950", "Big5"},          {"GB2312", "GB18030"},       {"GBK", "GB18030"},
      {"LATIN1", "ISO-8859-1"},
  };
  if (const Reading* r = readingOf(name)) return std::string(r->name);
  for (const auto& [alias, ours] : aliases) {
    if (sameName(alias, name)) return std::string(ours);
  }
  return std::string(name);
}

bool hasC1Bytes(std::string_view bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](char c) {
    const auto b = static_cast<unsigned char>(c);
    return b >= 0x80 && b <= 0x9F;
  });
}

// The text in the named encoding, all or nothing; names we do not know go
// to iconv as they are.
std::optional<std::string> convert(std::string_view bytes, std::string_view name) {
  const Reading* r = readingOf(name);
  if (r && r->name == "UTF-8") {
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    if (!unicode::isValidUtf8(bytes)) return std::nullopt;
    return std::string(bytes);
  }
  if (!r) return convertToUtf8(bytes, std::string(name).c_str());
  // A mark that agrees with the encoding is not text.
  if (r->name == "UTF-16LE" && bytes.starts_with("\xFF\xFE") && !bytes.starts_with(std::string_view("\xFF\xFE\0\0", 4))) {
    bytes.remove_prefix(2);
  } else if (r->name == "UTF-16BE" && bytes.starts_with("\xFE\xFF")) {
    bytes.remove_prefix(2);
  } else if (r->name == "UTF-32LE" && bytes.starts_with(std::string_view("\xFF\xFE\0\0", 4))) {
    bytes.remove_prefix(4);
  } else if (r->name == "UTF-32BE" && bytes.starts_with(std::string_view("\0\0\xFE\xFF", 4))) {
    bytes.remove_prefix(4);
  }
  for (std::string_view converter : r->converters) {
    if (converter.empty()) break;
    if (auto text = convertToUtf8(bytes, std::string(converter).c_str())) return text;
  }
  return std::nullopt;
}

// The encoding a byte-order mark names, if the bytes begin with one.
std::optional<std::string_view> markedEncoding(std::string_view bytes) {
  if (bytes.starts_with(std::string_view("\xFF\xFE\0\0", 4))) return "UTF-32LE";
  if (bytes.starts_with(std::string_view("\0\0\xFE\xFF", 4))) return "UTF-32BE";
  if (bytes.starts_with("\xEF\xBB\xBF")) return "UTF-8";
  if (bytes.starts_with("\xFF\xFE")) return "UTF-16LE";
  if (bytes.starts_with("\xFE\xFF")) return "UTF-16BE";
  return std::nullopt;
}

// UTF-16 without a mark: subtitles are full of ASCII (numbers, times,
// punctuation), which UTF-16 writes with a zero byte on one side. At least
// a quarter of the first characters with a zero high byte, and hardly any
// with a zero low byte, is UTF-16; eight-bit text has no zero bytes at all.
std::optional<std::string_view> unmarkedUtf16(std::string_view bytes) {
  const std::size_t n = std::min<std::size_t>(bytes.size(), 4096) & ~std::size_t{1};
  if (n < 4) return std::nullopt;
  std::size_t zeroEven = 0, zeroOdd = 0;
  for (std::size_t i = 0; i < n; i += 2) {
    zeroEven += bytes[i] == '\0';
    zeroOdd += bytes[i + 1] == '\0';
  }
  const std::size_t pairs = n / 2;
  if (zeroOdd * 4 >= pairs && zeroEven * 8 <= zeroOdd) return "UTF-16LE";
  if (zeroEven * 4 >= pairs && zeroOdd * 8 <= zeroEven) return "UTF-16BE";
  return std::nullopt;
}

// What the detector's names are read as. Files that call themselves ISO
// 8859 are nearly always written by Windows tools, whose code pages agree
// on the letters (or, for Central European and Greek, are what such files
// really are) and add the quotes, dashes and euro sign in 0x80-0x9F.
std::string fromDetector(std::string_view detected, std::string_view bytes) {
  static constexpr std::pair<std::string_view, std::string_view> windowsOf[] = {
      {"ISO-8859-1", "windows-1252"},  {"ISO-8859-2", "windows-1250"}, {"ISO-8859-7", "windows-1253"},
      {"ISO-8859-8", "windows-1255"},  {"ISO-8859-9", "windows-1254"}, {"ISO-8859-13", "windows-1257"},
      {"TIS-620", "windows-874"},      {"ISO-8859-11", "windows-874"},
  };
  for (const auto& [iso, windows] : windowsOf) {
    if (sameName(iso, detected)) return std::string(windows);
  }
  if (sameName(detected, "ISO-8859-15") && hasC1Bytes(bytes)) return "windows-1252";
  return nameOf(detected);
}

struct Guess {
  std::string name;  // empty: no answer
  bool unsure = true;
};

// Enough text to tell an encoding by: a few hundred subtitle lines.
constexpr std::size_t kSample = 256 << 10;
// Fewer bytes outside ASCII than this are too little to go on: the
// detector's answer then yields to the user's preferred encoding.
constexpr std::size_t kEnoughForeignBytes = 32;

Guess detect(std::string_view bytes) {
  struct Detector {
    uchardet_t handle = uchardet_new();
    ~Detector() {
      if (handle) uchardet_delete(handle);
    }
  };
  Guess guess;
  auto run = [&](std::string_view sample) -> std::string {
    Detector d;
    if (!d.handle) return {};
    if (uchardet_handle_data(d.handle, sample.data(), sample.size()) != 0) return {};
    uchardet_data_end(d.handle);
    const char* answer = uchardet_get_charset(d.handle);
    return answer && *answer && !sameName(answer, "ASCII") ? std::string(answer) : std::string();
  };
  std::string_view sample = bytes.substr(0, kSample);
  std::string answer = run(sample);
  if (answer.empty() && sample.size() < bytes.size()) {
    sample = bytes;  // the foreign text comes later
    answer = run(sample);
  }
  const auto foreign = static_cast<std::size_t>(
      std::count_if(sample.begin(), sample.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }));
  if (!answer.empty()) guess.name = fromDetector(answer, sample);
  guess.unsure = guess.name.empty() || foreign < kEnoughForeignBytes;
  return guess;
}

// UTF-8 checked in two halves at once when there is a lot of it; the cut
// falls on an ASCII byte, so no sequence spans it.
bool isValidUtf8Quickly(std::string_view bytes) {
  std::size_t cut = bytes.size() / 2;
  while (cut < bytes.size() && static_cast<unsigned char>(bytes[cut]) >= 0x80) ++cut;
  if (bytes.size() < (8 << 20) || cut == bytes.size()) return unicode::isValidUtf8(bytes);
  bool secondValid = false;
  try {
    std::thread second([&] { secondValid = unicode::isValidUtf8(bytes.substr(cut)); });
    const bool firstValid = unicode::isValidUtf8(bytes.substr(0, cut));
    second.join();
    return firstValid && secondValid;
  } catch (const std::system_error&) {
    return unicode::isValidUtf8(bytes);
  }
}

}  // namespace

std::span<const Choice> choices() {
  return kChoices;
}

std::string displayName(std::string_view name) {
  if (const Reading* r = readingOf(nameOf(name))) return std::string(r->shown);
  return std::string(name);
}

std::optional<Decoded> decode(std::string bytes, const Preference& preference) {
  auto attempt = [&](std::string_view name) -> std::optional<Decoded> {
    if (name.empty()) return std::nullopt;
    std::string ours = nameOf(name);
    if (auto text = convert(bytes, ours)) return Decoded{std::move(*text), std::move(ours)};
    return std::nullopt;
  };
  if (auto chosen = attempt(preference.chosen)) return chosen;
  const auto marked = markedEncoding(bytes);
  if (marked && *marked != "UTF-8") {
    if (auto text = attempt(*marked)) return text;
  }
  if (const auto utf16 = unmarkedUtf16(bytes)) {
    if (auto text = attempt(*utf16)) return text;
  }
  // The usual case, read in place: no copy, no detector.
  const std::size_t mark = marked == "UTF-8" ? 3 : 0;
  if (isValidUtf8Quickly(std::string_view(bytes).substr(mark))) {
    bytes.erase(0, mark);
    return Decoded{std::move(bytes), "UTF-8"};
  }
  const Guess guess = detect(bytes);
  if (guess.unsure) {
    if (auto text = attempt(preference.fallback)) return text;
  }
  if (auto text = attempt(guess.name)) return text;
  for (std::string_view name : {"GB18030", "Big5", "windows-1252", "ISO-8859-1"}) {
    if (auto text = attempt(name)) return text;
  }
  return std::nullopt;
}

}  // namespace lumerix::encoding
