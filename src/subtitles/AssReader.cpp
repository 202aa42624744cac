#include "subtitles/AssReader.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "subtitles/Markup.h"
#include "util/Files.h"
#include "util/Numbers.h"
#include "util/Unicode.h"

namespace lumerix::ass {

namespace {

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringCase(std::string_view a, std::string_view lowercase) {
  if (a.size() != lowercase.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lowerAscii(a[i]) != lowercase[i]) return false;
  }
  return true;
}

bool startsIgnoringCase(std::string_view s, std::string_view lowercase) {
  return s.size() >= lowercase.size() && equalsIgnoringCase(s.substr(0, lowercase.size()), lowercase);
}

std::string_view trimSpaces(std::string_view s) {
  return unicode::trim(s, unicode::isWhitespace);
}

std::string_view trimLeadingSpaces(std::string_view s) {
  std::size_t b = 0;
  while (b < s.size() && (s[b] == ' ' || s[b] == '\t')) ++b;
  return s.substr(b);
}

// Calls fn with each line of text whose line ends are "\n"; stops when fn
// returns false.
template <class Fn>
void forEachLine(std::string_view text, Fn&& fn) {
  for (std::size_t b = 0; b < text.size();) {
    std::size_t e = text.find('\n', b);
    if (e == std::string_view::npos) e = text.size();
    if (!fn(text.substr(b, e - b))) return;
    b = e + 1;
  }
}

std::optional<std::string_view> sectionName(std::string_view line) {
  const std::string_view t = trimSpaces(line);
  if (t.size() < 2 || t.front() != '[' || t.back() != ']') return std::nullopt;
  return t;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// H:MM:SS.f with any number of hour and fraction digits, the fraction read
// as a decimal fraction (".5" and ".500" are both half a second). The value
// is the double nearest the written decimal, so 0:00:01.23 reads as 1.23.
std::optional<double> readTime(std::string_view field) {
  // Times are nearly always written tight: trim only when they are not.
  const bool tight = !field.empty() && isDigit(field.front()) && isDigit(field.back());
  const std::string_view t = tight ? field : trimSpaces(field);
  std::size_t i = 0;
  while (i < t.size() && isDigit(t[i])) ++i;
  const std::size_t hourDigits = i;
  if (hourDigits == 0 || t.size() - i < 8 || t[i] != ':' || !isDigit(t[i + 1]) || !isDigit(t[i + 2]) ||
      t[i + 3] != ':' || !isDigit(t[i + 4]) || !isDigit(t[i + 5]) || t[i + 6] != '.') {
    return std::nullopt;
  }
  const int minutes = (t[i + 1] - '0') * 10 + (t[i + 2] - '0');
  const int seconds = (t[i + 4] - '0') * 10 + (t[i + 5] - '0');
  if (minutes >= 60 || seconds >= 60) return std::nullopt;
  const std::string_view fraction = t.substr(i + 7);
  if (!std::all_of(fraction.begin(), fraction.end(), isDigit)) return std::nullopt;  // also not empty: size checked
  if (hourDigits > 12) {
    // Past any film, but still a time: near enough is exact enough.
    const auto hours = parseDecimal(t.substr(0, hourDigits));
    const auto rest = parseDecimal("0." + std::string(fraction));
    if (!hours || !rest) return std::nullopt;
    const double value = *hours * 3600 + minutes * 60 + seconds + *rest;
    if (!std::isfinite(value)) return std::nullopt;
    return value;
  }
  long long hours = 0;
  std::from_chars(t.data(), t.data() + hourDigits, hours);
  const long long whole = hours * 3600 + minutes * 60 + seconds;
  static constexpr long long powers[] = {1, 10, 100, 1000, 10'000, 100'000, 1'000'000};
  if (fraction.size() <= 6 && whole < (1ll << 53) / powers[fraction.size()]) {
    // Both integers are exact doubles, and one division rounds once: the
    // nearest double to the decimal, as reading the digits would give.
    long long scaled = whole;
    for (char c : fraction) scaled = scaled * 10 + (c - '0');
    return static_cast<double>(scaled) / static_cast<double>(powers[fraction.size()]);
  }
  return parseDecimal(std::to_string(whole) + "." + std::string(fraction));
}

// A block such as {\p1} switches to vector drawing: the text is shapes,
// not words. \p0 switches back, and \pos is no drawing.
bool drawsShapes(std::string_view text) {
  for (std::size_t open = text.find('{'); open != std::string_view::npos; open = text.find('{', open + 1)) {
    const std::size_t close = text.find('}', open + 1);
    if (close == std::string_view::npos) return false;
    const std::string_view block = text.substr(open + 1, close - open - 1);
    for (std::size_t p = block.find("\\p"); p != std::string_view::npos; p = block.find("\\p", p + 1)) {
      if (p + 2 < block.size() && block[p + 2] >= '1' && block[p + 2] <= '9') return true;
    }
    open = close;
  }
  return false;
}

// The words of an event's Text field as the bar shows them; empty when
// there are none.
std::string dialogueText(std::string_view field) {
  // Most lines are plain words: nothing to remove, replace or trim.
  const bool plain = std::none_of(field.begin(), field.end(), [](char c) { return c == '{' || c == '\\' || c == '<'; });
  if (plain && !field.empty() &&
      static_cast<unsigned char>(field.front()) > ' ' && static_cast<unsigned char>(field.back()) > ' ' &&
      static_cast<unsigned char>(field.front()) < 0x80 && static_cast<unsigned char>(field.back()) < 0x80) {
    return std::string(field);
  }
  if (field.find('{') != std::string_view::npos && drawsShapes(field)) return {};
  std::string text(field);
  if (text.find('{') != std::string::npos) markup::removeOverrideBlocks(text);
  if (text.find('\\') != std::string::npos) {
    std::size_t w = 0;
    for (std::size_t r = 0; r < text.size(); ++r) {
      if (text[r] == '\\' && r + 1 < text.size()) {
        const char c = text[r + 1];
        if (c == 'N' || c == 'n' || c == 'h') {
          text[w++] = c == 'h' ? ' ' : '\n';
          ++r;
          continue;
        }
      }
      text[w++] = text[r];
    }
    text.resize(w);
  }
  if (text.find('<') != std::string::npos) markup::removeHtmlTags(text);
  if (text.find('\n') == std::string::npos) return std::string(trimSpaces(text));
  std::string out;
  out.reserve(text.size());
  forEachLine(text, [&](std::string_view line) {
    const std::string_view kept = trimSpaces(line);
    if (kept.empty()) return true;
    if (!out.empty()) out += '\n';
    out += kept;
    return true;
  });
  return out;
}

// Where an event's Start, End and Text are among its fields, and how many
// fields there are.
struct Format {
  std::size_t fields = 10;
  std::size_t start = 1, end = 2, text = 9;
  bool readable = true;
  bool operator==(const Format&) const = default;
};

Format formatFrom(std::string_view names) {
  Format f{};
  std::optional<std::size_t> start, end, text;
  std::size_t count = 0;
  for (std::size_t b = 0;; ++count) {
    std::size_t e = names.find(',', b);
    const std::string_view name = trimSpaces(names.substr(b, e == std::string_view::npos ? e : e - b));
    if (!start && equalsIgnoringCase(name, "start")) start = count;
    if (!end && equalsIgnoringCase(name, "end")) end = count;
    if (!text && equalsIgnoringCase(name, "text")) text = count;
    if (e == std::string_view::npos) break;
    b = e + 1;
  }
  f.fields = count + 1;
  f.readable = start && end && text;
  if (f.readable) {
    f.start = *start;
    f.end = *end;
    f.text = *text;
  }
  return f;
}

// The events of one or more parts, in file order, as cues sorted by start
// (ties in file order). Events drawn together (the same start and end)
// become one cue: copies of a line (layers, shadows) count once, different
// lines are joined in file order, and the cue stands where its first event
// stood.
//
// Times are never negative, and the bits of non-negative doubles sort as
// the numbers do: a stable radix sort of the bits (none at all for a script
// in order, the usual case), skipping the digits all starts share. Events
// with the same start are then next to each other in file order, and each
// run of them is grouped by end.
struct Key {
  std::uint64_t bits;  // of the start; equal exactly when the starts are
  Cue* cue;
};

// Stable, by start. Scripts write centiseconds: when every start is a whole
// number of milliseconds below 2^30 (298 hours), three ten-bit passes over
// those sort as the starts do. Otherwise the bits themselves, in eleven-bit
// digits (few enough buckets to stay in the cache), skipping the digits
// that do not vary.
void sortKeys(std::vector<Key>& keys, std::uint64_t varying) {
  std::vector<Key> buffer(keys.size());
  auto pass = [&](auto digit) {
    std::uint32_t count[2049] = {};
    for (const Key& k : keys) ++count[digit(k) + 1];
    for (std::size_t d = 1; d < std::size(count); ++d) count[d] += count[d - 1];
    for (const Key& k : keys) buffer[count[digit(k)]++] = k;
    keys.swap(buffer);
  };
  std::vector<std::uint32_t> ms(keys.size());
  bool milliseconds = true;
  for (std::size_t i = 0; i < keys.size() && milliseconds; ++i) {
    const double start = keys[i].cue->start;
    const double whole = std::round(start * 1000);
    milliseconds = whole < double(1u << 30) && whole / 1000 == start;
    ms[i] = static_cast<std::uint32_t>(whole);
  }
  if (milliseconds) {
    // From here on the keys hold milliseconds: equal exactly when the starts are.
    for (std::size_t i = 0; i < keys.size(); ++i) keys[i].bits = ms[i];
    for (int shift = 0; shift < 30; shift += 10) pass([shift](const Key& k) { return (k.bits >> shift) & 1023; });
    return;
  }
  for (int shift = 0; shift < 64; shift += 11) {
    if (((varying >> shift) & 2047) == 0) continue;
    pass([shift](const Key& k) { return (k.bits >> shift) & 2047; });
  }
}

std::vector<Cue> mergedAndSorted(std::vector<std::vector<Cue>>& parts) {
  std::size_t total = 0;
  for (const auto& part : parts) total += part.size();
  std::vector<Key> keys;
  keys.reserve(total);
  std::uint64_t all = ~0ull, any = 0;
  bool ordered = true;
  for (auto& part : parts) {
    for (Cue& cue : part) {
      const auto bits = std::bit_cast<std::uint64_t>(cue.start);
      ordered = ordered && (keys.empty() || keys.back().bits <= bits);
      keys.push_back({bits, &cue});
      all &= bits;
      any |= bits;
    }
  }
  if (!ordered) sortKeys(keys, all ^ any);

  // A run of events at one start, grouped by end. The texts of merged
  // events stay where they are until the end, so a group can point at them;
  // a big group (a thousand events at one time) looks them up in a set
  // instead of comparing with each.
  struct Group {
    Cue* leader;
    std::size_t ownLength;  // of the leader's own text, before it was joined
    std::vector<std::string_view> others;
    std::unordered_set<std::string_view> index;
  };
  auto take = [](Group& g, const Cue& event) {
    const std::string_view text = event.text;
    bool known = text == std::string_view(g.leader->text).substr(0, g.ownLength);
    if (!known && g.others.size() < 16) {
      known = std::find(g.others.begin(), g.others.end(), text) != g.others.end();
    } else if (!known) {
      if (g.index.empty()) g.index.insert(g.others.begin(), g.others.end());
      known = !g.index.insert(text).second;
    }
    if (known) return;
    g.others.push_back(text);
    g.leader->text += '\n';
    g.leader->text += text;
  };
  std::vector<Group> groups;
  std::unordered_map<double, std::size_t> groupByEnd;  // for long runs only
  for (std::size_t run = 0; run < keys.size();) {
    std::size_t next = run + 1;
    while (next < keys.size() && keys[next].bits == keys[run].bits) ++next;
    if (next - run > 1) {
      const bool longRun = next - run > 32;
      groups.clear();
      groupByEnd.clear();
      for (std::size_t i = run; i < next; ++i) {
        Cue& event = *keys[i].cue;
        std::optional<std::size_t> found;
        if (longRun) {
          const auto [it, fresh] = groupByEnd.try_emplace(event.end, groups.size());
          if (!fresh) found = it->second;
        } else {
          for (std::size_t g = 0; g < groups.size() && !found; ++g) {
            if (groups[g].leader->end == event.end) found = g;
          }
        }
        if (!found) {
          groups.push_back(Group{&event, event.text.size(), {}, {}});
          continue;
        }
        take(groups[*found], event);
        keys[i].cue = nullptr;  // taken into its leader
      }
    }
    run = next;
  }

  std::vector<Cue> sorted;
  sorted.reserve(keys.size());
  adviseLargePages(sorted.data(), keys.size() * sizeof(Cue));
  for (const Key& k : keys) {
    if (k.cue) sorted.push_back(std::move(*k.cue));
  }
  return sorted;
}

// Where the reading stands at a line: in which section, under which format.
struct ScanState {
  bool inEvents = false;
  Format format;
  bool operator==(const ScanState&) const = default;
};

struct Scan {
  std::vector<Cue> events;  // in file order, not yet merged
  ScanState state;          // at the end
};

// The events of the lines of text, read from state on. With stopAtEvent,
// stops before the first event line and reports the state there.
Scan scan(std::string_view text, ScanState state, bool stopAtEvent = false) {
  Scan out;
  // A dialogue line is rarely shorter than 50 bytes.
  if (!stopAtEvent) {
    out.events.reserve(text.size() / 50 + 16);
    adviseLargePages(out.events.data(), out.events.capacity() * sizeof(Cue));
  }
  forEachLine(text, [&](std::string_view line) {
    if (line.empty()) return true;
    // Only a line that starts with '[' or a space can name a section.
    const auto first = static_cast<unsigned char>(line.front());
    if (first == '[' || first == ' ' || first == '\t' || first >= 0x80) {
      if (const auto section = sectionName(line)) {
        state.inEvents = equalsIgnoringCase(*section, "[events]");
        return true;
      }
    }
    if (!state.inEvents) return true;
    // Almost every line is "Dialogue: " as written; any other case and
    // "Format:" take the slower road.
    const bool dialogue = line.starts_with("Dialogue:") || startsIgnoringCase(line, "dialogue:");
    if (!dialogue) {
      if (startsIgnoringCase(line, "format:")) state.format = formatFrom(line.substr(7));
      return true;
    }
    if (!state.format.readable) return true;
    if (stopAtEvent) return false;
    std::string_view rest = trimLeadingSpaces(line.substr(9));
    // The fields before the text are short: a plain loop beats a search
    // call for each of them. Only three of them are kept.
    const Format& f = state.format;
    std::string_view start, end, text;
    auto keep = [&](std::size_t index, std::string_view field) {
      if (index == f.start) start = field;
      if (index == f.end) end = field;
      if (index == f.text) text = field;
    };
    std::size_t from = 0, index = 0;
    for (std::size_t k = 0; index + 1 < f.fields; ++k) {
      if (k == rest.size()) return true;  // fewer fields than the format names
      if (rest[k] != ',') continue;
      keep(index++, rest.substr(from, k - from));
      from = k + 1;
    }
    keep(index, rest.substr(from));
    const auto startTime = readTime(start);
    if (!startTime) return true;
    const auto endTime = readTime(end);
    if (!endTime || *endTime < *startTime) return true;
    std::string words = dialogueText(text);
    if (!words.empty()) out.events.push_back(Cue{*startTime, *endTime, std::move(words)});
    return true;
  });
  out.state = state;
  return out;
}

}  // namespace

bool isScript(std::string_view text) {
  bool script = false;
  forEachLine(text, [&](std::string_view line) {
    if (unicode::all(line, unicode::isWhitespace)) return true;
    script = equalsIgnoringCase(trimSpaces(line), "[script info]");
    return false;
  });
  return script;
}

std::vector<Cue> readScript(std::string_view text, std::size_t splitAbove) {
  std::vector<Scan> parts;
  const std::size_t cut = text.size() > splitAbove ? text.find('\n', text.size() / 2) : std::string_view::npos;
  if (cut != std::string_view::npos) {
    // A season in one script: its second half is read alongside the first,
    // in the state the events begin in. A script that changes its format or
    // sections later on is read again from the state the first half ends in.
    const ScanState guess = scan(text, {}, true).state;
    parts.resize(2);
    std::exception_ptr failed;  // an exception must not end the thread: it would end the process
    try {
      std::thread second([&] {
        try {
          parts[1] = scan(text.substr(cut + 1), guess);
        } catch (...) {
          failed = std::current_exception();
        }
      });
      try {
        parts[0] = scan(text.substr(0, cut + 1), {});
      } catch (...) {
        second.join();
        throw;
      }
      second.join();
      if (failed) std::rethrow_exception(failed);
      if (!(parts[0].state == guess)) parts[1] = scan(text.substr(cut + 1), parts[0].state);
    } catch (const std::system_error&) {
      parts.clear();  // no thread to be had: one pass it is
    }
  }
  if (parts.empty()) parts.push_back(scan(text, {}));
  std::vector<std::vector<Cue>> events;
  for (Scan& part : parts) events.push_back(std::move(part.events));
  return mergedAndSorted(events);
}

}  // namespace lumerix::ass
