#include <gtest/gtest.h>

#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "sync/MediaRemoteSync.h"

namespace lumerix {
namespace {

using test::FakeSystem;

std::string line(const std::string& payload, const char* diff = "false") {
  return std::string(R"({"type":"data","diff":)") + diff + R"(,"payload":)" + payload + "}\n";
}

struct Stream {
  FakeSystem clock;
  MediaRemoteSync mr{clock, [] { return std::nullopt; }};
  double position() { return mr.snapshot().position.value_or(-1); }
};

TEST(MediaRemoteLines, LinesAreCutAcrossReadsAndJunkIsDropped) {
  Stream s;
  EXPECT_EQ(s.mr.snapshot(), (SyncSnapshot{std::nullopt, false, "", "Connecting to media services…", false, false}));
  const std::string first = line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":false,"title":"A"})");
  s.mr.consume(first.substr(0, 30));
  EXPECT_FALSE(s.mr.snapshot().position);  // half a line does nothing yet
  s.mr.consume(first.substr(30) + "garbage\n[1,2]\n{\"type\":\"log\",\"payload\":{}}\n" +
               R"({"type":"data","payload":"no object"})" + "\n\r\n");
  EXPECT_DOUBLE_EQ(s.position(), 10);
  // Two objects in one read; a carriage return before the line feed is fine.
  s.mr.consume(line(R"({"elapsedTime":11})", "true") + line(R"({"elapsedTime":12})", "true"));
  EXPECT_DOUBLE_EQ(s.position(), 12);
  s.mr.consume("{\"type\":\"data\",\"diff\":true,\"payload\":{\"elapsedTime\":13}}\r\n");
  EXPECT_DOUBLE_EQ(s.position(), 13);
}

// A helper that never ends its line costs at most a megabyte, and the
// stream picks up again at the next line feed.
TEST(MediaRemoteLines, EndlessLinesAreDroppedWhole) {
  Stream s;
  const std::string chunk(64 << 10, 'x');
  for (int i = 0; i < 64; ++i) s.mr.consume(chunk);  // 4 MiB, no line feed
  EXPECT_LE(s.mr.pendingBytes(), MediaRemoteSync::maxLineBytes);
  s.mr.consume(R"({"type":"data","payload":{"bundleIdentifier":"com.apple.TV","elapsedTime":3}})"
               "\n");
  EXPECT_FALSE(s.mr.snapshot().position);  // still the end of the long line
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":4})"));
  EXPECT_DOUBLE_EQ(s.position(), 4);
  EXPECT_EQ(s.mr.pendingBytes(), 0u);
}

TEST(MediaRemoteLines, DiffsMergeAndFullPayloadsReplace) {
  Stream s;
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":5,"playing":true,"title":"Ep 1"})"));
  s.mr.consume(line(R"({"elapsedTime":50})", "true"));
  auto snap = s.mr.snapshot();
  EXPECT_EQ(snap.track, "Ep 1");
  EXPECT_TRUE(snap.playing);
  EXPECT_DOUBLE_EQ(*snap.position, 50);
  // "diff" that is not the boolean true means a full payload.
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":7})", "\"yes\""));
  snap = s.mr.snapshot();
  EXPECT_EQ(snap.track, "");
  EXPECT_FALSE(snap.playing);
  // A payload that names no player changes nothing.
  s.mr.consume(line(R"({"elapsedTime":99,"title":"ignored"})"));
  EXPECT_DOUBLE_EQ(s.position(), 7);
  EXPECT_EQ(s.mr.snapshot().track, "");
}

TEST(MediaRemoteLines, RateAndTimestampPlaceTheAnchor) {
  Stream s;
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":true})"));
  s.clock.advance(2);
  EXPECT_DOUBLE_EQ(s.position(), 12);  // playing without a rate: 1 s per second
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":true,"playbackRate":2})"));
  s.clock.advance(2);
  EXPECT_DOUBLE_EQ(s.position(), 14);
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":false,"playbackRate":1})"));
  s.clock.advance(5);
  EXPECT_DOUBLE_EQ(s.position(), 10);  // paused: still, whatever the rate says

  // 2023-11-14T22:13:20Z is 1.7e9 s after the epoch, the fake wall clock's start.
  s.clock.wall = 1.7e9 + 3;
  const std::pair<const char*, double> stamps[] = {
      {"2023-11-14T22:13:20Z", 13}, {"2023-11-14T22:13:20.500Z", 12.5}, {"2023-11-14T22:13:30Z", 10},
      {"2023-11-14 22:13:20Z", 10}, {"2023-11-14T22:13:20.5Z", 10},     {"2023-11-14T22:13:20+00:00", 10},
      {"2023-02-29T22:13:20Z", 10},
  };
  auto stampedAt = [&](const char* stamp) {
    s.mr.consume(
        line(std::string(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":true,"timestamp":")") +
             stamp + "\"}"));
    return s.position();
  };
  for (const auto& [stamp, expected] : stamps) EXPECT_DOUBLE_EQ(stampedAt(stamp), expected) << stamp;
  // Whole seconds less than one second old: the sample is taken as fresh,
  // since the stamp only says which second it fell in. Millisecond stamps
  // keep their age.
  s.clock.wall = 1.7e9 + 0.6;
  EXPECT_DOUBLE_EQ(stampedAt("2023-11-14T22:13:20Z"), 10);
  EXPECT_NEAR(stampedAt("2023-11-14T22:13:20.000Z"), 10.6, 1e-6);
  s.clock.wall = 1.7e9 + 1.0;
  EXPECT_DOUBLE_EQ(stampedAt("2023-11-14T22:13:20Z"), 11);
  EXPECT_EQ(MediaRemoteSync::parseDate("2024-02-29T00:00:00.001Z"), 1709164800.001);
  EXPECT_EQ(MediaRemoteSync::parseDate("1970-01-01T00:00:00Z"), 0.0);
}

TEST(MediaRemoteLines, StatusTextsForEachKindOfNothing) {
  Stream s;
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":10,"playing":true,"title":"Ep"})"));
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.Music","elapsedTime":3,"playing":true})"));
  EXPECT_EQ(s.mr.snapshot(), (SyncSnapshot{std::nullopt, true, "Ep",
                                           "Active player is com.apple.Music — waiting for the TV app", true, false}));
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","elapsedTime":null})"));
  EXPECT_EQ(s.mr.snapshot().status, "TV app reports no playback position yet");
  EXPECT_FALSE(s.mr.snapshot().idle);
  s.mr.consume(line("{}"));
  EXPECT_EQ(s.mr.snapshot().status, "Nothing is playing");
  EXPECT_TRUE(s.mr.snapshot().idle);
  // Numbers no player plays are no position, not an infinite clock.
  for (const char* broken : {R"("elapsedTime":1e300)", R"("elapsedTime":12444444444444444445)", R"("elapsedTime":-2e9)",
                             R"("elapsedTime":5,"playbackRate":1e308)"}) {
    s.mr.consume(line(std::string(R"({"bundleIdentifier":"com.apple.TV","playing":true,)") + broken + "}"));
    EXPECT_EQ(s.mr.snapshot().status, "TV app reports no playback position yet") << broken;
  }
  s.mr.consume(line(R"({"bundleIdentifier":"com.apple.TV","playing":true,"elapsedTime":5,"playbackRate":2})"));
  EXPECT_DOUBLE_EQ(s.position(), 5);
  // A line nested past all reason is dropped: copying it would overflow the stack.
  s.mr.consume(line(R"({"elapsedTime":7,"junk":)" + std::string(80000, '[') + std::string(80000, ']') + "}", "true"));
  EXPECT_DOUBLE_EQ(s.position(), 5);

  // With no chosen player, any player's information counts.
  MediaRemoteSync any(
      s.clock, [] { return std::nullopt; }, "");
  any.consume(line(R"({"bundleIdentifier":"org.mpris.MediaPlayer2.mpv","elapsedTime":3})"));
  EXPECT_TRUE(any.snapshot().position);
}

// The real thread and real helper processes.
TEST(MediaRemoteThread, StreamsFromAHelperAndStopsCleanly) {
  test::TempDir dir;
  FakeSystem clock;
  clock.realTime = true;
  const int threadsBefore = test::threadCount();
  {
    MediaRemoteSync mr(clock, [&] {
      return std::optional<std::vector<std::string>>({test::helper("split-stream.sh"), dir.path("pids")});
    });
    mr.start();
    ASSERT_TRUE(test::waitFor([&] { return mr.snapshot().position.has_value(); }));
    EXPECT_EQ(mr.snapshot().track, "Show S01E02");
    // Two lines of one write: the title, then the position a moment later.
    ASSERT_TRUE(test::waitFor([&] {
      const auto s = mr.snapshot();
      return s.track == "Show S01E03" && s.position.value_or(0) >= 100;
    }));
    mr.cancel();
    mr.cancel();
    EXPECT_TRUE(test::processGroupGone(test::firstPid(dir.path("pids"))));
  }
  EXPECT_EQ(test::threadCount(), threadsBefore);
}

TEST(MediaRemoteThread, AHelperThatIgnoresStoppingDoesNotHoldUpQuitting) {
  test::TempDir dir;
  FakeSystem clock;
  clock.realTime = true;
  const auto begin = std::chrono::steady_clock::now();
  {
    MediaRemoteSync mr(clock, [&] {
      return std::optional<std::vector<std::string>>({test::helper("ignore-term.sh"), dir.path("pids")});
    });
    mr.start();
    ASSERT_TRUE(test::waitFor([&] { return test::firstPid(dir.path("pids")) > 0; }));
    mr.cancel();
  }  // joins the reader thread: only possible once the helper is gone
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_TRUE(test::processGroupGone(test::firstPid(dir.path("pids"))));
}

TEST(MediaRemoteThread, AHelperThatExitsIsRelaunchedAfterTheDelayUntilCancelled) {
  test::TempDir dir;
  FakeSystem clock;
  clock.realTime = true;
  const std::string launches = dir.path("launches");
  MediaRemoteSync mr(
      clock,
      [&] {
        return std::optional<std::vector<std::string>>({test::helper("exit-at-once.sh"), launches});
      },
      "com.apple.TV", 0.1);
  mr.start();
  ASSERT_TRUE(test::waitFor([&] { return test::lineCount(launches) >= 4; }));
  EXPECT_EQ(mr.snapshot().status, "Sync helper stopped — restarting…");
  mr.cancel();
  const int after = test::lineCount(launches);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(test::lineCount(launches), after + 1);  // one launch may have been under way
}

TEST(MediaRemoteThread, MissingOrUnlaunchableHelpersArePermanent) {
  FakeSystem clock;
  MediaRemoteSync missing(
      clock, [] { return std::nullopt; }, "com.apple.TV", 0.01);
  missing.start();
  EXPECT_TRUE(test::waitFor([&] { return missing.snapshot().status == "Sync helper is missing from the app bundle"; }));

  MediaRemoteSync broken(
      clock, [] { return std::optional<std::vector<std::string>>({test::helper("not-executable.sh")}); },
      "com.apple.TV", 0.01);
  broken.start();
  EXPECT_TRUE(
      test::waitFor([&] { return broken.snapshot().status == "Cannot launch sync helper: Permission denied"; }));
}

}  // namespace
}  // namespace lumerix
