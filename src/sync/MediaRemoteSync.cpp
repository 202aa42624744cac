#include "sync/MediaRemoteSync.h"

#include <cmath>

#include "util/JsonText.h"
#include "util/Thread.h"

namespace lumerix {

MediaRemoteSync::MediaRemoteSync(const Clock& clock, CommandProvider adapterCommand, std::string targetBundleID,
                                 double relaunchDelay, TargetMatch targetMatch, StreamTexts texts)
    : clock(clock),
      adapterCommand(std::move(adapterCommand)),
      targetBundleID(std::move(targetBundleID)),
      relaunchDelay(relaunchDelay),
      targetMatch(targetMatch),
      texts(std::move(texts)),
      statusText(this->texts.connecting) {}

void MediaRemoteSync::start() {
  worker.start([this] { run(); });
}

void MediaRemoteSync::cancel() {
  worker.stop();
}

void MediaRemoteSync::snapshotInto(SyncSnapshot& s) {
  const double now = clock.uptime();
  std::lock_guard<std::mutex> guard(lock);
  s.playing = playingFlag;
  s.track = title;
  s.holding = false;
  if (ok) {
    s.position = elapsed + (playingFlag ? rate : 0.0) * (now - anchorUptime);
    s.status.clear();
    s.idle = false;
    s.rate = playingFlag ? rate : 1.0;
  } else {
    s.position.reset();
    s.status = statusText;
    s.idle = idleFlag;
    s.rate = 1.0;
  }
}

void MediaRemoteSync::run() {
  nameCurrentThread("MediaRemoteSync");
  while (!worker.stopped()) {
    auto command = adapterCommand();
    if (!command) {
      std::lock_guard<std::mutex> guard(lock);
      ok = false;
      statusText = texts.missing;
      return;  // nothing to retry with
    }
    auto ran = worker.processes().stream(*command, [this](std::string_view data) { updating([&] { consume(data); }); });
    if (worker.stopped()) return;
    if (!ran) {
      std::lock_guard<std::mutex> guard(lock);
      ok = false;
      statusText = texts.launchFailedPrefix + ran.error();
      return;  // a helper that cannot start will not start in 2 s either
    }
    updating([this] {
      // The merged state is kept: the next run's first diff builds on it.
      std::lock_guard<std::mutex> guard(lock);
      ok = false;
      statusText = texts.restarting;
    });
    if (!worker.pause(relaunchDelay)) break;
  }
}

void MediaRemoteSync::consume(std::string_view data) {
  // Each byte is looked at once: only what arrived since the last call is
  // searched for line feeds.
  while (!data.empty()) {
    const std::size_t feed = data.find('\n');
    const std::string_view piece = data.substr(0, feed);
    if (!discarding) {
      if (lineBuffer.size() + piece.size() > maxLineBytes) {
        // No now-playing state is this long: drop the line and pick up
        // again at the next line feed.
        lineBuffer.clear();
        discarding = true;
      } else {
        lineBuffer.append(piece);
      }
    }
    if (feed == std::string_view::npos) return;
    if (!discarding) handleLine(lineBuffer);
    lineBuffer.clear();
    discarding = false;
    data.remove_prefix(feed + 1);
  }
}

void MediaRemoteSync::handleLine(std::string_view line) {
  if (line.empty() || !json::nestingWithin(line, json::maxNesting)) return;
  auto object = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
  if (!object.is_object()) return;  // also what a parse error gives (discarded)
  const auto type = object.find("type");
  if (type == object.end() || !type->is_string() || *type != "data") return;
  const auto payload = object.find("payload");
  if (payload == object.end() || !payload->is_object()) return;
  const auto diff = object.find("diff");
  if (diff != object.end() && diff->is_boolean() && diff->get<bool>()) {
    merged.update(*payload);
  } else {
    merged = std::move(*payload);
  }
  apply();
}

void MediaRemoteSync::apply() {
  std::lock_guard<std::mutex> guard(lock);
  if (merged.empty()) {
    ok = false;
    idleFlag = true;
    statusText = texts.nothingPlaying;
    return;
  }
  const auto bundle = merged.find("bundleIdentifier");
  if (bundle == merged.end() || !bundle->is_string()) return;
  const auto& id = bundle->get_ref<const std::string&>();
  const bool ours = targetBundleID.empty() || id == targetBundleID ||
                    (targetMatch == TargetMatch::withInstances && id.starts_with(targetBundleID + "."));
  if (!ours) {
    ok = false;
    idleFlag = true;
    statusText = texts.otherPlayerPrefix + id + texts.otherPlayerSuffix;
    return;
  }
  const auto position = merged.find("elapsedTime");
  const auto rateValue = merged.find("playbackRate");
  const bool hasRate = rateValue != merged.end() && rateValue->is_number();
  // Numbers past anything a player plays are a broken player, not a position.
  const bool plausible = position != merged.end() && position->is_number() &&
                         std::fabs(position->get<double>()) <= maxPlausiblePosition &&
                         (!hasRate || std::fabs(rateValue->get<double>()) <= maxPlausibleRate);
  if (!plausible) {
    ok = false;
    idleFlag = false;
    statusText = texts.noPosition;
    return;
  }
  idleFlag = false;
  const auto playingValue = merged.find("playing");
  const bool playing = playingValue != merged.end() && playingValue->is_boolean() && playingValue->get<bool>();
  const double now = clock.uptime();
  // The stream says when elapsedTime was true; carry that over to the
  // uptime clock once, so later wall-clock changes cannot move us.
  double age = 0;
  const auto stamp = merged.find("timestamp");
  if (stamp != merged.end() && stamp->is_string()) {
    const std::string& text = stamp->get_ref<const std::string&>();
    if (auto date = parseDate(text)) {
      const double lag = clock.wallClock() - *date;
      // A stamp cut to the whole second lies up to a second before the
      // sample it names; within that second, the line's arrival is the
      // better guess.
      const bool wholeSeconds = text.size() == 20;
      age = wholeSeconds && lag >= 0 && lag < 1.0 ? 0.0 : std::max(0.0, lag);
    }
  }
  elapsed = position->get<double>();
  rate = hasRate ? rateValue->get<double>() : playing ? 1.0 : 0.0;
  anchorUptime = now - age;
  playingFlag = playing;
  const auto name = merged.find("title");
  title = name != merged.end() && name->is_string() ? name->get<std::string>() : std::string();
  ok = true;
  statusText.clear();
}

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date.
long long daysFromCivil(int y, int m, int d) {
  y -= m <= 2;
  const int era = (y >= 0 ? y : y - 399) / 400;
  const int yoe = y - era * 400;
  const int doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return static_cast<long long>(era) * 146097 + doe - 719468;
}

bool readDigits(std::string_view s, std::size_t at, std::size_t count, int& value) {
  if (at + count > s.size()) return false;
  value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    value = value * 10 + (s[i] - '0');
  }
  return true;
}

}  // namespace

std::optional<double> MediaRemoteSync::parseDate(std::string_view text) {
  // 0123456789012345678901234
  // yyyy-MM-ddTHH:mm:ss.SSSZ  or  yyyy-MM-ddTHH:mm:ssZ
  int year, month, day, hour, minute, second, millis = 0;
  const bool withMillis = text.size() == 24;
  if (!withMillis && text.size() != 20) return std::nullopt;
  if (!readDigits(text, 0, 4, year) || text[4] != '-' || !readDigits(text, 5, 2, month) || text[7] != '-' ||
      !readDigits(text, 8, 2, day) || text[10] != 'T' || !readDigits(text, 11, 2, hour) || text[13] != ':' ||
      !readDigits(text, 14, 2, minute) || text[16] != ':' || !readDigits(text, 17, 2, second)) {
    return std::nullopt;
  }
  if (withMillis && (text[19] != '.' || !readDigits(text, 20, 3, millis))) return std::nullopt;
  if (text.back() != 'Z') return std::nullopt;
  static constexpr int monthDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (month < 1 || month > 12 || day < 1 || day > monthDays[month - 1] || (month == 2 && day == 29 && !leap) ||
      hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  const double days = static_cast<double>(daysFromCivil(year, month, day));
  return days * 86400.0 + hour * 3600.0 + minute * 60.0 + second + millis / 1000.0;
}

}  // namespace lumerix
