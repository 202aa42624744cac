#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "linux/LinuxSyncCommands.h"
#include "mac/MacSyncCommands.h"
#include "sync/TVSync.h"
#include "util/Numbers.h"

namespace lumerix {
namespace {

using test::FakeSystem;

// Feeds answers straight into the clock at exact times: each poll ran from
// `now` for 0.1 s, then the clock moves on by `gap`.
struct Poller {
  explicit Poller(TVSync::Options options = {}) : tv(system, std::move(options)) {}
  FakeSystem system;
  TVSync tv;

  void poll(std::string_view out, std::string_view err = "", double gap = 0.35) {
    const double t0 = system.now;
    system.advance(0.1);
    tv.applyPoll(out, err, t0, system.now);
    system.advance(gap);
  }
  double position() { return tv.snapshot().position.value_or(-1); }
};

TEST(TVSyncAnswers, FieldsAreReadAsThePlayerPrintsThem) {
  Poller p;
  EXPECT_EQ(p.tv.snapshot(), (SyncSnapshot{std::nullopt, false, "", "Connecting to the TV app…", false, false}));

  p.poll(" true |12,5| Show | Part 2 ");
  // Anchored at the middle of the run, then extrapolated to now.
  EXPECT_NEAR(p.position(), 12.5 + 0.05 + 0.35, 1e-9);
  auto s = p.tv.snapshot();
  EXPECT_TRUE(s.playing);
  EXPECT_EQ(s.track, "Show | Part 2");
  EXPECT_EQ(s.status, "");

  // Paused: the position stands still however long we wait.
  p.poll("false|20.25|");
  p.system.advance(10);
  EXPECT_DOUBLE_EQ(p.position(), 20.25);
  EXPECT_EQ(p.tv.snapshot().track, "");
}

// The position field is read the same way whatever the locale and the C
// library: the C number grammar, the whole field, finite.
TEST(TVSyncAnswers, PositionsAreCNumbersAndNothingElse) {
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"12.5", 12.5}, {"-0.25", -0.25}, {".5", 0.5},   {"5.", 5.0},   {"1e3", 1000.0}, {"2E-1", 0.2},
      {"0", 0.0},     {"", {}},         {" 1", {}},    {"1 ", {}},    {"+1", {}},      {"0x10", {}},
      {"inf", {}},    {"nan", {}},      {"1e999", {}}, {"1,5", {}},   {"--1", {}},     {"1e", {}},
      {"e5", {}},     {".", {}},        {"-", {}},     {"1.2.3", {}}, {"١٢", {}},      {"missing value", {}},
  };
  for (const auto& [text, value] : cases) EXPECT_EQ(parseDecimal(text), value) << text;

  for (const char* answer : {"true|+7.5|A", "true|7,5|A", "true|\t7.5 |A"}) {
    Poller p;
    p.poll(answer, "", 0);
    EXPECT_NEAR(p.position(), 7.5 + 0.05, 1e-9) << answer;
  }
  EXPECT_EQ(truncatedInteger(28.9), "28");
  EXPECT_EQ(truncatedInteger(-3.7), "-3");
  EXPECT_EQ(truncatedInteger(1e300), "9223372036854775807");
  EXPECT_EQ(truncatedInteger(std::nan("")), "0");
  EXPECT_EQ(saturatedInt(27.6), 28);
  EXPECT_EQ(saturatedInt(1e300), 2147483647);
  EXPECT_EQ(saturatedInt(-1e300), -2147483647 - 1);
  EXPECT_EQ(saturatedInt(std::nan("")), 0);
}

TEST(TVSyncAnswers, SmallDifferencesAreSmoothedAndJumpsTakenAsTheyAre) {
  Poller p;
  p.poll("true|100|x", "", 0.9);  // anchor 100 at the run's middle; next run's middle is 1.0 s later
  p.poll("true|101.3|x");         // predicted 101.0, 0.3 off: moves 30 % of the way
  EXPECT_NEAR(p.position(), 101.09 + 0.05 + 0.35, 1e-9);

  p.system.advance(0.4);
  p.poll("true|90|x");  // a seek back
  EXPECT_NEAR(p.position(), 90 + 0.05 + 0.35, 1e-9);
  p.poll("false|91|x");  // a pause: taken as is even though it is close
  EXPECT_DOUBLE_EQ(p.position(), 91);
}

// Where answers carry the player's rate (Linux), the clock runs at it.
TEST(TVSyncAnswers, TheClockRunsAtThePlayersRateAndNeverBackwards) {
  TVSync::Options withRate;
  withRate.answerCarriesRate = true;
  struct RatePoller : Poller {
    explicit RatePoller(TVSync::Options o) : Poller(std::move(o)) {}
  };
  for (double rate : {0.5, 1.5}) {
    RatePoller p(withRate);
    // The player's real clock, polled every 0.45 s with a few ms of jitter
    // in what it reports; the clock sampled as the ticks would.
    const double start = p.system.now;
    double shown = -1, worst = 0;
    for (int i = 0; i < 60; ++i) {
      const double truth = 100 + (p.system.now + 0.05 - start) * rate;
      const double jitter = (i % 3 - 1) * 0.004;
      p.poll("true|" + std::to_string(truth + jitter) + "|" + std::to_string(rate) + "|x", "", 0.0);
      for (int k = 0; k < 35; ++k) {
        const double now = p.position();
        EXPECT_GE(now, shown - 0.002) << "went back at rate " << rate << ", poll " << i;
        shown = now;
        if (i > 2) worst = std::max(worst, std::fabs(now - (100 + (p.system.now - start) * rate)));
        p.system.advance(0.01);
      }
    }
    EXPECT_LT(worst, 0.02) << "rate " << rate;
  }

  RatePoller p(withRate);
  p.poll("true|10|1|x");
  p.poll("true|10.45|0|x");  // playing at rate 0: stalled or seeking, no extrapolation
  p.system.advance(2);
  EXPECT_DOUBLE_EQ(p.position(), 10.45);
  p.poll("true|10.45|2|x");  // a new speed is taken at once
  EXPECT_NEAR(p.position(), 10.45 + 2 * (0.05 + 0.35), 1e-9);
  p.poll("true|1|-3|x");  // nonsense rates are no answer
  p.poll("true|1|nan|x");
  p.poll("true|1|1e9|x");
  EXPECT_EQ(p.tv.snapshot().status, "Cannot read the TV app (check Automation permission)");

  // Playing without a position (a stream loading) is not idle: the stream
  // may know better. Paused without one is.
  RatePoller q(withRate);
  for (int i = 0; i < 3; ++i) q.poll("true|missing value|1|x");
  EXPECT_FALSE(q.tv.snapshot().idle);
  for (int i = 0; i < 3; ++i) q.poll("false|missing value|1|x");
  EXPECT_TRUE(q.tv.snapshot().idle);
}

// Players that count in steps: Firefox reports whole seconds, VLC and Totem
// move every quarter second or so. The clock follows the player's real
// position (the step edges), not its rounded answers, never runs back, and a
// position that sits on a step is not a stall.
TEST(TVSyncAnswers, SteppedPositionsAreFollowedOnTheirEdges) {
  TVSync::Options linux;
  linux.answerCarriesRate = true;
  linux.stepEdges = true;
  struct Player {
    double step, rate, within;
    double saysRate = 0;  // every other answer: VLC set to 1.5 says 1.5015 at times
  };
  for (Player player :
       {Player{1.0, 1.0, 0.15}, Player{1.0, 1.5, 0.15}, Player{0.26, 0.5, 0.05}, Player{0.26, 1.0, 0.05},
        Player{0.26, 1.5, 0.05, 1.5015}, Player{0.5, 1.5, 0.1}, Player{0.0, 1.0, 0.005}}) {
    Poller p(linux);
    const double start = p.system.now;
    auto truth = [&](double at) { return 100 + (at - start) * player.rate; };
    double shown = -1, worst = 0;
    for (int i = 0; i < 40; ++i) {
      const double t = truth(p.system.now + 0.05);  // the player answers in the middle of the run
      const double reported = player.step > 0 ? std::floor(t / player.step) * player.step : t;
      const double says = player.saysRate > 0 && i % 2 ? player.saysRate : player.rate;
      p.poll("true|" + cFormat("%.6f|%g", reported, says) + "|x", "", 0.0);
      EXPECT_FALSE(p.tv.snapshot().holding) << "step " << player.step << ", poll " << i;
      const double gap = TVSync::steppedPollGap(i + 1, 0.35);
      ASSERT_NEAR(gap, 0.35, 0.05);
      for (double waited = 0; waited < gap; waited += 0.05) {  // the display's ticks
        const double now = p.position();
        EXPECT_GE(now, shown - 1e-9) << "went back: step " << player.step << ", poll " << i;
        shown = now;
        if (i >= 10) worst = std::max(worst, std::fabs(now - truth(p.system.now)));
        p.system.advance(std::min(0.05, gap - waited));
      }
    }
    EXPECT_LT(worst, player.within) << "step " << player.step << " at " << player.rate << "x";
  }

  // Seeks either way are taken at once, also a short one back on a precise
  // player; a position that stays put well past its step is a stall.
  Poller p(linux);
  double at = 10;
  for (int i = 0; i < 10; ++i) {
    // Answers a little more or less apart, as polls come: a precise player
    // moves by however long it played, never in whole steps.
    const double gap = 0.33 + 0.02 * (i % 3);
    p.poll(cFormat("true|%.3f|1|x", at), "", gap);
    at += 0.1 + gap;
  }
  p.poll(cFormat("true|%.3f|1|x", at - 1.0));  // one second back
  EXPECT_NEAR(p.position(), at - 1.0 + 0.4, 1e-6);
  p.poll("true|60|1|x");
  EXPECT_NEAR(p.position(), 60.4, 1e-6);
  p.poll("true|60.45|1|x");
  EXPECT_FALSE(p.tv.snapshot().holding);
  for (int i = 0; i < 2; ++i) p.poll("true|60.45|1|x");
  EXPECT_TRUE(p.tv.snapshot().holding);
  EXPECT_DOUBLE_EQ(p.position(), 60.45);
}

TEST(TVSyncAnswers, AnswersAtThePlayersOwnPeriodStillFindItsStep) {
  // VLC moves its position half a second every third of a second at 1.5x;
  // polls a little slower than that see it at nearly one phase of its step
  // for seconds on end, where their spread shows far less than the step.
  TVSync::Options linux;
  linux.answerCarriesRate = true;
  linux.stepEdges = true;
  struct Player {
    double step, rate;
  };
  for (Player player : {Player{0.5, 1.5}, Player{1.0 / 3, 1.0}}) {
    int ticks = 0, off = 0;
    double worst = 0;
    for (double phase = 0; phase < player.step; phase += player.step / 10) {
      FakeSystem system;
      TVSync tv(system, linux);
      const double start = system.now;
      auto truth = [&](double at) { return 100 + phase + (at - start) * player.rate; };
      for (int i = 0; i < 200; ++i) {
        const double t0 = system.now;  // a helper answers in a millisecond or two
        const double reported = std::floor(truth(t0 + 0.001) / player.step) * player.step;
        system.advance(0.002);
        tv.applyPoll("true|" + cFormat("%.6f|%g", reported, player.rate) + "|x", "", t0, system.now);
        const double gap = TVSync::steppedPollGap(i + 1, 0.35);
        for (double waited = 0; waited < gap; waited += 0.05) {
          if (i >= 20) {
            const double wallError = std::fabs(tv.snapshot().position.value_or(-1) - truth(system.now)) / player.rate;
            worst = std::max(worst, wallError);
            off += wallError > 0.075;
            ++ticks;
          }
          system.advance(std::min(0.05, gap - waited));
        }
      }
    }
    // Half a step behind would be 167 ms (1.5x) and 167 ms (1x) of the screen's time.
    EXPECT_LT(worst, 0.12) << player.step << " at " << player.rate << "x";
    EXPECT_LT(off, ticks / 30) << player.step << " at " << player.rate << "x";
  }
}

TEST(TVSyncAnswers, AFrozenPositionWhilePlayingHoldsTheClock) {
  Poller p;
  p.poll("true|50|x");
  p.poll("true|50|x");  // once: could be jitter, still extrapolating
  EXPECT_FALSE(p.tv.snapshot().holding);
  p.poll("true|50.0005|x");  // twice within a millisecond: a stall
  auto s = p.tv.snapshot();
  EXPECT_TRUE(s.holding);
  EXPECT_DOUBLE_EQ(*s.position, 50.0005);
  p.system.advance(5);
  EXPECT_DOUBLE_EQ(p.position(), 50.0005);
  p.poll("true|50.6|x");  // moving again
  EXPECT_FALSE(p.tv.snapshot().holding);
  EXPECT_GT(p.position(), 50.6);
}

TEST(TVSyncAnswers, FailuresNeedThreeInARowExceptRefusedPermission) {
  struct Case {
    const char* out;
    const char* err;
    bool idle;
    const char* status;
  };
  const Case cases[] = {
      {"false|missing value|", "", true, "TV app is not playing"},
      {"off", "", true, "TV app is not playing"},
      {"err|-1728", "", true, "TV app is not playing"},
      {"", "", false, "Cannot read the TV app (check Automation permission)"},  // no answer or timed out
      {"true|twelve|x", "", false, "Cannot read the TV app (check Automation permission)"},
      {"true|1e300|x", "", false, "Cannot read the TV app (check Automation permission)"},    // broken, not long
      {"true|5|Ep \xe2", "", false, "Cannot read the TV app (check Automation permission)"},  // not UTF-8
      {"true|12.5", "", false, "Cannot read the TV app (check Automation permission)"},       // two fields
      {"true|inf|x", "", false, "Cannot read the TV app (check Automation permission)"},
  };
  for (const Case& c : cases) {
    Poller p;
    p.poll("true|10|Show");
    p.poll(c.out, c.err);
    p.poll(c.out, c.err);
    EXPECT_TRUE(p.tv.snapshot().position) << c.out << ": two failures keep the clock running";
    p.poll(c.out, c.err);
    auto s = p.tv.snapshot();
    EXPECT_FALSE(s.position) << c.out;
    EXPECT_EQ(s.idle, c.idle) << c.out;
    EXPECT_EQ(s.status, c.status) << c.out;
    EXPECT_EQ(s.track, "Show") << c.out << ": the last name is kept";
    EXPECT_TRUE(s.playing) << c.out << ": so is the last state";
    p.poll("true|30|Next");
    EXPECT_EQ(p.tv.snapshot().status, "") << c.out << ": a good poll recovers";
  }

  for (auto [out, err] : {std::pair{"err|-1743", ""}, std::pair{"", "execution error: Not authorized (-1743)"}}) {
    Poller p;
    p.poll("true|10|Show");
    p.poll(out, err);
    auto s = p.tv.snapshot();
    EXPECT_FALSE(s.position);
    EXPECT_FALSE(s.idle);
    EXPECT_EQ(s.status,
              "Automation permission needed — System Settings › Privacy & Security › Automation › Lumerix → enable TV");
    EXPECT_TRUE(p.tv.permissionIssue());
    p.poll("true|11|Show");
    EXPECT_FALSE(p.tv.permissionIssue());
  }
}

TEST(TVSyncConsent, AskedUntilGrantedAtMostEveryTwentySeconds) {
  Poller p;
  p.system.running = false;
  p.tv.maybeRequestConsent();
  EXPECT_EQ(p.system.permissionRequests, 0);  // not running: ask once it starts
  p.system.running = true;
  p.system.permission = -1743;
  p.tv.maybeRequestConsent();
  EXPECT_EQ(p.system.permissionRequests, 1);
  EXPECT_TRUE(p.tv.permissionIssue());
  p.system.advance(19.9);
  p.tv.maybeRequestConsent();
  EXPECT_EQ(p.system.permissionRequests, 1);
  p.system.advance(0.2);
  p.system.permission = 0;
  p.tv.maybeRequestConsent();
  EXPECT_EQ(p.system.permissionRequests, 2);
  EXPECT_FALSE(p.tv.permissionIssue());
  p.system.advance(60);
  p.tv.maybeRequestConsent();
  EXPECT_EQ(p.system.permissionRequests, 2);  // granted: never asked again

  // Refused by the system, then polls fail: the permission wording, after
  // the usual grace.
  Poller q;
  q.system.permission = -1743;
  q.tv.maybeRequestConsent();
  q.poll("");
  q.poll("");
  EXPECT_EQ(q.tv.snapshot().status, "Connecting to the TV app…");
  q.poll("");
  EXPECT_EQ(q.tv.snapshot().status,
            "Automation permission needed — System Settings › Privacy & Security › Automation › Lumerix → enable TV");
}

TEST(TVSyncConsent, UndecidedConsentSendsOneRealRequest) {
  test::TempDir dir;
  FakeSystem system;
  system.permission = -1744;  // the user has not been asked yet
  TVSync tv(system, {{}, {"/bin/sh", "-c", "echo asked >> " + dir.path("asked")}});
  tv.maybeRequestConsent();
  EXPECT_EQ(test::lineCount(dir.path("asked")), 1);
  system.permission = -600;  // the player quit meanwhile: no request
  system.advance(21);
  tv.maybeRequestConsent();
  EXPECT_EQ(system.permissionRequests, 2);
  EXPECT_EQ(test::lineCount(dir.path("asked")), 1);
}

// The real thread, real processes, real time.
TEST(TVSyncThread, PollsAHelperAndStopsCleanly) {
  test::TempDir dir;
  dir.write("answer", "true|12,5|Show S01E01\n");
  FakeSystem system;
  system.realTime = true;
  TVSync::Options options{{test::helper("answer-from-file.sh"), dir.path("answer")}, {}, 0.02, 5.0};
  const int threadsBefore = test::threadCount();
  {
    TVSync tv(system, options);
    tv.start();
    ASSERT_TRUE(test::waitFor([&] { return tv.snapshot().position.has_value(); }));
    auto s = tv.snapshot();
    EXPECT_GE(*s.position, 12.5);
    EXPECT_LT(*s.position, 14.0);
    EXPECT_EQ(s.track, "Show S01E01");

    // An app opened from the Finder: osascript answers in Mac OS Roman.
    dir.write("answer", "true|20|Caf\x8E S01E02\n");
    EXPECT_TRUE(test::waitFor([&] { return tv.snapshot().track == "Caf\u00e9 S01E02"; })) << tv.snapshot().track;

    dir.write("answer", "err|-1743\n");
    EXPECT_TRUE(test::waitFor([&] { return tv.permissionIssue(); }));
    tv.cancel();
    tv.cancel();
  }
  EXPECT_EQ(test::threadCount(), threadsBefore);
}

TEST(TVSyncThread, AHelperPastItsDeadlineIsKilledAndCountsAsFailure) {
  test::TempDir dir;
  FakeSystem system;
  system.realTime = true;
  TVSync tv(system, {{test::helper("record-and-hang.sh"), dir.path("pids")}, {}, 0.01, 0.2});
  tv.start();
  EXPECT_TRUE(test::waitFor([&] { return !tv.snapshot().status.starts_with("Connecting"); }));
  EXPECT_EQ(tv.snapshot().status, "Cannot read the TV app (check Automation permission)");
  EXPECT_GE(test::lineCount(dir.path("pids")), 3);
  // Cancel while a poll hangs: it returns at once and the helper goes.
  const auto begin = std::chrono::steady_clock::now();
  tv.cancel();
  std::ifstream in(dir.path("pids"));
  for (pid_t pid; in >> pid;) EXPECT_TRUE(test::processGroupGone(pid)) << pid;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

// The Linux poll: one helper for the whole session, asked a line at a time,
// and replaced when it dies or stops answering.
TEST(TVSyncThread, AResidentHelperAnswersEveryPollAndIsReplacedWhenItFails) {
  test::TempDir dir;
  dir.write("answer", "true|12.5|1|Show S01E01\n");
  FakeSystem system;
  system.realTime = true;
  TVSync::Options options{{test::helper("resident-answers.sh"), dir.path("answer"), dir.path("pids")}, {}, 0.01, 0.3};
  options.resident = true;
  options.answerCarriesRate = true;
  auto pids = [&] {
    std::vector<pid_t> all;
    std::ifstream in(dir.path("pids"));
    for (pid_t pid; in >> pid;) all.push_back(pid);
    return all;
  };
  auto distinct = [&] {
    auto all = pids();
    std::sort(all.begin(), all.end());
    return std::unique(all.begin(), all.end()) - all.begin();
  };
  TVSync tv(system, options);
  tv.start();
  ASSERT_TRUE(test::waitFor([&] { return pids().size() >= 8; }));
  EXPECT_EQ(distinct(), 1) << "one process answers every poll";
  EXPECT_EQ(tv.snapshot().track, "Show S01E01");

  dir.write("answer", "exit");  // dies halfway through an answer
  ASSERT_TRUE(test::waitFor([&] { return distinct() >= 2; }));
  dir.write("answer", "true|20|1|Show S01E02\n");
  ASSERT_TRUE(test::waitFor([&] { return tv.snapshot().track == "Show S01E02"; }));

  dir.write("answer", "hang");  // stops answering: a failed poll each time, and a new helper
  ASSERT_TRUE(test::waitFor([&] { return !tv.snapshot().position.has_value(); }));
  const auto hung = pids();
  for (std::size_t i = 0; i + 1 < hung.size(); ++i) EXPECT_TRUE(test::processGroupGone(hung[i])) << hung[i];
  tv.cancel();
  for (pid_t pid : pids()) EXPECT_TRUE(test::processGroupGone(pid)) << pid;
}

// The main thread sleeps between ticks: the poller wakes it when an answer
// changes what a snapshot says, and not for answers that say the same.
TEST(TVSyncThread, WakesItsListenerOnlyWhenAnAnswerChangesSomething) {
  test::TempDir dir;
  dir.write("answer", "false|12.5|1|Show\n");  // paused: every answer the same
  FakeSystem system;
  system.realTime = true;
  TVSync::Options options{{test::helper("resident-answers.sh"), dir.path("answer"), dir.path("pids")}, {}, 0.01, 5.0};
  options.resident = true;
  options.answerCarriesRate = true;
  auto polls = [&] {
    std::ifstream in(dir.path("pids"));
    std::size_t n = 0;
    for (pid_t pid; in >> pid;) ++n;
    return n;
  };
  std::atomic<int> wakes{0};
  TVSync tv(system, options);
  tv.onChange([&] { ++wakes; });
  tv.start();
  ASSERT_TRUE(test::waitFor([&] { return polls() >= 6; }));
  EXPECT_EQ(wakes, 1) << "the first position, then nothing new";
  dir.write("answer", "true|40|1|Show\n");  // plays, from elsewhere
  ASSERT_TRUE(test::waitFor([&] { return wakes >= 2; }));
  dir.write("answer", "false|41|1|Show\n");
  ASSERT_TRUE(test::waitFor([&] { return wakes >= 3; }));
  const std::size_t seen = polls();
  ASSERT_TRUE(test::waitFor([&] { return polls() >= seen + 6; }));
  EXPECT_EQ(wakes, 3);
  tv.cancel();
}

TEST(SyncCommandLines, EachPlatformRunsItsOwnHelpers) {
  const SyncCommands mac = macSyncCommands("/App/Contents");
  EXPECT_EQ(mac.poll, (std::vector<std::string>{"/usr/bin/osascript", "-e", std::string(TVSync::pollScript)}));
  EXPECT_EQ(mac.consent.at(2), TVSync::consentScript);
  EXPECT_EQ(mac.streamTarget, "com.apple.TV");
  EXPECT_EQ(mac.stream(), std::nullopt);  // no adapter in that bundle
  test::TempDir bundle;
  // An app bundle's private frameworks are in Contents/Frameworks: a
  // framework anywhere else is not found (nor signed by codesign --deep).
  bundle.write("Resources/mediaremote-adapter.pl", "");
  bundle.write("PrivateFrameworks/MediaRemoteAdapter.framework/x", "");
  const std::string contents = test::TempDir::parentOf(bundle.path("Resources"));
  EXPECT_EQ(macSyncCommands(contents).stream(), std::nullopt);
  bundle.write("Frameworks/MediaRemoteAdapter.framework/x", "");
  EXPECT_EQ(macSyncCommands(contents).stream(),
            (std::vector<std::string>{"/usr/bin/perl", bundle.path("Resources/mediaremote-adapter.pl"),
                                      bundle.path("Frameworks/MediaRemoteAdapter.framework"), "stream"}));

  const SyncCommands lin = linuxSyncCommands("/bin/true", "mpv");
  EXPECT_EQ(lin.poll, (std::vector<std::string>{"/bin/true", "serve", "--player", "mpv"}));
  EXPECT_TRUE(lin.consent.empty());
  EXPECT_EQ(lin.streamTarget, "");  // the helper itself follows only the named player
  EXPECT_EQ(lin.stream(), (std::vector<std::string>{"/bin/true", "stream", "--player", "mpv"}));
  EXPECT_EQ(linuxSyncCommands("/no/such/helper", "").stream(), std::nullopt);
  EXPECT_EQ(linuxSyncCommands("/bin/true", "").streamTarget, "");
}

// Run by tests/mac/check-bundle.sh on a Lumerix.app built for macOS: the
// lookup the app makes at start finds the adapter where the build put it.
TEST(MacBundle, TheAppFindsTheAdapterTheBuildBundled) {
  const char* contents = std::getenv("LUMERIX_MAC_BUNDLE_CONTENTS");
  if (!contents) GTEST_SKIP() << "LUMERIX_MAC_BUNDLE_CONTENTS names no bundle";
  const auto stream = macSyncCommands(std::string(contents)).stream();
  ASSERT_TRUE(stream) << "no adapter found in " << contents;
  ASSERT_EQ(stream->size(), 4u);
  EXPECT_EQ(stream->at(1), std::string(contents) + "/Resources/mediaremote-adapter.pl");
  EXPECT_EQ(stream->at(2), std::string(contents) + "/Frameworks/MediaRemoteAdapter.framework");
}

}  // namespace
}  // namespace lumerix
