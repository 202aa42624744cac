#include "subtitles/AssReader.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
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
  // Nearly every time is H:MM:SS.CC: read it directly, to the same double
  // as below.
  if (field.size() == 10 && field[1] == ':' && field[4] == ':' && field[7] == '.' && isDigit(field[0]) &&
      isDigit(field[2]) && isDigit(field[3]) && isDigit(field[5]) && isDigit(field[6]) && isDigit(field[8]) &&
      isDigit(field[9])) {
    const int minutes = (field[2] - '0') * 10 + (field[3] - '0');
    const int seconds = (field[5] - '0') * 10 + (field[6] - '0');
    if (minutes >= 60 || seconds >= 60) return std::nullopt;
    const long long whole = (field[0] - '0') * 3600 + minutes * 60 + seconds;
    return static_cast<double>(whole * 100 + (field[8] - '0') * 10 + (field[9] - '0')) / 100.0;
  }
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

// Whether any byte of s is '{', '\\' or '<', the bytes that start markup:
// eight at a time, as most texts have none.
bool hasMarkup(std::string_view s) {
  constexpr std::uint64_t ones = 0x0101010101010101ULL, highs = 0x8080808080808080ULL;
  auto hasZero = [](std::uint64_t v) { return (v - ones) & ~v & highs; };
  std::size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    std::uint64_t w;
    std::memcpy(&w, s.data() + i, 8);
    if (hasZero(w ^ (ones * '{')) | hasZero(w ^ (ones * '\\')) | hasZero(w ^ (ones * '<'))) return true;
  }
  for (; i < s.size(); ++i) {
    if (s[i] == '{' || s[i] == '\\' || s[i] == '<') return true;
  }
  return false;
}

// Each line of text trimmed, the empty ones dropped, the rest joined with
// "\n", in place: what is written never overtakes what is still to be read.
void keepTrimmedLines(std::string& text) {
  std::size_t w = 0;
  for (std::size_t b = 0; b <= text.size();) {
    std::size_t e = text.find('\n', b);
    if (e == std::string::npos) e = text.size();
    const std::string_view line = std::string_view(text).substr(b, e - b);
    // A line that starts and ends with a visible ASCII character has nothing to trim.
    const bool tight = !line.empty() && static_cast<unsigned char>(line.front()) > ' ' &&
                       static_cast<unsigned char>(line.back()) > ' ' &&
                       static_cast<unsigned char>(line.front()) < 0x80 && static_cast<unsigned char>(line.back()) < 0x80;
    const std::string_view kept = tight ? line : trimSpaces(line);
    if (!kept.empty()) {
      if (w) text[w++] = '\n';
      if (kept.data() != text.data() + w) std::memmove(text.data() + w, kept.data(), kept.size());
      w += kept.size();
    }
    b = e + 1;
  }
  text.resize(w);
}

// The words of an event's Text field as the bar shows them; empty when
// there are none. The clean-up works in one copy of the field.
std::string dialogueText(std::string_view field) {
  // Most lines are plain words: nothing to remove, replace or trim.
  const bool plain = !hasMarkup(field);
  if (plain && !field.empty() &&
      static_cast<unsigned char>(field.front()) > ' ' && static_cast<unsigned char>(field.back()) > ' ' &&
      static_cast<unsigned char>(field.front()) < 0x80 && static_cast<unsigned char>(field.back()) < 0x80) {
    return std::string(field);
  }
  if (!plain && field.find('{') != std::string_view::npos && drawsShapes(field)) return {};
  std::string text(field);
  if (!plain) {
    if (text.find('{') != std::string::npos) markup::removeOverrideBlocks(text);
    if (std::size_t r = text.find('\\'); r != std::string::npos) {
      // From one backslash to the next, the text moves down as a whole.
      std::size_t w = r;
      while (r != std::string::npos) {
        std::size_t next = r + 1;
        const char c = next < text.size() ? text[next] : '\0';
        if (c == 'N' || c == 'n' || c == 'h') {
          text[w++] = c == 'h' ? ' ' : '\n';
          ++next;
        } else {
          text[w++] = '\\';
        }
        r = text.find('\\', next);
        const std::size_t to = r == std::string::npos ? text.size() : r;
        if (w != next) std::memmove(text.data() + w, text.data() + next, to - next);
        w += to - next;
      }
      text.resize(w);
    }
    if (text.find('<') != std::string::npos) markup::removeHtmlTags(text);
  }
  keepTrimmedLines(text);
  return text;
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

// Scripts write centiseconds: when every time is a whole number of
// milliseconds below 2^30 (298 hours), a key is twelve bytes of those and
// the event's place. Otherwise it holds the start's bits, which sort as the
// numbers do (times are never negative), the end and the event itself.
struct MillisecondKey {
  std::uint32_t start, end;  // equal exactly when the times are
  std::uint32_t at;          // the event's place in file order; `taken` once taken into an earlier event
  static constexpr std::uint32_t taken = ~std::uint32_t{0};
};
struct BitsKey {
  std::uint64_t start;
  double end;
  Cue* cue;  // null once taken into an earlier event
};

// The events of all parts, by their place in file order.
class Events {
 public:
  explicit Events(std::vector<std::vector<Cue>>& parts) : parts_(parts) {}
  Cue& operator[](std::size_t at) const {
    for (auto& part : parts_) {
      if (at < part.size()) return part[at];
      at -= part.size();
    }
    return parts_.back().back();  // not reached: every place is in a part
  }

 private:
  std::vector<std::vector<Cue>>& parts_;
};

Cue* cueOf(const MillisecondKey& k, const Events& events) {
  return k.at == MillisecondKey::taken ? nullptr : &events[k.at];
}
Cue* cueOf(const BitsKey& k, const Events&) {
  return k.cue;
}
void markTaken(MillisecondKey& k) {
  k.at = MillisecondKey::taken;
}
void markTaken(BitsKey& k) {
  k.cue = nullptr;
}

void prefetch(const void* p) {
#if defined(__GNUC__) || defined(__clang__)
  __builtin_prefetch(p);
#else
  (void)p;
#endif
}

// Stable, by start; returns where the sorted keys are, keys or buffer. In
// digits of at most twelve bits (few enough buckets to stay in the cache),
// skipping the high bits all starts share: milliseconds up to four and a
// half hours (an episode, or a season whose times start over) take two
// passes.
template <class Key>
Key* sortKeys(Key* keys, Key* buffer, std::size_t n, std::uint64_t varying) {
  const int width = std::bit_width(varying);
  const int passes = (width + 11) / 12;
  const int digit = passes ? (width + passes - 1) / passes : 0;
  const std::uint64_t mask = (std::uint64_t{1} << digit) - 1;
  for (int shift = 0; shift < width; shift += digit) {
    std::uint32_t count[4097] = {};
    for (std::size_t i = 0; i < n; ++i) ++count[((keys[i].start >> shift) & mask) + 1];
    for (std::size_t d = 1; d <= mask + 1; ++d) count[d] += count[d - 1];
    for (std::size_t i = 0; i < n; ++i) buffer[count[(keys[i].start >> shift) & mask]++] = keys[i];
    std::swap(keys, buffer);
  }
  return keys;
}

// Takes each event into the first event of its run with the same end (its
// key marked taken). The texts of merged events stay where they are until
// the end, so a group can point at them; a big group (a thousand events at
// one time) looks them up in a set instead of comparing with each.
template <class Key>
void groupRuns(Key* keys, std::size_t n, const Events& events) {
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
  auto groupOf = [&](Cue* leader) -> Group& {
    for (Group& g : groups) {
      if (g.leader == leader) return g;
    }
    return groups.emplace_back(Group{leader, leader->text.size(), {}, {}});
  };
  // In runs of a few events, the merges are found first and made after.
  struct Merge {
    std::size_t run;
    Cue* leader;
    Cue* event;
  };
  std::vector<Merge> merges;
  std::unordered_map<decltype(Key::end), Cue*> leaderByEnd;  // for long runs only
  std::unordered_map<Cue*, std::size_t> groupByLeader;
  for (std::size_t run = 0; run < n;) {
    std::size_t next = run + 1;
    while (next < n && keys[next].start == keys[run].start) ++next;
    if (next - run > 32) {
      groups.clear();
      leaderByEnd.clear();
      groupByLeader.clear();
      for (std::size_t i = run; i < next; ++i) {
        const auto [it, fresh] = leaderByEnd.try_emplace(keys[i].end, cueOf(keys[i], events));
        if (fresh) continue;
        const auto [g, made] = groupByLeader.try_emplace(it->second, groups.size());
        if (made) groups.push_back(Group{it->second, it->second->text.size(), {}, {}});
        take(groups[g->second], *cueOf(keys[i], events));
        markTaken(keys[i]);
      }
    } else if (next - run > 1) {
      for (std::size_t i = run + 1; i < next; ++i) {
        for (std::size_t j = run; j < i; ++j) {
          if (cueOf(keys[j], events) && keys[j].end == keys[i].end) {
            merges.push_back(Merge{run, cueOf(keys[j], events), cueOf(keys[i], events)});
            markTaken(keys[i]);
            break;
          }
        }
      }
    }
    run = next;
  }
  // The events and texts of a merge lie anywhere in memory: they are asked
  // for a few merges ahead, so that their fetches overlap.
  constexpr std::size_t ahead = 8;
  for (std::size_t k = 0; k < merges.size(); ++k) {
    if (k + 2 * ahead < merges.size()) {
      prefetch(merges[k + 2 * ahead].leader);
      prefetch(merges[k + 2 * ahead].event);
    }
    if (k + ahead < merges.size()) {
      prefetch(merges[k + ahead].leader->text.data());
      prefetch(merges[k + ahead].event->text.data());
    }
    if (k == 0 || merges[k].run != merges[k - 1].run) groups.clear();
    take(groupOf(merges[k].leader), *merges[k].event);
  }
}

// Sorted, grouped, and each cue moved once, into its place: a season's
// events, scattered in memory by the sort, cost one visit each.
template <class Key>
std::vector<Cue> arranged(Key* keys, std::size_t n, bool ordered, std::uint64_t varying, const Events& events) {
  Key* sorted = keys;
  std::unique_ptr<Key[]> buffer;
  if (!ordered) {
    buffer.reset(new Key[n]);  // left uninitialised: the sort writes each key before reading it
    sorted = sortKeys(keys, buffer.get(), n, varying);
  }
  groupRuns(sorted, n, events);
  std::vector<Cue> cues;
  cues.reserve(n);
  adviseLargePages(cues.data(), n * sizeof(Cue));
  for (std::size_t i = 0; i < n; ++i) {
    if (Cue* cue = cueOf(sorted[i], events)) cues.push_back(std::move(*cue));
  }
  return cues;
}

// The events of one or more parts, in file order, as cues sorted by start
// (ties in file order). Events drawn together (the same start and end)
// become one cue: copies of a line (layers, shadows) count once, different
// lines are joined in file order, and the cue stands where its first event
// stood.
//
// The keys hold all that the sort and the grouping compare, so an event is
// looked at again only when it merges. A stable radix sort of the starts
// (none at all for a script in order, the usual case); events with the
// same start are then next to each other in file order, and each run of
// them is grouped by end.
std::vector<Cue> mergedAndSorted(std::vector<std::vector<Cue>>& parts) {
  const Events events(parts);
  std::size_t total = 0;
  bool ordered = true;
  double previous = 0;
  for (const auto& part : parts) {
    total += part.size();
    for (const Cue& cue : part) {
      ordered = ordered && previous <= cue.start;
      previous = cue.start;
    }
  }
  // Left uninitialised: every key is written before it is read.
  if (total < MillisecondKey::taken) {
    std::unique_ptr<MillisecondKey[]> keys(new MillisecondKey[total]);
    std::uint32_t all = ~0u, any = 0;
    auto fill = [&] {
      auto milliseconds = [](double t, std::uint32_t& ms) {
        const double whole = std::round(t * 1000);
        if (!(whole < double(1u << 30) && whole / 1000 == t)) return false;
        ms = static_cast<std::uint32_t>(whole);
        return true;
      };
      std::uint32_t n = 0;
      for (const auto& part : parts) {
        for (const Cue& cue : part) {
          std::uint32_t start, end;
          if (!milliseconds(cue.start, start) || !milliseconds(cue.end, end)) return false;
          all &= start;
          any |= start;
          keys[n] = MillisecondKey{start, end, n};
          ++n;
        }
      }
      return true;
    };
    if (fill()) return arranged(keys.get(), total, ordered, all ^ any, events);
  }
  std::unique_ptr<BitsKey[]> keys(new BitsKey[total]);
  std::uint64_t all = ~0ull, any = 0;
  std::size_t n = 0;
  for (auto& part : parts) {
    for (Cue& cue : part) {
      const auto start = std::bit_cast<std::uint64_t>(cue.start);
      all &= start;
      any |= start;
      keys[n++] = BitsKey{start, cue.end, &cue};
    }
  }
  return arranged(keys.get(), total, ordered, all ^ any, events);
}

// Calls fn with the index of each of the first `count` commas of s; false
// when s has fewer. The fields before an event's text are short and many:
// eight bytes at a time, every comma among them found at once, beats both a
// plain loop and a search call for each.
template <class Fn>
bool forEachComma(std::string_view s, std::size_t count, Fn&& fn) {
  if (count == 0) return true;
  std::size_t i = 0;
  if constexpr (std::endian::native == std::endian::little) {
    constexpr std::uint64_t ones = 0x0101010101010101ULL, lows = 0x7F7F7F7F7F7F7F7FULL;
    for (; i + 8 <= s.size(); i += 8) {
      std::uint64_t w;
      std::memcpy(&w, s.data() + i, 8);
      w ^= ones * ',';
      // The high bit of each byte that was a comma, and of no other (no carry crosses a byte).
      for (std::uint64_t commas = ~(((w & lows) + lows) | w | lows); commas; commas &= commas - 1) {
        fn(i + static_cast<std::size_t>(std::countr_zero(commas)) / 8);
        if (--count == 0) return true;
      }
    }
  }
  for (; i < s.size(); ++i) {
    if (s[i] != ',') continue;
    fn(i);
    if (--count == 0) return true;
  }
  return false;
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
    // Only three of the fields are kept: where the usual handful of fields
    // end is noted first, and the three taken from there.
    const Format& f = state.format;
    std::string_view start, end, text;
    if (f.fields <= 16) {
      std::size_t commaAt[16];
      std::size_t commas = 0;
      if (!forEachComma(rest, f.fields - 1, [&](std::size_t comma) { commaAt[commas++] = comma; })) {
        return true;  // fewer fields than the format names
      }
      auto field = [&](std::size_t index) {
        const std::size_t from = index ? commaAt[index - 1] + 1 : 0;
        const std::size_t to = index + 1 < f.fields ? commaAt[index] : rest.size();
        return std::string_view(rest.data() + from, to - from);
      };
      start = field(f.start);
      end = field(f.end);
      text = field(f.text);
    } else {
      std::size_t from = 0, index = 0;  // the field that starts at from
      auto keep = [&](std::string_view field) {
        if (index == f.start) start = field;
        if (index == f.end) end = field;
        if (index == f.text) text = field;
        ++index;
      };
      const bool complete = forEachComma(rest, f.fields - 1, [&](std::size_t comma) {
        keep(std::string_view(rest.data() + from, comma - from));
        from = comma + 1;
      });
      if (!complete) return true;
      keep(rest.substr(from));
    }
    const auto startTime = readTime(start);
    if (!startTime) return true;
    const auto endTime = readTime(end);
    if (!endTime || *endTime < *startTime) return true;
    std::string words = dialogueText(text);
    if (words.empty()) return true;
    // A copy of a line just read at the same times (a layer, a shadow)
    // would add nothing to their cue: it need not be kept, sorted or merged.
    auto& events = out.events;
    for (std::size_t back = 1; back <= 4 && back <= events.size(); ++back) {
      const Cue& before = events[events.size() - back];
      if (before.start != *startTime || before.end != *endTime) break;
      if (before.text == words) return true;
    }
    events.push_back(Cue{*startTime, *endTime, std::move(words)});
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
