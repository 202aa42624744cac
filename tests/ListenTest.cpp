#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "ListenSupport.h"
#include "app/Controller.h"
#include "listen/Aligner.h"
#include "listen/Hearing.h"
#include "listen/ListenSession.h"

namespace lumerix::listen {
namespace {

using test::dialogue;
using test::speechOf;

std::vector<double> presets() {
  std::vector<double> rates;
  for (const auto& p : Controller::scalePresets) rates.push_back(p.factor);
  return rates;
}

// ---- the aligner --------------------------------------------------------------

TEST(ListenAligner, FindsEveryOffsetAtEveryPresetRate) {
  const auto cues = dialogue(3000);
  const auto rates = presets();
  for (double rate : rates) {
    for (double offset : {-60.0, -23.4, 0.0, 7.85, 60.0}) {
      SCOPED_TRACE(testing::Message() << "rate " << rate << " offset " << offset);
      // Two and a half minutes heard well inside the film, where rates a
      // thousandth apart put the same lines more than a second apart; it
      // takes that long to tell them apart.
      const Heard heard = speechOf(cues, rate, offset, 1200, 1350);
      const Alignment a = align(heard, cues, rates);
      ASSERT_TRUE(a.timing) << a.doubt;
      EXPECT_EQ(a.timing->rate, rate);
      // Onsets are up to 30 ms late: the offset is early by about half that.
      EXPECT_NEAR(a.timing->offset, offset - 0.015 * rate, 0.03);
    }
  }
}

TEST(ListenAligner, LinesNeverSpokenAndSpeechWithoutLinesStillAlign) {
  const auto cues = dialogue(3000);
  Heard heard = speechOf(cues, 25 / 24.0, 12.3, 600, 750);
  // Every third line unspoken, and in its place a murmur that starts
  // nowhere near a line.
  Heard thinned{{}, heard.listened};
  for (std::size_t i = 0; i < heard.speech.size(); ++i) {
    const Span& line = heard.speech[i];
    if (i % 3 != 0) {
      thinned.speech.push_back(line);
    } else if (line.end - line.start > 1.3) {
      thinned.speech.push_back({line.start + 0.9, line.end});
    }
  }
  const Alignment a = align(thinned, cues, presets());
  ASSERT_TRUE(a.timing) << a.doubt;
  EXPECT_EQ(a.timing->rate, 25 / 24.0);
  EXPECT_NEAR(a.timing->offset, 12.3, 0.05);
}

TEST(ListenAligner, WhatIsNotDialogueIsNeverSure) {
  const auto cues = dialogue(3000);
  const auto rates = presets();
  struct Case {
    const char* name;
    Heard heard;
  };
  Heard music{{}, {{500, 590}}};
  for (double at = 500; at < 585; at += 17) music.speech.push_back({at, at + 15});  // long, unbroken
  Heard choppedMusic{{}, {{500, 590}}};
  for (double at = 500; at < 589; at += 1.3) choppedMusic.speech.push_back({at, at + 1.0});  // a steady beat
  Heard silence{{}, {{500, 590}}};
  Heard fewWords{{}, {{500, 590}}};
  for (double at = 510; at < 590; at += 25) fewWords.speech.push_back({at, at + 2});
  for (Case& c : std::vector<Case>{{"music", music},
                                   {"chopped music", choppedMusic},
                                   {"silence", silence},
                                   {"a few words", fewWords}}) {
    SCOPED_TRACE(c.name);
    const Alignment a = align(c.heard, cues, rates);
    EXPECT_FALSE(a.timing) << a.best.offset;
    EXPECT_FALSE(a.doubt.empty());
  }
}

TEST(ListenAligner, MusicBetweenTheLinesDoesNotMoveTheAnswer) {
  const auto cues = dialogue(3000);
  Heard heard = speechOf(cues, 1.0, -4.2, 800, 950);
  // A song under a scene: held notes the detector takes for speech.
  heard.speech.push_back({830, 846});
  for (double at = 850; at < 858; at += 0.9) heard.speech.push_back({at, at + 0.6});
  const Alignment a = align(heard, cues, presets());
  ASSERT_TRUE(a.timing) << a.doubt;
  EXPECT_EQ(a.timing->rate, 1.0);
  EXPECT_NEAR(a.timing->offset, -4.2, 0.05);
}

TEST(ListenAligner, RepeatedDialogueAndSparseLinesGiveNoAnswer) {
  // A scene played twice (a flashback): its lines fit both places equally.
  auto cues = dialogue(1000);
  std::vector<Span> scene;
  for (const Span& c : cues) {
    if (c.start >= 300 && c.end <= 400) scene.push_back(c);
  }
  std::erase_if(cues, [](const Span& c) { return c.start >= 700 && c.start < 820; });
  for (const Span& c : scene) cues.push_back({c.start + 420, c.end + 420});
  std::sort(cues.begin(), cues.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
  const Alignment repeated = align(speechOf(cues, 1.0, 0, 310, 390), cues, {std::vector<double>{1.0}});
  EXPECT_FALSE(repeated.timing);
  EXPECT_LT(repeated.margin, 0.25);

  // A subtitle for the foreign lines only: one cue a minute in a film
  // full of speech.
  std::vector<Span> sparse;
  for (double t = 30; t < 3000; t += 60) sparse.push_back({t, t + 2.5});
  const Alignment few = align(speechOf(dialogue(3000), 1.0, 0, 1000, 1090), sparse, presets());
  EXPECT_FALSE(few.timing);
}

TEST(ListenAligner, RatesAThousandthApartNeedALongListen) {
  const auto cues = dialogue(3000);
  const auto rates = presets();
  for (double rate : {25 / 23.976, 25 / 24.0, 1.0, 0.999}) {
    SCOPED_TRACE(rate);
    // 20 s cannot tell them apart: no answer rather than a neighbour's.
    const Alignment brief = align(speechOf(cues, rate, 3, 1500, 1520), cues, rates);
    if (brief.timing) {
      EXPECT_EQ(brief.timing->rate, rate);
    } else {
      EXPECT_FALSE(brief.doubt.empty());
    }
    // Onsets a whole tenth of a second astray cannot either, even in 90 s.
    const Alignment sloppy = align(speechOf(cues, rate, 3, 1500, 1590, 0.2), cues, rates);
    if (sloppy.timing) {
      EXPECT_EQ(sloppy.timing->rate, rate);
    }
  }
}

TEST(ListenAligner, TheMarginRuleDecides) {
  const auto cues = dialogue(3000);
  const Heard heard = speechOf(cues, 1.0, 1.5, 400, 460);
  const Alignment loose = align(heard, cues, {std::vector<double>{1.0}});
  ASSERT_TRUE(loose.timing) << loose.doubt;
  EXPECT_GT(loose.margin, 0.25);
  AlignerOptions strict;
  strict.minMargin = loose.margin + 0.01;
  const Alignment refused = align(heard, cues, {std::vector<double>{1.0}}, strict);
  EXPECT_FALSE(refused.timing);
  EXPECT_EQ(refused.doubt, "no clear best offset");
  EXPECT_NEAR(refused.best.offset, 1.5, 0.5);  // the guess is kept, only not trusted
  AlignerOptions tooLittle;
  tooLittle.minSpeech = heard.speechSeconds() + 1;
  EXPECT_EQ(align(heard, cues, {std::vector<double>{1.0}}, tooLittle).doubt, "not enough speech");
}

TEST(ListenAligner, UnspokenCuesAreLeftOutAndOverlapsJoined) {
  auto cue = [](double s, double e, const char* text) { return Cue{s, e, text}; };
  const std::vector<Cue> cues{cue(1, 2, "♪♪"),
                              cue(3, 4, "[door slams]"),
                              cue(5, 6, "- (laughs)\n- ♪ la la ♪"),
                              cue(7, 9, "- Hi. [laughs]"),
                              cue(8, 10, "Over"),
                              cue(11, 11, "Empty"),
                              cue(12, 13, "(sighs) Fine.")};
  EXPECT_EQ(spokenCueSpans(cues), (std::vector<Span>{{7, 10}, {12, 13}}));
  EXPECT_EQ(spokenCueCount(cues), 3u);
}

// ---- hearing: frames placed on the player's clock -----------------------------

// Frames every 10 ms from `from` to `to` on the uptime clock, speech
// where `speech` says.
std::vector<HeardFrame> frames(double from, double to, bool speech, float level = -20) {
  std::vector<HeardFrame> out;
  for (double t = from; t < to - 1e-9; t += 0.01) out.push_back({t, speech, level});
  return out;
}

TEST(ListenHearing, FramesLandBetweenTicksAndWaitForTheNext) {
  Hearing h;
  // The player is 900 s ahead of the uptime clock and plays steadily.
  for (double up = 100; up <= 101.001; up += 0.05) h.tick(up, up + 900, true);
  h.hear(frames(100.2, 100.7, true));
  h.hear(frames(100.7, 100.85, false));
  EXPECT_EQ(h.heard().speech, (std::vector<Span>{}));  // a pause of a breath may yet continue it
  h.hear(frames(100.85, 101.2, false));                 // the last 0.2 s wait for a tick
  EXPECT_NEAR(h.heard().listened.back().end, 1001.0, 1e-6);
  for (double up = 101.05; up <= 101.5; up += 0.05) h.tick(up, up + 900, true);
  const Heard heard = h.heard();
  ASSERT_EQ(heard.speech.size(), 1u);
  EXPECT_NEAR(heard.speech[0].start, 1000.2, 1e-6);
  EXPECT_NEAR(heard.speech[0].end, 1000.7, 1e-6);
  ASSERT_EQ(heard.listened.size(), 1u);
  EXPECT_NEAR(heard.listened[0].start, 1000.2, 1e-6);
  EXPECT_NEAR(heard.listened[0].end, 1001.2, 1e-6);
  EXPECT_EQ(h.lines(), 1);
}

TEST(ListenHearing, BreathsAreBridgedAndCoughsDropped) {
  Hearing h;
  for (double up = 0; up <= 5; up += 0.05) h.tick(up, up, true);
  h.hear(frames(1.0, 1.5, true));
  h.hear(frames(1.5, 1.65, false));  // a breath: one line
  h.hear(frames(1.65, 2.0, true));
  h.hear(frames(2.0, 2.5, false));  // a pause: the next is another line
  h.hear(frames(2.5, 2.75, true));  // too short to be a line
  h.hear(frames(2.75, 3.5, false));
  h.hear(frames(3.5, 4.0, true));
  h.hear(frames(4.0, 4.5, false));
  const Heard heard = h.heard();
  ASSERT_EQ(heard.speech.size(), 2u);
  EXPECT_NEAR(heard.speech[0].start, 1.0, 1e-6);
  EXPECT_NEAR(heard.speech[0].end, 2.0, 1e-6);
  EXPECT_NEAR(heard.speech[1].start, 3.5, 1e-6);
}

TEST(ListenHearing, SeeksPausesAndMissingPositionsDropTheirFrames) {
  Hearing h;
  double up = 0;
  auto play = [&](double until, std::optional<double> positionAtStart, bool playing) {
    const double start = up;
    for (; up < until - 1e-9; up += 0.05) {
      h.tick(up, positionAtStart ? std::optional<double>(*positionAtStart + (playing ? up - start : 0)) : std::nullopt,
             playing);
    }
  };
  play(2, 100, true);       // 100 … 102
  play(3, 500, true);       // a seek to 500
  play(4, 501, false);      // paused at 501
  play(5, std::nullopt, false);
  play(7, 501, true);       // plays on from 501
  h.tick(up, 503, true);
  h.hear(frames(1.0, 2.6, true));  // speech across the seek
  h.hear(frames(2.6, 6.6, true));  // and across the pause
  h.hear(frames(6.6, 7.0, false));
  const Heard heard = h.heard();
  // Nothing spans a seek or a pause: each stretch is its own line, each
  // on its own clock.
  ASSERT_EQ(heard.speech.size(), 3u);
  EXPECT_NEAR(heard.speech[0].start, 101, 1e-6);
  EXPECT_NEAR(heard.speech[0].end, 101.95, 0.051);
  EXPECT_NEAR(heard.speech[1].start, 500, 0.051);
  EXPECT_NEAR(heard.speech[1].end, 501, 0.051);
  EXPECT_NEAR(heard.speech[2].start, 501, 0.051);
  EXPECT_NEAR(heard.speech[2].end, 502.6, 0.051);
  EXPECT_EQ(heard.listened.size(), 3u);
}

// ---- the session's decisions --------------------------------------------------

struct SessionRig {
  std::vector<Span> cues = dialogue(3000);
  double rate = 1, offset = 2.5;
  double up = 50, position = 700;
  std::vector<HeardFrame> pending;

  // One tick of playing: frames for the last 50 ms, speech where a line of
  // the subtitle is spoken.
  ListenSession::Phase play(ListenSession& s, bool speaking = true, float level = -20,
                            CaptureState capture = CaptureState::running) {
    std::vector<HeardFrame> f;
    for (int i = 0; i < 5; ++i) {
      const double p = position + 0.01 * i;
      const double t = p * rate + offset;
      bool speech = false;
      for (const Span& c : cues) speech |= speaking && t >= c.start + 0.05 && t < c.end - 0.4;
      f.push_back({up + 0.01 * i, speech, level});
    }
    up += 0.05;
    position += 0.05;
    return s.step(up, {position, true, false}, f, capture);
  }
  ListenSession::Phase playFor(ListenSession& s, double seconds, bool speaking = true, float level = -20) {
    ListenSession::Phase phase = s.phase();
    for (double t = 0; t < seconds && (phase == ListenSession::Phase::listening); t += 0.05) {
      phase = play(s, speaking, level);
    }
    return phase;
  }
};

TEST(ListenSessionDecisions, SyncsOnceTheAnswerHoldsThenStays) {
  SessionRig r;
  ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
  const auto phase = r.playFor(s, 180);
  ASSERT_EQ(phase, ListenSession::Phase::synced) << s.latest().doubt;
  EXPECT_EQ(s.timing()->rate, 1.0);
  EXPECT_NEAR(s.timing()->offset, 2.5, 0.1);
  EXPECT_GT(s.playedSeconds(), ListenSession::Options{}.hold);
  // Rates a thousandth apart (1, 1.001, 0.999) take minutes to tell apart.
  EXPECT_LT(s.playedSeconds(), 180);
  EXPECT_GT(s.lines(), 5);
  // Finished is finished, whatever comes next.
  EXPECT_EQ(s.step(r.up + 1, {std::nullopt, false, true}, {}, CaptureState::lost), ListenSession::Phase::synced);
}

TEST(ListenSessionDecisions, GivesUpQuietlyOrStopsForAReason) {
  {
    SessionRig r;  // sound, but nothing spoken: music, say
    ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
    EXPECT_EQ(r.playFor(s, 100, false, -25), ListenSession::Phase::unsure);
    EXPECT_NEAR(s.playedSeconds(), 90, 0.1);
  }
  {
    SessionRig r;  // a denied tap: frames of silence
    ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
    EXPECT_EQ(r.playFor(s, 100, false, -120), ListenSession::Phase::quiet);
    EXPECT_NEAR(s.playedSeconds(), 20, 0.1);
  }
  {
    SessionRig r;
    ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
    r.playFor(s, 3);
    EXPECT_EQ(r.play(s, true, -20, CaptureState::lost), ListenSession::Phase::lost);
  }
  {
    SessionRig r;
    ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
    r.playFor(s, 3);
    EXPECT_EQ(s.step(r.up + 0.05, {std::nullopt, false, true}, {}, CaptureState::running),
              ListenSession::Phase::ended);
  }
  {
    SessionRig r;  // a keeping window is short
    ListenSession s(r.cues, {1.0}, ListenSession::Purpose::keep);
    EXPECT_EQ(r.playFor(s, 100, false, -25), ListenSession::Phase::unsure);
    EXPECT_NEAR(s.playedSeconds(), 45, 0.1);
  }
}

TEST(ListenSessionDecisions, PausesDoNotCountAndDoNotEnd) {
  SessionRig r;
  ListenSession s(r.cues, presets(), ListenSession::Purpose::sync);
  r.playFor(s, 10, false, -25);
  for (int i = 0; i < 4000; ++i) {  // 200 s paused, then without a position
    r.up += 0.05;
    const auto phase = s.step(r.up, {i < 2000 ? std::optional<double>(r.position) : std::nullopt, false, false}, {},
                              CaptureState::running);
    ASSERT_EQ(phase, ListenSession::Phase::paused);
  }
  EXPECT_NEAR(s.playedSeconds(), 10, 0.1);
  EXPECT_EQ(r.play(s, false, -25), ListenSession::Phase::listening);
}

TEST(ListenSessionDecisions, KeepingInSyncNeedsTwoWindowsThatAgreeOnAMove) {
  KeepInSync k;
  EXPECT_FALSE(k.due(KeepInSync::firstAfter - 1));
  EXPECT_TRUE(k.due(1));
  EXPECT_FALSE(k.due(KeepInSync::every - 1));
  EXPECT_TRUE(k.due(1));

  const Timing current{1.0, 2.0};
  struct Case {
    std::optional<Timing> first, second;
    bool moves;
  };
  for (const Case& c : std::vector<Case>{
           {Timing{1.0, 5.0}, Timing{1.0, 5.05}, true},     // an ad break: 3 s more
           {Timing{1.0, 5.0}, std::nullopt, false},         // the second was not sure
           {std::nullopt, Timing{1.0, 5.0}, false},         // nor the first
           {Timing{1.0, 5.0}, Timing{1.0, 5.3}, false},     // they disagree
           {Timing{1.0, 2.2}, Timing{1.0, 2.25}, false},    // too small a move to be one
           {Timing{1.001, 2.0}, Timing{1.001, 2.0}, true},  // the same offset, but a rate that moves
       }) {
    KeepInSync keep;
    EXPECT_FALSE(keep.windowEnded(c.first, current, 1000));
    const auto move = keep.windowEnded(c.second, current, 1000);
    EXPECT_EQ(move.has_value(), c.moves);
    // A move needs two windows of its own: a third alone does not repeat it.
    if (move) {
      EXPECT_FALSE(keep.windowEnded(c.second, *move, 1000));
    }
  }
}

TEST(ListenSessionDecisions, ProgressAndResultWordsKeepTheirPoint) {
  EXPECT_EQ(texts::progress(14.9, 6, false), "Listening… 14 s, 6 lines heard");
  EXPECT_EQ(texts::progress(3, 1, true), "Listening… 3 s, 1 line heard (paused)");
  EXPECT_EQ(texts::synced({25 / 23.976, 2.349}), "Synced by listening: offset +2.35 s, rate 1.0427");
  EXPECT_EQ(texts::synced({1.0, -0.5}), "Synced by listening: offset -0.50 s, rate 1.0000");
}

}  // namespace
}  // namespace lumerix::listen
