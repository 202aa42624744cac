#include "listen/Hearing.h"

#include <algorithm>
#include <cmath>

namespace lumerix::listen {

namespace {

// Ticks kept behind the newest: more than any sound server's delay.
constexpr double kTickHistory = 10;
// A frame that waited this long for a tick never gets one.
constexpr double kLongestWait = 5;

}  // namespace

bool Hearing::continuous(const Sample& a, const Sample& b) {
  if (!a.position || !b.position || !a.playing || !b.playing) return false;
  const double elapsed = b.uptime - a.uptime;
  const double moved = *b.position - *a.position;
  // Ticks may stall for a moment; beyond two seconds nobody knows what
  // happened in between. The player may play a little faster or slower
  // than real time; a seek is a jump beyond that.
  if (!(elapsed > 0) || elapsed > 2) return false;
  return moved >= 0 && std::fabs(moved - elapsed) <= 0.1 + 0.5 * elapsed;
}

void Hearing::tick(double uptime, std::optional<double> position, bool playing) {
  if (!ticks.empty() && uptime <= ticks.back().uptime) return;  // the clock never goes back; a repeat says nothing
  ticks.push_back({uptime, position, playing});
  while (ticks.size() > 2 && ticks[1].uptime < uptime - kTickHistory) ticks.pop_front();
  hear({});
}

void Hearing::hear(std::span<const HeardFrame> frames) {
  waiting.insert(waiting.end(), frames.begin(), frames.end());
  if (ticks.empty()) {
    waiting.clear();  // nothing to place them by, ever
    return;
  }
  std::size_t k = 0;
  while (!waiting.empty()) {
    const HeardFrame frame = waiting.front();
    if (frame.uptime > ticks.back().uptime) {
      if (frame.uptime < ticks.back().uptime + kLongestWait) break;
      waiting.pop_front();
      continue;
    }
    waiting.pop_front();
    if (frame.uptime < ticks.front().uptime) continue;  // from before the ticks kept
    while (k + 1 < ticks.size() && ticks[k + 1].uptime < frame.uptime) ++k;
    const Sample& a = ticks[k];
    const Sample& b = ticks[std::min(k + 1, ticks.size() - 1)];
    if (&a == &b) {
      // Exactly at the newest tick.
      if (a.position && a.playing) place(frame, *a.position);
      continue;
    }
    if (!continuous(a, b)) {
      // Whatever was growing cannot go on across a gap in what is known.
      closeSpeech();
      lastPosition.reset();
      continue;
    }
    const double share = (frame.uptime - a.uptime) / (b.uptime - a.uptime);
    place(frame, *a.position + share * (*b.position - *a.position));
  }
}

void Hearing::place(const HeardFrame& frame, double position) {
  // Frames follow each other a hundredth apart; anything else is a jump
  // between segments (a seek the ticks saw, or frames lost on the way).
  const bool follows = lastPosition && position >= *lastPosition - 0.005 && position <= *lastPosition + 0.1;
  if (!follows) {
    closeSpeech();
    listened.push_back({position, position + frameSeconds});
  } else {
    listened.back().end = std::max(listened.back().end, position + frameSeconds);
  }
  lastPosition = position;
  placed += frameSeconds;
  if (frame.level > quietLevel) loud += frameSeconds;
  if (open && position - open->end > bridge) closeSpeech();
  if (!frame.speech) return;
  if (open) {
    open->end = std::max(open->end, position + frameSeconds);
  } else {
    open = Span{position, position + frameSeconds};
  }
}

void Hearing::closeSpeech() {
  if (open && open->end - open->start >= shortest) closed.push_back(*open);
  open.reset();
}

Heard Hearing::heard() const {
  Heard h{closed, listened};
  // A span that ended more than a breath ago is over, even before the
  // next frame says so.
  if (open && lastPosition && *lastPosition - open->end > bridge && open->end - open->start >= shortest) {
    h.speech.push_back(*open);
  }
  return h;
}

}  // namespace lumerix::listen
