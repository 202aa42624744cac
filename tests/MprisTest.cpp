#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "linux/Mpris.h"
#include "sync/MediaRemoteSync.h"
#include "sync/TVSync.h"

namespace lumerix {
namespace {

using mpris::Player;

Player player(std::string name, std::string status, std::optional<double> position = 12.5, std::string title = "Ep") {
  return {"org.mpris.MediaPlayer2." + std::move(name), std::move(status), position, 1.0, std::move(title)};
}

TEST(MprisHelper, PlayerChoice) {
  const std::vector<Player> bus{player("chromium.instance7", "Paused"), player("mpv", "Stopped"),
                                player("vlc.instance42", "Playing"), player("vlcx", "Playing")};
  EXPECT_EQ(mpris::choose(bus, "", std::nullopt), "org.mpris.MediaPlayer2.vlc.instance42");     // first playing
  EXPECT_EQ(mpris::choose(bus, "vlc", std::nullopt), "org.mpris.MediaPlayer2.vlc.instance42");  // NAME.* instance
  EXPECT_EQ(mpris::choose(bus, "chromium", std::nullopt), "org.mpris.MediaPlayer2.chromium.instance7");  // paused
  EXPECT_EQ(mpris::choose(bus, "mpv", "org.mpris.MediaPlayer2.mpv"), "org.mpris.MediaPlayer2.mpv");      // played last
  EXPECT_EQ(mpris::choose(bus, "mpv", std::nullopt), std::nullopt);  // stopped and never seen playing
  EXPECT_EQ(mpris::choose(bus, "totem", std::nullopt), std::nullopt);
  const std::vector<Player> idle{player("a", "Stopped"), player("b", "Paused")};
  EXPECT_EQ(mpris::choose(idle, "", "org.mpris.MediaPlayer2.a"), "org.mpris.MediaPlayer2.a");
  EXPECT_EQ(mpris::choose(idle, "", "org.mpris.MediaPlayer2.gone"), "org.mpris.MediaPlayer2.b");
  // A name that no bus name starts with is looked for among their parts.
  const std::vector<Player> desktop{player("io.github.celluloid_player.Celluloid.instance-1", "Playing"),
                                    player("chromium.instance4021", "Paused"),
                                    player("firefox.instance_1_84", "Paused")};
  EXPECT_EQ(mpris::choose(desktop, "celluloid", std::nullopt),
            "org.mpris.MediaPlayer2.io.github.celluloid_player.Celluloid.instance-1");
  EXPECT_EQ(mpris::choose(desktop, "Firefox", std::nullopt), "org.mpris.MediaPlayer2.firefox.instance_1_84");
  EXPECT_EQ(mpris::choose(desktop, "github", std::nullopt),
            "org.mpris.MediaPlayer2.io.github.celluloid_player.Celluloid.instance-1");
  EXPECT_EQ(mpris::choose(desktop, "cellu", std::nullopt), std::nullopt);  // whole parts only
  EXPECT_EQ(mpris::choose(desktop, "vlc", std::nullopt), std::nullopt);

  // Players that play files without a title tag give their address.
  EXPECT_EQ(mpris::titleFromUrl("file:///home/me/TV/Show.S01E02.mkv"), "Show.S01E02");
  EXPECT_EQ(mpris::titleFromUrl("file:///home/me/My%20Show%20-%2003.mp4"), "My Show - 03");
  EXPECT_EQ(mpris::titleFromUrl("file:///v/%E5%89%A7%E9%9B%86%2007.webm"), "剧集 07");
  EXPECT_EQ(mpris::titleFromUrl("https://example.org/watch/Episode.4?t=10#x"), "Episode");
  EXPECT_EQ(mpris::titleFromUrl("file:///v/.hidden"), ".hidden");
  EXPECT_EQ(mpris::titleFromUrl("file:///v/bad%zz%4"), "bad%zz%4");

  // The stream's memory of who played last is what the one-shot poll reads.
  test::TempDir dir;
  const std::string memory = dir.path("lumerix/played-last");
  EXPECT_EQ(mpris::readPlayedLast(memory), std::nullopt);
  mpris::writePlayedLast(memory, "org.mpris.MediaPlayer2.mpv");
  EXPECT_EQ(mpris::readPlayedLast(memory), "org.mpris.MediaPlayer2.mpv");
  dir.write("lumerix/played-last", "rubbish\n");
  EXPECT_EQ(mpris::readPlayedLast(memory), std::nullopt);
  // Poll and stream must agree on the file, with or without a runtime folder.
  const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
  ::setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
  EXPECT_EQ(mpris::playedLastFile(), "/run/user/1000/lumerix/played-last");
  ::unsetenv("XDG_RUNTIME_DIR");
  ::setenv("HOME", "/home/me", 1);
  ::unsetenv("XDG_CACHE_HOME");
  EXPECT_EQ(mpris::playedLastFile(), "/home/me/.cache/lumerix/played-last");
  ::setenv("XDG_CACHE_HOME", "relative/is/ignored", 1);
  EXPECT_EQ(mpris::playedLastFile(), "/home/me/.cache/lumerix/played-last");
  ::unsetenv("XDG_CACHE_HOME");
  ::unsetenv("HOME");
  EXPECT_EQ(mpris::playedLastFile(), std::nullopt);
  if (!home.empty()) ::setenv("HOME", home.c_str(), 1);
}

// The answers must read the way the poller and the stream expect them.
TEST(MprisHelper, AnswersReadBackThroughTheSources) {
  Player fast = player("mpv", "Playing", 12.5, "Show | Part 1");
  fast.rate = 1.5;
  EXPECT_EQ(mpris::pollAnswer(fast), "true|12.5|1.5|Show | Part 1");
  EXPECT_EQ(mpris::pollAnswer(player("mpv", "Paused", 0.04, "Two\nlines")), "false|0.04|1|Two lines");
  EXPECT_EQ(mpris::pollAnswer(player("mpv", "Stopped", 3.0)), "false|missing value|1|Ep");
  EXPECT_EQ(mpris::pollAnswer(player("mpv", "Playing", std::nullopt)), "true|missing value|1|Ep");
  EXPECT_EQ(mpris::pollAnswer(std::nullopt), "off");
  EXPECT_EQ(mpris::pollError(2), "err|2");

  test::FakeSystem system;
  TVSync::Options linux;
  linux.answerCarriesRate = true;
  TVSync tv(system, linux);
  tv.applyPoll(mpris::pollAnswer(player("mpv", "Playing", 1234.56789, "Show | Part 1")), "", system.now, system.now);
  EXPECT_DOUBLE_EQ(*tv.snapshot().position, 1234.56789);
  EXPECT_EQ(tv.snapshot().track, "Show | Part 1");

  EXPECT_EQ(mpris::isoTimestamp(1.7e9 + 0.25), "2023-11-14T22:13:20.250Z");
  EXPECT_EQ(mpris::isoTimestamp(1.7e9 + 0.9996), "2023-11-14T22:13:21.000Z");
  MediaRemoteSync mr(
      system, [] { return std::nullopt; }, "org.mpris.MediaPlayer2.vlc", 2.0,
      MediaRemoteSync::TargetMatch::withInstances, linuxSourceTexts("vlc", {}).stream);
  system.wall = 1.7e9 + 2.0;  // two seconds after the sample
  mr.consume(mpris::streamLine(mpris::fullPayload(player("vlc.instance42", "Playing", 40.0, "Ep 2"), 1.7e9), false) +
             "\n");
  EXPECT_DOUBLE_EQ(*mr.snapshot().position, 42.0);
  EXPECT_EQ(mr.snapshot().track, "Ep 2");
  mpris::Payload pause;
  pause.playing = false;
  pause.elapsedTime = 45.0;
  pause.sampledAt = 1.7e9 + 2.0;
  const std::string diff = mpris::streamLine(pause, true);
  EXPECT_EQ(nlohmann::json::parse(diff)["payload"].size(), 3u);  // playing, elapsedTime, timestamp
  mr.consume(diff + "\n");
  EXPECT_DOUBLE_EQ(*mr.snapshot().position, 45.0);
  EXPECT_FALSE(mr.snapshot().playing);
  // The player stops: its position is gone, not frozen where it was.
  const std::string stop = mpris::streamLine(
      mpris::diffPayload(player("vlc.instance42", "Paused", 45.0), player("vlc.instance42", "Stopped", 45.0), 1.7e9),
      true);
  EXPECT_EQ(nlohmann::json::parse(stop)["payload"], nlohmann::json::parse(R"({"playing":false,"elapsedTime":null})"));
  // Playing on without a position: nothing changed, nothing to send.
  EXPECT_TRUE(mpris::diffPayload(player("vlc", "Playing", std::nullopt), player("vlc", "Playing", std::nullopt), 1.7e9)
                  .empty());
  EXPECT_FALSE(mpris::diffPayload(player("vlc", "Playing", 1.0), player("vlc", "Playing", 1.0), 1.7e9).empty());
  mr.consume(stop + "\n");
  EXPECT_EQ(mr.snapshot().position, std::nullopt);
  EXPECT_EQ(mr.snapshot().status, "vlc reports no playback position yet");
  mr.consume(mpris::streamLine({}, false) + "\n");  // no player left
  EXPECT_EQ(mr.snapshot().status, "Nothing is playing");
  // Another player than the chosen one is not followed.
  mr.consume(mpris::streamLine(mpris::fullPayload(player("vlcx", "Playing"), 1.7e9), false) + "\n");
  EXPECT_EQ(mr.snapshot().status, "Active player is org.mpris.MediaPlayer2.vlcx — waiting for vlc");
}

}  // namespace
}  // namespace lumerix
