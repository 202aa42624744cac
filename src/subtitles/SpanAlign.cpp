#include "subtitles/SpanAlign.h"

#include <algorithm>
#include <cmath>

namespace lumerix {

namespace {

struct Span {
  double a, b;
};

// The time the cues cover, as disjoint spans in order: overlapping cues
// must not count their shared time twice.
std::vector<Span> covered(const std::vector<Cue>& cues) {
  std::vector<Span> spans;
  for (const Cue& cue : cues) {
    if (std::isfinite(cue.start) && std::isfinite(cue.end) && cue.end > cue.start) spans.push_back({cue.start, cue.end});
  }
  std::sort(spans.begin(), spans.end(), [](const Span& x, const Span& y) { return x.a < y.a; });
  std::vector<Span> merged;
  for (const Span& s : spans) {
    if (!merged.empty() && s.a <= merged.back().b) {
      merged.back().b = std::max(merged.back().b, s.b);
    } else {
      merged.push_back(s);
    }
  }
  return merged;
}

double length(const std::vector<Span>& spans) {
  double total = 0;
  for (const Span& s : spans) total += s.b - s.a;
  return total;
}

// Time shared by the reference and own spans mapped by rate and shift.
double shared(const std::vector<Span>& reference, const std::vector<Span>& own, double rate, double shift) {
  double total = 0;
  std::size_t i = 0;
  for (const Span& o : own) {
    const double a = rate * o.a + shift, b = rate * o.b + shift;
    while (i < reference.size() && reference[i].b <= a) ++i;
    for (std::size_t k = i; k < reference.size() && reference[k].a < b; ++k) {
      total += std::max(0.0, std::min(b, reference[k].b) - std::max(a, reference[k].a));
    }
  }
  return total;
}

// At most n of the values, spread evenly: pairing every start with every
// other costs the square of their number.
std::vector<double> spread(const std::vector<double>& values, std::size_t n) {
  if (values.size() <= n) return values;
  std::vector<double> out;
  for (std::size_t k = 0; k < n; ++k) out.push_back(values[k * values.size() / n]);
  return out;
}

std::vector<double> startsOf(const std::vector<Cue>& cues) {
  std::vector<double> starts;
  for (const Cue& cue : cues) {
    if (std::isfinite(cue.start)) starts.push_back(cue.start);
  }
  std::sort(starts.begin(), starts.end());
  return starts;
}

// The own starts that land near a reference start, and the pairs themselves.
int pairUp(const std::vector<double>& reference, const std::vector<double>& own, double rate, double shift,
           std::vector<std::pair<double, double>>* pairs = nullptr) {
  constexpr double near = 0.4;
  int count = 0;
  for (double o : own) {
    const double mapped = rate * o + shift;
    const auto it = std::lower_bound(reference.begin(), reference.end(), mapped - near);
    if (it != reference.end() && *it <= mapped + near) {
      ++count;
      if (pairs) pairs->push_back({o, *it});
    }
  }
  return count;
}

}  // namespace

std::optional<SpanFit> alignSpans(const std::vector<Cue>& own, const std::vector<Cue>& reference) {
  const std::vector<Span> ref = covered(reference), mine = covered(own);
  const std::vector<double> refStarts = startsOf(reference), ownStarts = startsOf(own);
  if (ref.size() < 3 || mine.size() < 3) return std::nullopt;
  const double refLength = length(ref), ownLength = length(mine);

  // Frame-rate ratios between releases, either way round.
  constexpr double rates[] = {1.0,         25 / 23.976, 23.976 / 25, 25 / 24.0,
                              24 / 25.0,   24 / 23.976, 23.976 / 24};
  const std::vector<double> refSample = spread(refStarts, 400), ownSample = spread(ownStarts, 400);
  SpanFit best;
  double bestShared = -1;
  std::vector<double> shifts;
  for (double rate : rates) {
    // The shift most pairs of starts agree on, within a third of a second.
    shifts.clear();
    for (double o : ownSample) {
      for (double r : refSample) shifts.push_back(r - rate * o);
    }
    std::sort(shifts.begin(), shifts.end());
    std::size_t from = 0, bestFrom = 0, bestCount = 0;
    for (std::size_t to = 0; to < shifts.size(); ++to) {
      while (shifts[to] - shifts[from] > 0.3) ++from;
      if (to - from + 1 > bestCount) {
        bestCount = to - from + 1;
        bestFrom = from;
      }
    }
    if (bestCount == 0) continue;
    const double voted = shifts[bestFrom + bestCount / 2];
    // Then the shift, near it, under which most time overlaps.
    for (int step = -25; step <= 25; ++step) {
      const double shift = voted + step * 0.02;
      const double s = shared(ref, mine, rate, shift);
      if (s > bestShared) {
        bestShared = s;
        best.rate = rate;
        best.shift = shift;
      }
    }
  }

  // A straight line through the starts that pair up takes in a rate no
  // preset names; kept only if it overlaps at least as well.
  std::vector<std::pair<double, double>> pairs;
  pairUp(refStarts, ownStarts, best.rate, best.shift, &pairs);
  if (pairs.size() >= 10) {
    double mx = 0, my = 0;
    for (const auto& [x, y] : pairs) {
      mx += x;
      my += y;
    }
    mx /= static_cast<double>(pairs.size());
    my /= static_cast<double>(pairs.size());
    double sxx = 0, sxy = 0;
    for (const auto& [x, y] : pairs) {
      sxx += (x - mx) * (x - mx);
      sxy += (x - mx) * (y - my);
    }
    if (sxx > 60 * 60) {  // starts spread over a minute at least, else the slope is noise
      const double rate = sxy / sxx, shift = my - rate * mx;
      const double s = shared(ref, mine, rate, shift);
      if (rate > 0.85 && rate < 1.15 && s >= bestShared) {
        best.rate = rate;
        best.shift = shift;
        bestShared = s;
      }
    }
  }

  best.overlap = bestShared / std::min(refLength, best.rate * ownLength);
  best.matched = pairUp(refStarts, ownStarts, best.rate, best.shift);
  const double fewer = static_cast<double>(std::min(refStarts.size(), ownStarts.size()));
  if (!(best.overlap >= 0.6) || best.matched < std::max(5.0, 0.5 * fewer)) return std::nullopt;
  return best;
}

}  // namespace lumerix
