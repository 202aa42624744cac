#include "subtitles/SRTParser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "util/Files.h"
#include "util/TextDecoding.h"
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

std::size_t countDigits(std::string_view s, std::size_t i) {
  std::size_t k = 0;
  while (i + k < s.size() && isDigit(s[i + k])) ++k;
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

// Reads one side of a timing range at s[i]:  (\d{1,2}):(\d{2}):(\d{2})[,.](\d{1,3})
// `lastOnLine` tells whether the pattern ends after this side. Where more
// pattern follows, every element after a digit group refuses digits, so
// backtracking can never succeed with fewer digits than are present: a run
// longer than the group allows fails the whole side. At the very end the
// fraction simply takes up to three digits.
std::optional<ClockFields> readClock(std::string_view s, std::size_t& i, bool lastOnLine) {
  ClockFields f{};
  std::size_t n = countDigits(s, i);
  if (n < 1 || n > 2 || i + n >= s.size() || s[i + n] != ':') return std::nullopt;
  f.hours = digitsValue(s, i, n);
  i += n + 1;
  if (countDigits(s, i) != 2 || i + 2 >= s.size() || s[i + 2] != ':') return std::nullopt;
  f.minutes = digitsValue(s, i, 2);
  i += 3;
  if (countDigits(s, i) != 2 || i + 2 >= s.size() || (s[i + 2] != ',' && s[i + 2] != '.')) return std::nullopt;
  f.seconds = digitsValue(s, i, 2);
  i += 3;
  n = countDigits(s, i);
  if (n < 1 || (!lastOnLine && n > 3)) return std::nullopt;
  n = std::min<std::size_t>(n, 3);
  f.fraction = digitsValue(s, i, n);
  i += n;
  return f;
}

struct Timing {
  double start, end;
};

// Leftmost match of
//   (\d{1,2}):(\d{2}):(\d{2})[,.](\d{1,3})\s*-->\s*(\d{1,2}):(\d{2}):(\d{2})[,.](\d{1,3})
// anywhere in the line, with \s meaning [\t\n\f\r\p{Z}]. Each \s* is followed
// by something that is not white space, so only its longest run can lead to
// a match; together with readClock's rule, a match at a given start is
// unique and no general backtracking is needed.
std::optional<Timing> findTiming(std::string_view line) {
  if (line.find("-->") == std::string_view::npos) return std::nullopt;
  for (std::size_t p = 0; p < line.size(); ++p) {
    if (!isDigit(line[p])) continue;
    std::size_t i = p;
    auto start = readClock(line, i, false);
    if (!start) continue;
    i = skipPatternSpace(line, i);
    if (line.compare(i, 3, "-->") != 0) continue;
    i = skipPatternSpace(line, i + 3);
    auto end = readClock(line, i, true);
    if (!end) continue;
    return Timing{start->value(), end->value()};
  }
  return std::nullopt;
}

// Removes every match of `<[^>]+>`, left to right, in one pass.
std::string removeHtmlTags(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  for (;;) {
    const std::size_t lt = s.find('<', i);
    if (lt == std::string_view::npos) break;
    const std::size_t gt = s.find('>', lt + 1);
    if (gt == std::string_view::npos) break;  // no later '<' can close either
    if (gt == lt + 1) {                       // "<>" is text, not a tag
      out.append(s.substr(i, gt - i));
      i = gt;
      continue;
    }
    out.append(s.substr(i, lt - i));
    i = gt + 1;
  }
  out.append(s.substr(i));
  return out;
}

// Removes every match of `\{[^}]*\}` (ASS override blocks such as {\an8}).
std::string removeAssTags(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  std::size_t i = 0;
  for (;;) {
    const std::size_t open = s.find('{', i);
    if (open == std::string_view::npos) break;
    const std::size_t close = s.find('}', open + 1);
    if (close == std::string_view::npos) break;
    out.append(s.substr(i, open - i));
    i = close + 1;
  }
  out.append(s.substr(i));
  return out;
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

// The lines after the timing line: joined, trimmed, tags removed.
std::string cueText(std::span<const std::string_view> lines) {
  std::string text;
  for (std::size_t k = 0; k < lines.size(); ++k) {
    if (k) text += '\n';
    text.append(lines[k]);
  }
  const std::string_view trimmed = unicode::trim(text, unicode::isWhitespaceOrLineEnd);
  const std::size_t from = static_cast<std::size_t>(trimmed.data() - text.data());
  text.erase(from + trimmed.size()).erase(0, from);
  if (text.find('<') != std::string::npos) text = removeHtmlTags(text);
  if (text.find('{') != std::string::npos) text = removeAssTags(text);
  return text;
}

std::vector<Cue> parseText(std::string_view text) {
  std::vector<Cue> cues;
  std::vector<std::string_view> kept;
  forEachBlock(text, [&](std::string_view block) {
    kept.clear();
    for (std::size_t b = 0; b <= block.size();) {
      std::size_t e = block.find('\n', b);
      if (e == std::string_view::npos) e = block.size();
      std::string_view line = block.substr(b, e - b);
      if (!unicode::all(line, unicode::isWhitespace)) kept.push_back(line);
      b = e + 1;
    }
    for (std::size_t k = 0; k < kept.size(); ++k) {
      auto timing = findTiming(kept[k]);
      if (!timing) continue;
      std::string body = cueText(std::span(kept).subspan(k + 1));
      if (!body.empty()) cues.push_back(Cue{timing->start, timing->end, std::move(body)});
      return;
    }
  });
  std::stable_sort(cues.begin(), cues.end(), [](const Cue& a, const Cue& b) { return a.start < b.start; });
  return cues;
}

}  // namespace

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

std::optional<std::string> SRTParser::decode(std::string bytes) {
  if (unicode::isValidUtf8(bytes)) {
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.erase(0, 3);
    return bytes;
  }
  for (const char* encoding : {"GB18030", "BIG5", "ISO-8859-1"}) {
    if (auto text = convertToUtf8(bytes, encoding)) return text;
  }
  return std::nullopt;
}

Result<std::vector<Cue>, SRTParseError> SRTParser::parseBytes(std::string bytes) {
  auto text = decode(std::move(bytes));
  if (!text) return Result<std::vector<Cue>, SRTParseError>::failure(SRTParseError::unreadable);
  return Result<std::vector<Cue>, SRTParseError>::success(parseText(normaliseLineEnds(std::move(*text))));
}

Result<std::vector<Cue>, SubtitleReadError> SRTParser::parse(const std::string& path) {
  using R = Result<std::vector<Cue>, SubtitleReadError>;
  std::string bytes;
  if (!readWholeFile(path, bytes)) {
    const int code = errno;
    return R::failure(FileReadError{code, std::strerror(code)});
  }
  auto cues = parseBytes(std::move(bytes));
  if (!cues) return R::failure(cues.error());
  return R::success(std::move(cues).value());
}

}  // namespace lumerix
