#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "ListenSupport.h"
#include "SyncTestSupport.h"
#include "app/Controller.h"
#include "platform/KeyCodes.h"
#include "subtitles/TimeFormat.h"
#include "util/Files.h"

namespace lumerix {
namespace {

using ::testing::Contains;
using ::testing::Not;

// A subtitle of made-up dialogue, as SubRip.
std::string srtOf(const std::vector<listen::Span>& cues) {
  std::ostringstream out;
  auto stamp = [](double t) {
    const auto ms = static_cast<long long>(std::llround(t * 1000));
    char b[32];
    std::snprintf(b, sizeof b, "%02lld:%02lld:%02lld,%03lld", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return std::string(b);
  };
  for (std::size_t i = 0; i < cues.size(); ++i) {
    out << i + 1 << '\n' << stamp(cues[i].start) << " --> " << stamp(cues[i].end) << "\nLine " << i + 1 << "\n\n";
  }
  return out.str();
}

struct ListenRig {
  test::FakeSystem clock;
  MemorySettingsStore settings;
  test::RecordingHost host;
  test::RecordingDialogs dialogs;
  std::unique_ptr<test::ScriptedSource> ownedSource = std::make_unique<test::ScriptedSource>();
  test::ScriptedSource* source = ownedSource.get();
  std::unique_ptr<test::ScriptedCapture> ownedCapture = std::make_unique<test::ScriptedCapture>();
  test::ScriptedCapture* capture = ownedCapture.get();
  std::unique_ptr<Controller> c;
  test::TempDir dir;
  std::vector<listen::Span> cues = test::dialogue(1500);
  // What the sound really is: subtitle time t = position × rate + offset.
  double rate = 25 / 24.0, offset = -7.4;
  double position = 600;
  std::string path;
  bool speaking = true;  // else music: sound, never speech

  Controller& start(Conventions conventions = {}, bool withSubtitle = true) {
    path = dir.path("ep.srt");
    dir.write("ep.srt", srtOf(cues));
    c = std::make_unique<Controller>(ControllerServices{clock, settings, host, dialogs, dialogs},
                                     std::move(ownedSource),
                                     withSubtitle ? std::optional<std::string>(path) : std::nullopt, conventions);
    c->setSoundCapture(std::move(ownedCapture));
    return *c;
  }
  // One tick while the player plays; the capture heard the last 50 ms.
  void play(bool playing = true) {
    if (capture->state() == CaptureState::running && playing) {
      for (int i = 0; i < 5; ++i) {
        const double t = (position + 0.01 * i) * rate + offset;
        bool speech = false;
        for (const listen::Span& q : cues) speech |= speaking && t >= q.start + 0.04 && t < q.end - 0.5;
        capture->pending.push_back({clock.uptime() + 0.01 * i, speech, -20});
      }
    }
    clock.advance(0.05);
    if (playing) position += 0.05;
    source->next = test::playingAt(position, "Show", playing);
    c->tick();
  }
  void playFor(double seconds, bool playing = true) {
    for (double t = 0; t < seconds; t += 0.05) play(playing);
  }
  const Controller::State& s() const { return c->state(); }
  std::string sideFile() const {
    std::string text;
    return readWholeFile(path + ".sync.json", text) ? text : "";
  }
  std::vector<std::string> titles() const {
    std::vector<std::string> out;
    for (const MenuItem& item : c->menu()) out.push_back(item.title);
    return out;
  }
};

TEST(ControllerListening, TheKeySyncsAppliesLikeACalibrationAndUndoes) {
  ListenRig r;
  r.start();
  EXPECT_THAT(r.titles(), Contains("Sync by Listening"));
  EXPECT_THAT(r.titles(), Not(Contains("Undo Sync")));
  const int revision = r.c->menuRevision();
  EXPECT_TRUE(r.c->handleKey(keycode::none, false, "l"));
  EXPECT_TRUE(r.c->isListening());
  EXPECT_EQ(r.capture->starts, 1);
  EXPECT_NE(r.c->menuRevision(), revision);
  EXPECT_THAT(r.titles(), Contains("Stop Listening"));
  EXPECT_EQ(r.host.status, "Listening… play a stretch with dialogue");
  r.playFor(3.1);
  EXPECT_THAT(r.host.status, ::testing::StartsWith("Listening… 3 s, "));
  // Paused: listening waits, and says so.
  r.playFor(2, false);
  EXPECT_THAT(r.host.status, ::testing::EndsWith("(paused)"));

  for (int i = 0; i < 180 * 20 && r.c->isListening(); ++i) r.play();
  ASSERT_FALSE(r.c->isListening()) << r.host.status;
  EXPECT_EQ(r.capture->current, CaptureState::idle);
  EXPECT_EQ(r.s().scale, 25 / 24.0);
  EXPECT_NEAR(r.s().offset, -7.4, 0.1);
  EXPECT_EQ(r.s().scaleIdx, 2);  // f goes on from the preset found
  EXPECT_THAT(r.host.status, ::testing::StartsWith("Synced by listening: offset -7."));
  EXPECT_THAT(r.host.status, ::testing::EndsWith(", rate 1.0417"));
  EXPECT_THAT(r.sideFile(), ::testing::HasSubstr("\"scale\":1.041667"));
  EXPECT_THAT(r.titles(), Contains("Undo Sync"));
  EXPECT_THAT(r.titles(), Contains("Sync by Listening"));

  r.c->perform(MenuAction::undoSync);
  EXPECT_EQ(r.s().scale, 1.0);
  EXPECT_EQ(r.s().offset, 0.0);
  EXPECT_EQ(r.sideFile(), "{\"offset\":0.0,\"scale\":1.0}");
  EXPECT_EQ(r.host.status, "Sync undone: offset +0.00 s, rate 1.0000");
  EXPECT_THAT(r.titles(), Not(Contains("Undo Sync")));
  r.c->perform(MenuAction::undoSync);
  EXPECT_EQ(r.host.status, "Nothing to undo");
}

TEST(ControllerListening, WhatStopsItAndWhatNeverStarts) {
  {
    ListenRig r;  // the key again: stopped, nothing changed
    r.start();
    r.c->toggleListening();
    r.playFor(10);
    r.c->perform(MenuAction::listen);
    EXPECT_FALSE(r.c->isListening());
    EXPECT_EQ(r.host.status, "Stopped listening — nothing changed");
    EXPECT_EQ(r.capture->stops, 1);
    EXPECT_EQ(r.s().offset, 0.0);
  }
  {
    ListenRig r;  // the player quits
    r.start();
    r.c->startListening();
    r.c->startListening();  // twice is once
    EXPECT_EQ(r.capture->starts, 1);
    r.playFor(5);
    r.source->next = {std::nullopt, false, "", "Nothing is playing", true, false};
    r.c->tick();
    EXPECT_EQ(r.host.status, "Stopped listening: the player stopped — nothing changed");
    EXPECT_FALSE(r.c->isListening());
  }
  {
    ListenRig r;  // the sound server goes away
    r.start();
    r.c->startListening();
    r.playFor(5);
    r.capture->current = CaptureState::lost;
    r.play();
    EXPECT_EQ(r.host.status, "Stopped listening: the sound went away — nothing changed");
  }
  {
    ListenRig r;  // only music for 90 s
    r.speaking = false;
    r.start();
    r.c->startListening();
    r.playFor(91);
    EXPECT_EQ(r.host.status, "Could not hear enough speech to sync — nothing changed");
    EXPECT_EQ(r.s().offset, 0.0);
    EXPECT_EQ(r.sideFile(), "");
  }
  struct Refusal {
    CaptureState failWith;
    bool mac;
    bool subtitle;
    const char* words;
  };
  for (const Refusal& c : std::vector<Refusal>{
           {CaptureState::noServer, false, true, "Cannot listen: no sound server"},
           {CaptureState::noServer, true, true, "Cannot listen: the sound that plays cannot be captured"},
           {CaptureState::unsupported, true, true, "Sync by listening needs macOS 14.2 or later"},
           {CaptureState::running, false, false, "Open a subtitle first, then press l to sync by listening"},
       }) {
    ListenRig r;
    r.capture->failWith = c.failWith;
    r.start(c.mac ? Conventions{} : Conventions{linuxUiTexts("mpv"), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys},
            c.subtitle);
    r.c->toggleListening();
    EXPECT_EQ(r.host.status, c.words);
    EXPECT_FALSE(r.c->isListening());
  }
  {
    ListenRig r;  // a subtitle of three lines
    r.cues = {{1, 2}, {3, 4}, {5, 6}};
    r.start();
    r.c->toggleListening();
    EXPECT_EQ(r.host.status, "Too few spoken lines in this subtitle to sync by listening");
    EXPECT_EQ(r.capture->starts, 0);
  }
}

TEST(ControllerListening, KeepingInSyncListensInWindowsAndMovesOnlyOnAgreement) {
  ListenRig r;
  r.rate = 1.0;
  r.offset = 0;
  r.start();
  r.c->setListenAlways(true);
  EXPECT_TRUE(r.settings.boolFor("ListenAlways"));
  r.playFor(14);
  EXPECT_EQ(r.capture->starts, 0);  // not at once
  r.playFor(2);
  EXPECT_EQ(r.capture->starts, 1);
  EXPECT_FALSE(r.c->isListening());  // a window is not the user's listening
  EXPECT_THAT(r.titles(), Contains("Sync by Listening"));
  r.playFor(45);
  EXPECT_EQ(r.capture->current, CaptureState::idle);  // the window closed
  EXPECT_EQ(r.s().offset, 0.0);                   // and in time, nothing moves
  // An ad break: the sound is 4 s behind the subtitle from here on.
  r.offset = 4;
  r.playFor(2 * (120 + 45) + 45);
  EXPECT_NEAR(r.s().offset, 4, 0.1);
  EXPECT_THAT(r.host.calls, Contains(::testing::StartsWith("status:Kept in sync by listening: offset +3.9")));
  r.c->setListenAlways(false);
  const int starts = r.capture->starts;
  r.playFor(300);
  EXPECT_EQ(r.capture->starts, starts);
}

}  // namespace
}  // namespace lumerix
