#include "app/EpisodeMatch.h"

#include <dirent.h>

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

#include "subtitles/FileTypes.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix::episode {

using unicode::isDecimalDigit;

std::optional<long long> numberIn(std::string_view track) {
  if (!unicode::isValidUtf8(track)) return std::nullopt;
  std::size_t i = 0;
  while (i < track.size()) {
    const std::size_t start = i;
    if (!isDecimalDigit(unicode::next(track, i))) continue;
    std::size_t end = i;
    for (std::size_t k = i; k < track.size();) {
      if (!isDecimalDigit(unicode::next(track, k))) break;
      end = k;
    }
    // Only the first run counts, even when it cannot be read as a number.
    const std::string_view digits = track.substr(start, end - start);
    long long value = 0;
    const auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (ec != std::errc() || ptr != digits.data() + digits.size()) return std::nullopt;
    return value;
  }
  return std::nullopt;
}

std::optional<long long> seasonEpisodeIn(std::string_view track) {
  auto digit = [&](std::size_t i) { return i < track.size() && track[i] >= '0' && track[i] <= '9'; };
  for (std::size_t s = 0; s < track.size(); ++s) {
    if (track[s] != 'S' && track[s] != 's') continue;
    std::size_t i = s + 1;
    while (digit(i) && i - s <= 2) ++i;
    const std::size_t seasonDigits = i - s - 1;
    if (seasonDigits == 0 || digit(i) || i >= track.size() || (track[i] != 'E' && track[i] != 'e')) continue;
    const std::size_t from = ++i;
    while (digit(i)) ++i;
    if (i == from) continue;
    long long value = 0;
    const auto [ptr, ec] = std::from_chars(track.data() + from, track.data() + i, value);
    if (ec != std::errc()) return std::nullopt;  // an episode past any integer is no episode
    return value;
  }
  return std::nullopt;
}

bool nameMatches(std::string_view name, long long episode) {
  if (!unicode::isValidUtf8(name)) return false;
  const std::string number = std::to_string(episode);
  for (std::size_t p = 0; p < name.size();) {
    std::size_t i = p;
    const char32_t first = unicode::next(name, i);
    p = i;
    if (first != 's' && first != 0x17F) continue;
    // \d{1,2} then "e": nothing that follows a digit group here is a digit,
    // so the group must take every digit there is.
    int digits = 0;
    std::size_t k = i;
    while (k < name.size()) {
      std::size_t j = k;
      if (!isDecimalDigit(unicode::next(name, j))) break;
      ++digits;
      k = j;
    }
    if (digits < 1 || digits > 2 || k >= name.size() || name[k] != 'e') continue;
    ++k;
    std::size_t zeros = 0;
    while (k + zeros < name.size() && name[k + zeros] == '0') ++zeros;
    std::size_t rest;
    if (episode == 0) {
      // 0*0: at least one zero, the last of them being the number itself.
      if (zeros == 0) continue;
      rest = k + zeros;
    } else {
      rest = k + zeros;
      if (name.compare(rest, number.size(), number) != 0) continue;
      rest += number.size();
    }
    if (rest == name.size()) return true;
    std::size_t j = rest;
    if (!isDecimalDigit(unicode::next(name, j))) return true;
  }
  return false;
}

std::optional<std::string> findInFolder(const std::string& folder, long long episode) {
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return std::nullopt;
  std::vector<std::pair<std::string, std::string>> names;  // (sort key, name as listed)
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    names.emplace_back(unicode::composed(name), std::string(name));
  }
  ::closedir(dir);
  // Byte order of UTF-8 is code-point order.
  std::sort(names.begin(), names.end());
  for (const auto& [key, name] : names) {
    if (!unicode::isValidUtf8(name)) continue;
    const std::string lower = unicode::lowercased(name);
    if (!filetypes::hasSubtitleExtension(lower)) continue;
    if (nameMatches(lower, episode)) return path::append(folder, name);
  }
  return std::nullopt;
}

std::optional<std::string> pairedName(std::string_view first, std::string_view second, std::string_view newFirst) {
  std::size_t head = 0;
  while (head < first.size() && head < second.size() && first[head] == second[head]) ++head;
  std::size_t tail = 0;
  while (tail < first.size() - head && tail < second.size() - head &&
         first[first.size() - 1 - tail] == second[second.size() - 1 - tail]) {
    ++tail;
  }
  const std::string_view from = first.substr(head, first.size() - head - tail);
  const std::string_view to = second.substr(head, second.size() - head - tail);
  // The part that differs sits next to what the files share at their end...
  const std::string_view ending = first.substr(head);
  if (newFirst.ends_with(ending)) {
    std::string name(newFirst.substr(0, newFirst.size() - ending.size()));
    return name.append(to).append(first.substr(first.size() - tail));
  }
  // ...or next to what they share at their beginning.
  const std::string_view beginning = first.substr(0, head + from.size());
  if (newFirst.starts_with(beginning)) {
    std::string name(first.substr(0, head));
    return name.append(to).append(newFirst.substr(beginning.size()));
  }
  return std::nullopt;
}

std::optional<std::string> findNamed(const std::string& folder, std::string_view name) {
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return std::nullopt;
  const std::string wanted = unicode::composed(name);
  std::optional<std::string> found;
  while (const dirent* entry = ::readdir(dir)) {
    if (unicode::composed(entry->d_name) == wanted) {
      found = path::append(folder, entry->d_name);
      break;
    }
  }
  ::closedir(dir);
  return found;
}

}  // namespace lumerix::episode
