#include "linux/Mpris.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "util/Files.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix::mpris {

bool matches(const std::string& busName, const std::string& name) {
  if (!busName.starts_with(busPrefix)) return false;
  if (name.empty()) return true;
  const std::string wanted = busPrefix + name;
  return busName == wanted || busName.starts_with(wanted + ".");
}

bool matchesLoosely(const std::string& busName, const std::string& name) {
  if (!busName.starts_with(busPrefix) || name.empty()) return false;
  const std::string parts = unicode::lowercased(std::string_view(busName).substr(std::string_view(busPrefix).size()));
  const std::string wanted = unicode::lowercased(name);
  for (std::size_t at = 0; at <= parts.size();) {
    std::size_t end = parts.find('.', at);
    if (end == std::string::npos) end = parts.size();
    if (parts.compare(at, end - at, wanted) == 0) return true;
    at = end + 1;
  }
  return false;
}

std::string titleFromUrl(const std::string& url) {
  std::string name = url.substr(0, url.find_first_of("?#"));
  while (!name.empty() && name.back() == '/') name.pop_back();
  name = name.substr(name.rfind('/') + 1);
  auto hex = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string decoded;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '%' && i + 2 < name.size() && hex(name[i + 1]) >= 0 && hex(name[i + 2]) >= 0) {
      decoded += static_cast<char>(hex(name[i + 1]) * 16 + hex(name[i + 2]));
      i += 2;
    } else {
      decoded += name[i];
    }
  }
  // "Show.S01E02.mkv": the extension goes, the dots of the name stay.
  const std::size_t dot = decoded.rfind('.');
  if (dot != std::string::npos && dot > 0 && decoded.size() - dot - 1 <= 5) decoded.erase(dot);
  return decoded;
}

std::vector<std::string> picked(const std::vector<std::string>& busNames, const std::string& name) {
  std::vector<std::string> out;
  for (const std::string& n : busNames)
    if (matches(n, name)) out.push_back(n);
  // A name that matches no player exactly is looked for among the parts of
  // the players' names ("celluloid", "chromium", "firefox").
  if (out.empty()) {
    for (const std::string& n : busNames)
      if (matchesLoosely(n, name)) out.push_back(n);
  }
  return out;
}

std::vector<std::string> picked(const std::vector<Player>& players, const std::string& name) {
  std::vector<std::string> names;
  for (const Player& p : players) names.push_back(p.busName);
  return picked(names, name);
}

std::optional<std::string> choose(const std::vector<Player>& players, const std::string& name,
                                  const std::optional<std::string>& playedLast) {
  const std::vector<std::string> wanted = picked(players, name);
  const Player* paused = nullptr;
  bool lastStillThere = false;
  for (const Player& p : players) {
    if (std::find(wanted.begin(), wanted.end(), p.busName) == wanted.end()) continue;
    if (p.playbackStatus == "Playing") return p.busName;
    if (!paused && p.playbackStatus == "Paused") paused = &p;
    lastStillThere |= playedLast == p.busName;
  }
  if (lastStillThere) return playedLast;
  if (paused) return paused->busName;
  return std::nullopt;
}

namespace {

// Shortest text that reads back to the same double, with a '.' whatever
// the locale says.
std::string number(double v) {
  char buf[64];
  const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  return ec == std::errc() ? std::string(buf, end) : "0";
}

std::string oneLine(std::string s) {
  for (char& c : s) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return s;
}

}  // namespace

std::string pollAnswer(const std::optional<Player>& player) {
  if (!player) return "off";
  // A stopped player has no meaningful position, whatever it reports.
  const bool hasPosition = player->position && player->playbackStatus != "Stopped";
  return std::string(player->playbackStatus == "Playing" ? "true" : "false") + "|" +
         (hasPosition ? number(*player->position) : "missing value") + "|" + number(player->rate) + "|" +
         oneLine(player->title);
}

std::string pollError(int code) {
  return "err|" + std::to_string(code);
}

std::string isoTimestamp(double wallSeconds) {
  double whole = std::floor(wallSeconds);
  int millis = static_cast<int>(std::lround((wallSeconds - whole) * 1000));
  if (millis == 1000) {
    whole += 1;
    millis = 0;
  }
  const std::time_t t = static_cast<std::time_t>(whole);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[96];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
  return buf;
}

std::string streamLine(const Payload& p, bool diff) {
  nlohmann::ordered_json payload = nlohmann::ordered_json::object();
  if (p.bundleIdentifier) payload["bundleIdentifier"] = *p.bundleIdentifier;
  if (p.title) payload["title"] = *p.title;
  if (p.playing) payload["playing"] = *p.playing;
  if (p.playbackRate) payload["playbackRate"] = *p.playbackRate;
  if (p.elapsedTime) payload["elapsedTime"] = *p.elapsedTime;
  if (p.elapsedTime && p.sampledAt) payload["timestamp"] = isoTimestamp(*p.sampledAt);
  if (!p.elapsedTime && p.positionGone) payload["elapsedTime"] = nullptr;
  nlohmann::ordered_json line;
  line["type"] = "data";
  line["diff"] = diff;
  line["payload"] = std::move(payload);
  // Titles are the player's bytes; never let one stop the stream.
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

namespace {

bool hasPosition(const Player& p) {
  return p.position && p.playbackStatus != "Stopped";
}

}  // namespace

Payload fullPayload(const Player& player, double sampledAt) {
  Payload p;
  p.bundleIdentifier = player.busName;
  p.title = player.title;
  p.playing = player.playbackStatus == "Playing";
  p.playbackRate = player.rate;
  if (hasPosition(player)) {
    p.elapsedTime = *player.position;
    p.sampledAt = sampledAt;
  }
  return p;
}

Payload diffPayload(const Player& before, const Player& now, double sampledAt) {
  Payload diff;
  if (now.title != before.title) diff.title = now.title;
  if (now.playbackStatus != before.playbackStatus) diff.playing = now.playbackStatus == "Playing";
  if (now.rate != before.rate) diff.playbackRate = now.rate;
  if (hasPosition(now)) {
    diff.elapsedTime = now.position;
    diff.sampledAt = sampledAt;
  } else {
    diff.positionGone = hasPosition(before);
  }
  return diff;
}

std::optional<std::string> playedLastFile() {
  // Shared by the poll and the stream: without it they may follow two
  // different paused players. The runtime folder where the session has one,
  // else the user's cache folder (private too).
  auto absolute = [](const char* name) -> std::optional<std::string> {
    const char* v = std::getenv(name);
    if (!v || v[0] != '/') return std::nullopt;
    return std::string(v);
  };
  if (auto runtime = absolute("XDG_RUNTIME_DIR")) return *runtime + "/lumerix/played-last";
  if (auto cache = absolute("XDG_CACHE_HOME")) return *cache + "/lumerix/played-last";
  if (auto home = absolute("HOME")) return *home + "/.cache/lumerix/played-last";
  return std::nullopt;
}

std::optional<std::string> readPlayedLast(const std::string& file) {
  std::string text;
  if (!readWholeFile(file, text)) return std::nullopt;
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  if (!text.starts_with(busPrefix)) return std::nullopt;
  return text;
}

void writePlayedLast(const std::string& file, const std::string& busName) {
  ::mkdir(path::parent(path::parent(file)).c_str(), 0700);  // ~/.cache itself may not be there yet
  ::mkdir(path::parent(file).c_str(), 0700);
  writeFileAtomically(file, busName + "\n");  // a memory, not a duty: failures only cost the poll its hint
}

}  // namespace lumerix::mpris
