#include <gtest/gtest.h>

#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "mac/ScreenSizes.h"
#include "sync/FusedSync.h"

namespace lumerix {
namespace {

using test::FakeSystem;

using test::ScriptedSource;

SyncSnapshot at(double position, std::string track = "") {
  return {position, true, std::move(track), "", false, false};
}
SyncSnapshot without(std::string status, bool idle = false) {
  return {std::nullopt, false, "", std::move(status), idle, false};
}

struct Fusion {
  FakeSystem system;
  ScriptedSource* tv;
  ScriptedSource* mr;
  FusedSync fused;

  explicit Fusion(bool pollerLeadsInFullscreen = false)
      : Fusion(new ScriptedSource, new ScriptedSource, pollerLeadsInFullscreen) {}
  Fusion(ScriptedSource* t, ScriptedSource* m, bool pollerLeads = false)
      : tv(t), mr(m), fused(system, std::unique_ptr<SyncSource>(t), std::unique_ptr<SyncSource>(m), pollerLeads) {}
  void setFullscreen(bool on) {
    system.windows = std::vector<WindowInfo>{{4242, on ? 1920.0 : 800.0, on ? 1080.0 : 450.0, {}}};
    system.advance(0.5);
  }
};

TEST(FusedSyncChoice, WindowedPollerWinsAndTeachesTheBias) {
  Fusion f;
  f.tv->next = at(100, "poller");
  f.mr->next = at(99, "stream");
  EXPECT_EQ(f.fused.snapshot(), at(100, "poller"));
  EXPECT_EQ(f.fused.bias(), 1.0);  // first sample taken whole
  f.mr->next = at(98);             // 2.0 apart: not learnt
  f.fused.snapshot();
  EXPECT_EQ(f.fused.bias(), 1.0);
  f.mr->next = at(99.5);  // 0.5 apart: smoothed in
  f.fused.snapshot();
  EXPECT_DOUBLE_EQ(*f.fused.bias(), 0.2 * 0.5 + 0.8 * 1.0);
  f.tv->next.holding = true;  // nothing learnt during a stall
  f.mr->next = at(99.9);
  EXPECT_TRUE(f.fused.snapshot().holding);
  EXPECT_DOUBLE_EQ(*f.fused.bias(), 0.9);

  // Full screen: the stream, on the poller's scale.
  f.setFullscreen(true);
  f.tv->next = at(120, "poller");
  f.mr->next = at(150, "stream");
  f.mr->next.playing = false;
  EXPECT_EQ(f.fused.snapshot(), (SyncSnapshot{150.9, false, "stream", "", false, false}));
  f.mr->next = without("Nothing is playing", true);
  EXPECT_EQ(f.fused.snapshot(), at(120, "poller"));  // stream has nothing: the poller's record
}

TEST(FusedSyncChoice, WhenThePollerHasNothing) {
  Fusion f;
  f.tv->next = without("TV app is not playing", true);
  f.mr->next = at(50);
  EXPECT_EQ(f.fused.snapshot(), without("TV app is not playing", true));  // idle poller is believed

  // No permission: the poller has no position and is not idle; the stream
  // stands in, shifted by nothing since no bias was ever learnt.
  f.tv->next = without("Automation permission needed", false);
  f.tv->permission = true;
  EXPECT_EQ(f.fused.snapshot(), (SyncSnapshot{50.0, true, "", "", false, false}));
  EXPECT_TRUE(f.fused.permissionIssue());

  f.tv->next = without("Connecting to the TV app…");
  f.mr->next = without("Connecting to media services…");
  EXPECT_EQ(f.fused.snapshot(), without("Connecting to media services…"));
  f.mr->next = without("");
  EXPECT_EQ(f.fused.snapshot(), without("Connecting to the TV app…"));
}

TEST(FusedSyncFullscreen, WindowSizesAgainstScreensWithinTwoPoints) {
  const std::vector<ScreenSize> screens{{1440, 900}, {2560, 1440}};
  struct Row {
    std::vector<WindowInfo> windows;
    bool full;
  };
  const Row rows[] = {
      {{{7, 2559, 1439, {}}}, true},     // 1 point smaller: still full screen
      {{{7, 2558, 1438, {}}}, false},    // 2 points smaller: not
      {{{7, 1441.5, 898.5, {}}}, true},  // the other screen, either side
      {{{8, 1440, 900, {}}}, false},     // someone else's window
      {{{7, 800, 600, {}}, {9, 1440, 900, {}}, {7, 1440, 900, {}}}, true},
      {{}, false},
  };
  for (const Row& r : rows) EXPECT_EQ(isFullscreen({7, 11}, r.windows, screens), r.full);
  EXPECT_FALSE(isFullscreen({}, std::vector<WindowInfo>{{7, 1440, 900, {}}}, screens));
  EXPECT_FALSE(isFullscreen({7}, std::nullopt, screens));  // no window list: not full screen

  // Where the window manager keeps a full-screen state (X11), it decides:
  // a maximized window as big as a screen without panels is not full screen.
  EXPECT_FALSE(isFullscreen({7}, std::vector<WindowInfo>{{7, 1440, 900, false}}, screens));
  EXPECT_TRUE(isFullscreen({7}, std::vector<WindowInfo>{{7, 1440, 880, true}}, screens));
  EXPECT_FALSE(isFullscreen({7}, std::vector<WindowInfo>{{8, 1440, 900, true}}, screens));

  // A notched 14-inch MacBook Pro: a full-screen app gets the screen less the
  // camera housing's band (32 points), and that still counts.
  const auto notched = mac::fullScreenSizes({{1512, 982, 32}, {1920, 1080, 0}});
  EXPECT_TRUE(isFullscreen({7}, std::vector<WindowInfo>{{7, 1512, 950, {}}}, notched));
  EXPECT_TRUE(isFullscreen({7}, std::vector<WindowInfo>{{7, 1512, 982, {}}}, notched));
  EXPECT_FALSE(isFullscreen({7}, std::vector<WindowInfo>{{7, 1920, 1048, {}}}, notched));  // no notch there
}

TEST(FusedSyncFullscreen, TestedAtMostTwiceASecondAndSourcesFollowTheFusion) {
  Fusion f;
  f.tv->next = at(10);
  f.mr->next = at(20);
  f.system.windows = std::vector<WindowInfo>{{4242, 1920, 1080, {}}};
  EXPECT_EQ(f.fused.snapshot().position, 20);  // first call tests at once
  EXPECT_EQ(f.system.windowQueries, 1);
  f.system.windows = std::vector<WindowInfo>{};
  for (int i = 0; i < 3; ++i) {  // steps that add up exactly
    f.system.advance(0.125);
    EXPECT_EQ(f.fused.snapshot().position, 20) << i;
  }
  EXPECT_EQ(f.system.windowQueries, 1);
  f.system.advance(0.125);  // 0.5 s since the last test
  EXPECT_EQ(f.fused.snapshot().position, 10);
  EXPECT_EQ(f.system.windowQueries, 2);

  // Where the player answers polls in full screen too (MPRIS), the poller
  // keeps the lead there; the stream fills in only while it has nothing.
  // Nothing there depends on full screen: the windows are not asked for
  // until someone wants to know.
  Fusion linux(true);
  linux.tv->next = at(10);
  linux.mr->next = at(20);
  linux.setFullscreen(true);
  for (int i = 0; i < 10; ++i, linux.system.advance(0.25)) EXPECT_EQ(linux.fused.snapshot().position, 10);
  EXPECT_EQ(linux.system.windowQueries, 0);
  EXPECT_TRUE(linux.fused.fullscreen());
  EXPECT_TRUE(linux.fused.fullscreen());
  EXPECT_EQ(linux.system.windowQueries, 1);
  linux.tv->next = without("Cannot read mpv");
  EXPECT_EQ(linux.fused.snapshot().position, 20);

  f.fused.start();
  f.fused.cancel();
  f.fused.cancel();
  EXPECT_EQ(f.tv->starts + f.mr->starts, 2);
  EXPECT_EQ(f.tv->cancels, 2);
  EXPECT_EQ(f.mr->cancels, 2);
}

}  // namespace
}  // namespace lumerix
