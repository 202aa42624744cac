#pragma once

#include <optional>
#include <string>
#include <vector>

// What lumerix-mpris says about MPRIS players, independent of D-Bus: the
// answers of its two modes and which player it follows.
namespace lumerix::mpris {

inline constexpr const char* busPrefix = "org.mpris.MediaPlayer2.";

struct Player {
  std::string busName;             // org.mpris.MediaPlayer2.mpv, ...instance42
  std::string playbackStatus;      // "Playing", "Paused", "Stopped" (or anything a player invents)
  std::optional<double> position;  // seconds; absent when the player has none
  double rate = 1.0;
  std::string title;
};

// org.mpris.MediaPlayer2.NAME and its instances NAME.*; every player when
// name is empty.
bool matches(const std::string& busName, const std::string& name);
// NAME as one of the dot-separated parts after org.mpris.MediaPlayer2., in
// any case: "celluloid" for ...io.github.celluloid_player.Celluloid.instance-1.
// Asked only when no player matches exactly.
bool matchesLoosely(const std::string& busName, const std::string& name);
// The bus names that NAME picks: those that match it exactly, else those
// that match it loosely. Everything that follows "the player" asks this.
std::vector<std::string> picked(const std::vector<std::string>& busNames, const std::string& name);
std::vector<std::string> picked(const std::vector<Player>& players, const std::string& name);

// A track's name from its address where the player gives no title (players
// playing files without a title tag): the file name, percent-decoded,
// without its extension. "file:///v/Show.S01E02.mkv" gives "Show.S01E02".
std::string titleFromUrl(const std::string& url);

// The player to follow among those on the bus, in bus order: the first that
// is playing, else the one that played last if still there, else the first
// paused one, else none. The stream records the last player that played
// (playedLastFile) so that a one-shot poll chooses as it does.
std::optional<std::string> choose(const std::vector<Player>& players, const std::string& name,
                                  const std::optional<std::string>& playedLast);

// Where the stream keeps the bus name of the last player that played:
// $XDG_RUNTIME_DIR/lumerix/played-last, else the same under
// $XDG_CACHE_HOME or ~/.cache; absent when none of them is set.
std::optional<std::string> playedLastFile();
std::optional<std::string> readPlayedLast(const std::string& file);
void writePlayedLast(const std::string& file, const std::string& busName);

// One line in the poll answer grammar, with the player's rate after the
// position: "true|12.5|1|Title", "false|missing value|1|Title", "off" (no
// player), never with a line break inside.
std::string pollAnswer(const std::optional<Player>& player);
std::string pollError(int code);  // "err|N"

// "yyyy-MM-ddTHH:mm:ss.SSSZ" for wall-clock seconds since the epoch.
std::string isoTimestamp(double wallSeconds);

// One stream line: {"type":"data","diff":...,"payload":{...}}. A full
// payload has every key; a diff only those given. elapsedTime and
// timestamp always travel together, as the position's sample; a diff says
// "elapsedTime": null when the position is gone (the player stopped), so
// the reader does not keep an old one.
struct Payload {
  std::optional<std::string> bundleIdentifier, title;
  std::optional<bool> playing;
  std::optional<double> playbackRate;
  std::optional<double> elapsedTime;
  std::optional<double> sampledAt;  // wall seconds; becomes "timestamp"
  bool positionGone = false;
  // Nothing to say: a diff like that is not worth a line.
  bool empty() const {
    return !bundleIdentifier && !title && !playing && !playbackRate && !elapsedTime && !positionGone;
  }
};
std::string streamLine(const Payload& payload, bool diff);
Payload fullPayload(const Player& player, double sampledAt);
// What changed from `before` to `now` (the same player), sampled at sampledAt.
Payload diffPayload(const Player& before, const Player& now, double sampledAt);

}  // namespace lumerix::mpris
