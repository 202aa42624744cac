#include "listen/ListenSession.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "util/Numbers.h"

namespace lumerix::listen {

namespace {

// Two alignments give the same answer when they agree this well.
bool same(const Timing& a, const Timing& b) {
  return std::fabs(a.rate - b.rate) < 1e-9 && std::fabs(a.offset - b.offset) <= 0.1;
}

}  // namespace

ListenSession::ListenSession(std::vector<Span> cueSpans, std::vector<double> rateList, Purpose purpose,
                             Options opts)
    : cues(std::move(cueSpans)), rates(std::move(rateList)), why(purpose), options(opts) {}

ListenSession::Phase ListenSession::step(double now, const PlayerMoment& player, std::span<const HeardFrame> frames,
                                         CaptureState capture) {
  if (finished()) return current;
  if (player.gone) return current = Phase::ended;
  if (capture != CaptureState::running) return current = Phase::lost;
  const bool playing = player.position && player.playing;
  // Only time the player plays counts; a stalled tick counts no more than
  // a moment.
  if (playing && lastNow) played += std::clamp(now - *lastNow, 0.0, 0.5);
  lastNow = now;
  hearing.tick(now, player.position, playing);
  hearing.hear(frames);
  if (!playing) return current = Phase::paused;
  current = Phase::listening;

  if (hearing.loudSeconds() > loudSoFar) {
    loudSoFar = hearing.loudSeconds();
    quietSince = played;
  }
  if (played - quietSince >= options.quietLimit) return current = Phase::quiet;

  if (played - evaluatedAt >= options.every) {
    evaluatedAt = played;
    evaluate();
    if (answer) return current = Phase::synced;
  }
  double limit = why == Purpose::sync ? options.giveUp : options.window;
  // A sure answer that has yet to hold, or an offset waiting only for
  // the rate, is worth listening on for.
  if (why == Purpose::sync && (streak || last.doubt == kRatesTooClose)) limit = options.giveUpOnRate;
  if (played >= limit) current = Phase::unsure;
  return current;
}

void ListenSession::evaluate() {
  last = align(hearing.heard(), cues, rates, options.aligner);
  if (!last.timing) {
    streak.reset();
    return;
  }
  if (!streak || !same(*streak, *last.timing)) streakSince = played;
  streak = last.timing;
  // One alignment can be lucky; the same one, again and again, while
  // more is heard, is not.
  if (played - streakSince >= options.hold) answer = streak;
}

bool KeepInSync::due(double playedSeconds) {
  sinceWindow += playedSeconds;
  if (sinceWindow < every) return false;
  sinceWindow = 0;
  return true;
}

std::optional<Timing> KeepInSync::windowEnded(const std::optional<Timing>& found, Timing current, double position) {
  const std::optional<Timing> before = std::exchange(previous, found);
  if (!found || !before) return std::nullopt;
  if (std::fabs(found->offset - before->offset) > agreeWithin || std::fabs(found->rate - before->rate) > 1e-9) {
    return std::nullopt;
  }
  // Compared where the player is, so that a change of rate cannot hide in
  // the offset.
  const double now = position * current.rate + current.offset;
  const double then = position * found->rate + found->offset;
  if (std::fabs(then - now) <= moveAtLeast) return std::nullopt;
  previous.reset();  // the next move needs two windows of its own
  return found;
}

namespace texts {

std::string progress(double seconds, int lines, bool paused) {
  const std::string heard = lines == 1 ? "1 line heard" : cFormat("%d lines heard", lines);
  return cFormat("Listening… %d s, %s%s", static_cast<int>(seconds), heard.c_str(), paused ? " (paused)" : "");
}

std::string synced(Timing timing) {
  return cFormat("Synced by listening: offset %+.2f s, rate %.4f", timing.offset, timing.rate);
}

std::string kept(Timing timing, double was) {
  return cFormat("Kept in sync by listening: offset %+.2f s (was %+.2f s)", timing.offset, was);
}

std::string undone(Timing timing) {
  return cFormat("Sync undone: offset %+.2f s, rate %.4f", timing.offset, timing.rate);
}

}  // namespace texts

}  // namespace lumerix::listen
