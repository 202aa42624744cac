#include "subtitles/SRTParser.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <system_error>
#include <thread>

#include "subtitles/AssReader.h"
#include "subtitles/Markup.h"
#include "util/Files.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

using unicode::isPatternSpace;

// Digits in the timing pattern are ASCII digits only. A non-ASCII decimal
// digit therefore makes a line fail to match (and its block is skipped)
// rather than reaching the integer conversion.
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The digits at s[i], counted up to limit + 1: enough to tell a group that
// is too long, without walking all of a long run (which made a line of
// digits cost quadratic time).
std::size_t countDigits(std::string_view s, std::size_t i, std::size_t limit) {
  std::size_t k = 0;
  while (k <= limit && i + k < s.size() && isDigit(s[i + k])) ++k;
  return k;
}

int digitsValue(std::string_view s, std::size_t i, std::size_t count) {
  int v = 0;
  for (std::size_t k = 0; k < count; ++k) v = v * 10 + (s[i + k] - '0');
  return v;
}

std::size_t skipPatternSpace(std::string_view s, std::size_t i) {
  while (i < s.size()) {
    std::size_t k = i;
    if (!isPatternSpace(unicode::next(s, k))) break;
    i = k;
  }
  return i;
}

struct ClockFields {
  int hours, minutes, seconds, fraction;

  // Integer seconds first, then the fraction as thousandths whatever its
  // written length: ",5" is 5 ms, not 500 ms. Files in the wild rely on this.
  double value() const { return static_cast<double>(hours * 3600 + minutes * 60 + seconds) + fraction / 1000.0; }
};

// Reads one side of a timing range at s[i]:  (?:(\d{1,2}):)?(\d{2}):(\d{2})[,.](\d{1,3})
// `lastOnLine` tells whether the pattern ends after this side. Where more
// pattern follows, every element after a digit group refuses digits, so
// backtracking can never succeed with fewer digits than are present: a run
// longer than the group allows fails the whole side. At the very end the
// fraction simply takes up to three digits. With and without hours cannot
// both succeed at one position (after "dd:dd" comes either ':' or [,.]), so
// trying hours first and then none is all the backtracking there is.
std::optional<ClockFields> readClock(std::string_view s, std::size_t& i, bool lastOnLine) {
  ClockFields f{};
  std::size_t at = i;
  const std::size_t lead = countDigits(s, at, 2);
  if (lead < 1 || lead > 2 || at + lead >= s.size() || s[at + lead] != ':') return std::nullopt;
  at += lead + 1;
  if (countDigits(s, at, 2) != 2 || at + 2 >= s.size()) return std::nullopt;
  const int first = digitsValue(s, at - lead - 1, lead), second = digitsValue(s, at, 2);
  if (s[at + 2] == ':') {  // hours, minutes, then the seconds
    f.hours = first;
    f.minutes = second;
    at += 3;
    if (countDigits(s, at, 2) != 2 || at + 2 >= s.size() || (s[at + 2] != ',' && s[at + 2] != '.')) return std::nullopt;
    f.seconds = digitsValue(s, at, 2);
  } else if (lead == 2 && (s[at + 2] == ',' || s[at + 2] == '.')) {  // no hours
    f.minutes = first;
    f.seconds = second;
  } else {
    return std::nullopt;
  }
  at += 3;
  std::size_t n = countDigits(s, at, 3);
  if (n < 1 || (!lastOnLine && n > 3)) return std::nullopt;
  n = std::min<std::size_t>(n, 3);
  f.fraction = digitsValue(s, at, n);
  i = at + n;
  return f;
}

struct Timing {
  double start, end;
};

// Leftmost match of
//   (?:(\d{1,2}):)?(\d{2}):(\d{2})[,.](\d{1,3})\s*-->\s*(?:(\d{1,2}):)?(\d{2}):(\d{2})[,.](\d{1,3})
// (missing hours read as 0) anywhere in the line, with \s meaning [\t\n\f\r\p{Z}]. Each \s* is followed
// by something that is not white space, so only its longest run can lead to
// a match; together with readClock's rule, a match at a given start is
// unique and no general backtracking is needed.
std::optional<Timing> findTiming(std::string_view line) {
  if (line.find("-->") == std::string_view::npos) return std::nullopt;
  for (std::size_t p = 0; p < line.size(); ++p) {
    if (!isDigit(line[p])) continue;
    // Hours take one or two digits, hourless minutes two: in a longer run
    // only its last two positions can start a match, so the rest of the run
    // is skipped.
    std::size_t runEnd = p;
    while (runEnd < line.size() && isDigit(line[runEnd])) ++runEnd;
    for (std::size_t from = std::max(p, runEnd >= 2 ? runEnd - 2 : 0); from < runEnd; ++from) {
      std::size_t i = from;
      auto start = readClock(line, i, false);
      if (!start) continue;
      i = skipPatternSpace(line, i);
      if (line.compare(i, 3, "-->") != 0) continue;
      i = skipPatternSpace(line, i + 3);
      auto end = readClock(line, i, true);
      if (!end) continue;
      return Timing{start->value(), end->value()};
    }
    p = runEnd;
  }
  return std::nullopt;
}

bool isBlank(std::string_view line) {
  return unicode::all(line, unicode::isWhitespace);
}

// "\r\n" and lone "\r" become "\n".
std::string normaliseLineEnds(std::string text) {
  if (text.find('\r') == std::string::npos) return text;
  std::size_t w = 0;
  for (std::size_t r = 0; r < text.size(); ++r) {
    if (text[r] == '\r') {
      text[w++] = '\n';
      if (r + 1 < text.size() && text[r + 1] == '\n') ++r;
    } else {
      text[w++] = text[r];
    }
  }
  text.resize(w);
  return text;
}

// Cuts text into blocks at every match of `\n\s*\n` (greedy, so a match runs
// to the last line feed of its white-space run). Collapsing each match to
// "\n\n" and splitting there gives the same blocks, without the copy.
template <class Fn>
void forEachBlock(std::string_view text, Fn&& fn) {
  std::size_t blockStart = 0;
  std::size_t i = 0;
  while ((i = text.find('\n', i)) != std::string_view::npos) {
    std::size_t j = i + 1;
    std::size_t lastFeed = std::string_view::npos;
    while (j < text.size()) {
      std::size_t k = j;
      const char32_t cp = unicode::next(text, k);
      if (!isPatternSpace(cp)) break;
      if (cp == '\n') lastFeed = j;
      j = k;
    }
    if (lastFeed == std::string_view::npos) {
      ++i;
      continue;
    }
    fn(text.substr(blockStart, i - blockStart));
    blockStart = lastFeed + 1;
    i = lastFeed + 1;
  }
  fn(text.substr(blockStart));
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The character a reference at s[i] ('&') stands for, and the index after
// its ';'. Web captions write "&amp;" and "&#233;" where a SubRip file
// would write the character itself.
std::optional<std::pair<char32_t, std::size_t>> characterReference(std::string_view s, std::size_t i) {
  static constexpr std::pair<std::string_view, char32_t> named[] = {
      {"&amp;", U'&'},       {"&lt;", U'<'},        {"&gt;", U'>'},
      {"&nbsp;", U'\u00A0'}, {"&lrm;", U'\u200E'}, {"&rlm;", U'\u200F'},
  };
  for (const auto& [name, cp] : named) {
    if (s.compare(i, name.size(), name) == 0) return std::pair{cp, i + name.size()};
  }
  if (s.compare(i, 2, "&#") != 0) return std::nullopt;
  std::size_t k = i + 2;
  const bool hex = k < s.size() && (s[k] == 'x' || s[k] == 'X');
  if (hex) ++k;
  const std::size_t first = k;
  std::uint32_t value = 0;
  for (; k < s.size(); ++k) {
    const char c = s[k];
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (hex && c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (hex && c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      break;
    }
    // Saturates past the last code point, so a long run cannot wrap round
    // to a real character.
    value = std::min<std::uint32_t>(value * (hex ? 16 : 10) + static_cast<std::uint32_t>(digit), 0x110000);
  }
  if (k == first || k >= s.size() || s[k] != ';') return std::nullopt;
  const bool scalar = value < 0x110000 && !(value >= 0xD800 && value <= 0xDFFF);
  return std::pair{scalar ? static_cast<char32_t>(value) : U'\uFFFD', k + 1};
}

// One pass, left to right: what a reference gives is never read again, so
// "&amp;lt;" is "&lt;" and a decoded '<' can never start a tag.
void decodeCharacterReferences(std::string& text) {
  std::size_t amp = text.find('&');
  if (amp == std::string::npos) return;
  std::string out(text, 0, amp);
  std::size_t i = amp;
  while (i < text.size()) {
    if (text[i] == '&') {
      if (const auto ref = characterReference(text, i)) {
        appendUtf8(out, ref->first);
        i = ref->second;
        continue;
      }
    }
    const std::size_t next = text.find('&', i + 1);
    const std::size_t to = next == std::string::npos ? text.size() : next;
    out.append(text, i, to - i);
    i = to;
  }
  text = std::move(out);
}

// The lines after the timing line (the rest of its block): the ones that
// are not blank, joined, trimmed, tags removed; in WebVTT, character
// references decoded last.
std::string cueText(std::string_view rest, bool webVtt) {
  // Only the last line of a block can be blank (a blank line anywhere else
  // would have ended the block), and trimming takes it: the text is the
  // rest as it stands.
  std::string text(unicode::trim(rest, unicode::isWhitespaceOrLineEnd));
  if (text.find('<') != std::string::npos) markup::removeHtmlTags(text);
  if (text.find('{') != std::string::npos) markup::removeOverrideBlocks(text);
  if (webVtt) decodeCharacterReferences(text);
  return text;
}

// Ordered by start, ties in file order, from cues read in file order in
// one or more parts. Most files are in order already. Otherwise (a season of
// episodes in one file) the starts, which the reader makes from whole
// milliseconds, sort as whole milliseconds: a stable radix sort of small
// keys, then each cue moved once.
std::vector<Cue> sortedByStart(std::vector<std::vector<Cue>> parts) {
  std::size_t total = 0;
  bool ordered = true;
  const Cue* previous = nullptr;
  for (const auto& part : parts) {
    total += part.size();
    for (const Cue& cue : part) {
      ordered = ordered && (!previous || !(cue.start < previous->start));
      previous = &cue;
    }
  }
  if (ordered && parts.size() == 1) return std::move(parts.front());
  std::vector<Cue*> cues;
  cues.reserve(total);
  for (auto& part : parts) {
    for (Cue& cue : part) cues.push_back(&cue);
  }
  if (!ordered) {
    // At most 99:99:99,999: 29 bits of milliseconds. Three passes of 10
    // bits; each keeps equal keys in their order, so ties stay in file order.
    struct Key {
      std::uint32_t ms;
      std::uint32_t index;
    };
    std::vector<Key> keys(total), buffer(total);
    for (std::size_t i = 0; i < total; ++i) {
      keys[i] = {static_cast<std::uint32_t>(std::llround(cues[i]->start * 1000)), static_cast<std::uint32_t>(i)};
    }
    for (int shift = 0; shift < 30; shift += 10) {
      std::size_t count[1025] = {};
      for (const Key& k : keys) ++count[((k.ms >> shift) & 1023) + 1];
      for (std::size_t d = 1; d < 1025; ++d) count[d] += count[d - 1];
      for (const Key& k : keys) buffer[count[(k.ms >> shift) & 1023]++] = k;
      keys.swap(buffer);
    }
    std::vector<Cue*> order(total);
    for (std::size_t i = 0; i < total; ++i) order[i] = cues[keys[i].index];
    cues.swap(order);
  }
  std::vector<Cue> sorted;
  sorted.reserve(total);
  adviseLargePages(sorted.data(), total * sizeof(Cue));
  for (Cue* cue : cues) sorted.push_back(std::move(*cue));
  return sorted;
}

// The cues of the blocks of text, in file order.
void appendCues(std::string_view text, bool webVtt, std::vector<Cue>& cues) {
  // No cue is shorter than about 27 bytes; room for that many costs
  // address space only, and spares the list its regrowing.
  cues.reserve(cues.size() + text.size() / 27 + 1);
  adviseLargePages(cues.data(), cues.capacity() * sizeof(Cue));
  forEachBlock(text, [&](std::string_view block) {
    // The first line with a timing range makes the block a cue; the lines
    // after it are its text.
    for (std::size_t b = 0; b <= block.size();) {
      std::size_t e = block.find('\n', b);
      if (e == std::string_view::npos) e = block.size();
      const std::string_view line = block.substr(b, e - b);
      b = e + 1;
      if (isBlank(line)) continue;
      const auto timing = findTiming(line);
      if (!timing) continue;
      std::string body = cueText(b < block.size() ? block.substr(b) : std::string_view(), webVtt);
      if (!body.empty()) cues.push_back(Cue{timing->start, timing->end, std::move(body)});
      return;
    }
  });
}

// A place near `from` where a block ends for certain, whatever came before:
// a line feed after a character that is not white space (so no earlier
// blank run reaches it) that starts a blank run. Returns the end of the
// block before the run and the start of the block after it; absent when
// there is no such place after `from`.
std::optional<std::pair<std::size_t, std::size_t>> blockBoundaryAfter(std::string_view text, std::size_t from) {
  for (std::size_t i = text.find('\n', from); i != std::string_view::npos; i = text.find('\n', i + 1)) {
    if (i == 0) continue;
    const auto before = static_cast<unsigned char>(text[i - 1]);
    if (before >= 0x80 || isPatternSpace(before)) continue;
    std::size_t lastFeed = std::string_view::npos;
    for (std::size_t j = i + 1; j < text.size();) {
      std::size_t k = j;
      const char32_t cp = unicode::next(text, k);
      if (!isPatternSpace(cp)) break;
      if (cp == '\n') lastFeed = j;
      j = k;
    }
    if (lastFeed != std::string_view::npos) return std::pair{i, lastFeed + 1};
  }
  return std::nullopt;
}

}  // namespace

std::vector<Cue> SRTParser::parseDecoded(std::string_view text, std::size_t splitAbove) {
  if (ass::isScript(text)) return ass::readScript(text, splitAbove);
  // SubRip text is shown as written; only WebVTT escapes its ampersands.
  const bool webVtt = text.starts_with("WEBVTT");
  // A whole season in one file: read its two halves side by side. Both end
  // at a block boundary, so the cues and their order are what one pass
  // would give.
  const auto cut = text.size() > splitAbove ? blockBoundaryAfter(text, text.size() / 2) : std::nullopt;
  if (cut) {
    std::vector<std::vector<Cue>> halves(2);
    std::exception_ptr failed;  // an exception must not end the thread: it would end the process
    try {
      std::thread second([&] {
        try {
          appendCues(text.substr(cut->second), webVtt, halves[1]);
        } catch (...) {
          failed = std::current_exception();
        }
      });
      try {
        appendCues(text.substr(0, cut->first), webVtt, halves[0]);
      } catch (...) {
        second.join();
        throw;
      }
      second.join();
      if (failed) std::rethrow_exception(failed);
      return sortedByStart(std::move(halves));
    } catch (const std::system_error&) {
      // no thread to be had: one pass it is
    }
  }
  std::vector<std::vector<Cue>> whole(1);
  appendCues(text, webVtt, whole[0]);
  return sortedByStart(std::move(whole));
}

std::string_view describe(SRTParseError error) {
  switch (error) {
    case SRTParseError::unreadable:
      return "Cannot read subtitle file (unsupported encoding)";
  }
  return {};
}

std::string describe(const SubtitleReadError& error) {
  if (const auto* file = std::get_if<FileReadError>(&error)) return file->description;
  return std::string(describe(std::get<SRTParseError>(error)));
}

Result<SubtitleFile, SRTParseError> SRTParser::readBytes(std::string bytes, const encoding::Preference& preference) {
  auto text = encoding::decode(std::move(bytes), preference);
  if (!text) return Result<SubtitleFile, SRTParseError>::failure(SRTParseError::unreadable);
  SubtitleFile file{parseDecoded(normaliseLineEnds(std::move(text->text))), std::move(text->name)};
  return Result<SubtitleFile, SRTParseError>::success(std::move(file));
}

Result<std::vector<Cue>, SRTParseError> SRTParser::parseBytes(std::string bytes) {
  auto file = readBytes(std::move(bytes));
  if (!file) return Result<std::vector<Cue>, SRTParseError>::failure(file.error());
  return Result<std::vector<Cue>, SRTParseError>::success(std::move(std::move(file).value().cues));
}

Result<SubtitleFile, SubtitleReadError> SRTParser::read(const std::string& path, const encoding::Preference& preference) {
  using R = Result<SubtitleFile, SubtitleReadError>;
  std::string bytes;
  if (auto problem = readRegularFile(path, bytes, maxFileBytes)) {
    return R::failure(FileReadError{problem->code, std::move(problem->description)});
  }
  auto file = readBytes(std::move(bytes), preference);
  if (!file) return R::failure(file.error());
  return R::success(std::move(file).value());
}

Result<std::vector<Cue>, SubtitleReadError> SRTParser::parse(const std::string& path) {
  using R = Result<std::vector<Cue>, SubtitleReadError>;
  auto file = read(path);
  if (!file) return R::failure(file.error());
  return R::success(std::move(std::move(file).value().cues));
}

}  // namespace lumerix
