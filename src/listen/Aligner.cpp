#include "listen/Aligner.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "util/Unicode.h"

namespace lumerix::listen {

namespace {

// A detector that hears speech for this long without a breath is hearing
// music or noise; such a stretch would match any dense run of cues.
constexpr double kLongestSpeech = 12;
// An onset this close to a cue's start counts as meeting it in the sweep,
// and is worth as much as this many steps of speech under a cue.
constexpr double kOnsetTolerance = 0.15;
constexpr std::int64_t kOnsetWorth = 400;
// How far an onset's residual may stray from the others' before it is taken
// for a chance meeting rather than the line it seems to be.
constexpr double kInlierReach = 0.25;
// The finest an onset can be placed: frames are a hundredth long.
constexpr double kFinestOnset = 0.005;

bool spoken(const std::string& text) {
  // Lines nobody speaks: descriptions in brackets and songs between music
  // notes, alone or together ("♪ la la ♪ [humming]"). Anything else
  // outside them is a word.
  int depth = 0;
  bool song = false;
  for (std::size_t i = 0; i < text.size();) {
    const char32_t c = unicode::next(text, i);
    if (c == '[' || c == '(') {
      ++depth;
    } else if (c == ']' || c == ')') {
      depth = std::max(0, depth - 1);
    } else if (c == U'♪' || c == U'♫' || c == '#') {
      song = !song;
    } else if (depth == 0 && !song && c != '-' && c != ' ' && c != '\n' && c != '\t' && c != '.') {
      return true;
    }
  }
  return false;
}

void joinOverlaps(std::vector<Span>& spans) {
  std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
  std::size_t out = 0;
  for (const Span& s : spans) {
    if (!(s.end > s.start)) continue;
    if (out > 0 && s.start <= spans[out - 1].end) {
      spans[out - 1].end = std::max(spans[out - 1].end, s.end);
    } else {
      spans[out++] = s;
    }
  }
  spans.resize(out);
}

// Spans in whole steps.
struct Cells {
  std::int64_t start, end;
};

std::int64_t cell(double seconds, double step) {
  return static_cast<std::int64_t>(std::llround(seconds / step));
}

// The best few offsets of one rate, each at least `apart` from the others.
struct Peaks {
  double rate = 1;
  double spread = 0;  // the standard deviation of the score over every offset
  struct Peak {
    double offset;
    std::int64_t score;
  };
  std::vector<Peak> top;
};

// Sweeps every offset of one rate. The agreement of two sets of spans as a
// function of the shift between them is a sum of trapezoids, one a pair;
// each trapezoid is four impulses in its second difference, so the whole
// curve costs one impulse pass and two running sums.
class Sweep {
 public:
  Sweep(const std::vector<Span>& cues, double step) : step(step) {
    cueCells.reserve(cues.size());
    for (const Span& c : cues) cueCells.push_back({cell(c.start, step), cell(c.end, step)});
  }

  // onsets: where speech begins (not where listening began), on the
  // player's clock.
  Peaks run(const Heard& heard, const std::vector<double>& onsets, double rate, std::int64_t apart) {
    Peaks peaks;
    peaks.rate = rate;
    if (cueCells.empty() || heard.listened.empty()) return peaks;
    std::int64_t lo = INT64_MAX, hi = INT64_MIN;
    auto scaled = [&](const std::vector<Span>& spans, std::vector<Cells>& out) {
      out.clear();
      for (const Span& s : spans) {
        out.push_back({cell(s.start * rate, step), cell(s.end * rate, step)});
        lo = std::min(lo, out.back().start);
        hi = std::max(hi, out.back().end);
      }
    };
    scaled(heard.speech, speech);
    scaled(heard.listened, listened);
    // Offsets at which anything heard meets any cue, and one more step
    // each side so that the curve starts and ends at rest.
    const std::int64_t reach = cell(kOnsetTolerance, step);
    const std::int64_t first = cueCells.front().start - hi - reach - 1;
    const std::int64_t last = cueCells.back().end - lo + reach + 1;
    const auto n = static_cast<std::size_t>(last - first + 2);
    impulses.assign(n, 0);
    starts.assign(n, 0);
    // An onset within a few hundredths of a cue's start is the sharpest
    // evidence there is: a box of offsets for every pair.
    for (double p : onsets) {
      const std::int64_t a = cell(p * rate, step);
      for (const Cells& c : cueCells) {
        ++starts[static_cast<std::size_t>(c.start - a - reach - first)];
        --starts[static_cast<std::size_t>(c.start - a + reach + 1 - first)];
      }
    }
    auto add = [&](const std::vector<Cells>& spans, std::int32_t weight) {
      for (const Cells& h : spans) {
        for (const Cells& c : cueCells) {
          impulses[static_cast<std::size_t>(c.start - h.end - first)] += weight;
          impulses[static_cast<std::size_t>(c.start - h.start - first)] -= weight;
          impulses[static_cast<std::size_t>(c.end - h.end - first)] -= weight;
          impulses[static_cast<std::size_t>(c.end - h.start - first)] += weight;
        }
      }
    };
    // Speech under a cue counts twice: once as speech that was cued, once
    // as cued time that was not quiet; cued time heard quiet counts against.
    add(speech, 2);
    add(listened, -1);
    curve.resize(n);
    std::int64_t slope = 0, overlap = 0, met = 0, best = INT64_MIN;
    double sum = 0, squares = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < n; ++i) {
      met += starts[i];
      const std::int64_t value = overlap + kOnsetWorth * met;
      curve[i] = static_cast<std::int32_t>(value);
      const auto v = static_cast<double>(value);
      sum += v;
      squares += v * v;
      if (value > best) {
        best = value;
        at = i;
      }
      slope += impulses[i];
      overlap += slope;
    }
    const double mean = sum / static_cast<double>(n);
    peaks.spread = std::sqrt(std::max(0.0, squares / static_cast<double>(n) - mean * mean));
    // The best is often a plateau (speech shorter than its cues): its middle.
    std::size_t end = at;
    while (end + 1 < n && curve[end + 1] == best) ++end;
    const double middle = (static_cast<double>(at) + static_cast<double>(end)) / 2;
    peaks.top.push_back({(static_cast<double>(first) + middle) * step, best});
    // Two runners-up, each away from the peaks before it.
    std::vector<std::pair<std::size_t, std::size_t>> excluded;
    auto exclude = [&](std::size_t a, std::size_t b) {
      const auto ap = static_cast<std::size_t>(apart);
      excluded.emplace_back(a > ap ? a - ap : 0, std::min(n - 1, b + ap));
    };
    exclude(at, end);
    for (int k = 0; k < 2; ++k) {
      std::int64_t score = INT64_MIN;
      std::size_t where = 0;
      for (std::size_t i = 0; i < n;) {
        bool skipped = false;
        for (const auto& [a, b] : excluded) {
          if (i >= a && i <= b) {
            i = b + 1;
            skipped = true;
          }
        }
        if (skipped) continue;
        if (curve[i] > score) {
          score = curve[i];
          where = i;
        }
        ++i;
      }
      if (score == INT64_MIN) break;
      peaks.top.push_back({(static_cast<double>(first) + static_cast<double>(where)) * step, score});
      exclude(where, where);
    }
    return peaks;
  }

 private:
  double step;
  std::vector<Cells> cueCells, speech, listened;
  std::vector<std::int32_t> impulses, starts, curve;
};

struct Onset {
  double position;  // the player's clock
  double cueStart;  // subtitle time
};

// Speech onsets that meet a cue's start under a timing, one onset a cue
// (the nearest). An onset where listening began is no onset at all.
std::vector<Onset> matchOnsets(const Heard& heard, const std::vector<Span>& cues, Timing timing, double reach) {
  std::vector<Onset> onsets;
  std::vector<double> distance;
  for (const Span& s : heard.speech) {
    const bool cut = std::any_of(heard.listened.begin(), heard.listened.end(),
                                 [&](const Span& l) { return std::fabs(l.start - s.start) < 0.05; });
    if (cut) continue;
    const double t = s.start * timing.rate + timing.offset;
    auto it = std::lower_bound(cues.begin(), cues.end(), t, [](const Span& c, double v) { return c.start < v; });
    const Span* nearest = nullptr;
    if (it != cues.end()) nearest = &*it;
    if (it != cues.begin() && (!nearest || t - std::prev(it)->start < nearest->start - t)) nearest = &*std::prev(it);
    if (!nearest || std::fabs(nearest->start - t) > reach) continue;
    const double d = std::fabs(nearest->start - t);
    if (!onsets.empty() && onsets.back().cueStart == nearest->start) {
      if (d < distance.back()) {
        onsets.back() = {s.start, nearest->start};
        distance.back() = d;
      }
      continue;
    }
    onsets.push_back({s.start, nearest->start});
    distance.push_back(d);
  }
  return onsets;
}

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  const auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
  std::nth_element(v.begin(), mid, v.end());
  if (v.size() % 2) return *mid;
  return (*mid + *std::max_element(v.begin(), mid)) / 2;
}

}  // namespace

std::vector<Span> spokenCueSpans(const std::vector<Cue>& cues) {
  std::vector<Span> spans;
  spans.reserve(cues.size());
  for (const Cue& c : cues) {
    if (std::isfinite(c.start) && std::isfinite(c.end) && c.end > c.start && spoken(c.text)) {
      spans.push_back({c.start, c.end});
    }
  }
  joinOverlaps(spans);
  return spans;
}

std::size_t spokenCueCount(const std::vector<Cue>& cues) {
  return static_cast<std::size_t>(
      std::count_if(cues.begin(), cues.end(), [](const Cue& c) { return c.end > c.start && spoken(c.text); }));
}

double Heard::speechSeconds() const {
  double total = 0;
  for (const Span& s : speech) total += s.end - s.start;
  return total;
}

Alignment align(const Heard& input, const std::vector<Span>& cues, std::span<const double> rates,
                const AlignerOptions& options) {
  Alignment result;
  Heard heard = input;
  joinOverlaps(heard.speech);
  joinOverlaps(heard.listened);
  std::erase_if(heard.speech, [](const Span& s) { return s.end - s.start > kLongestSpeech; });
  const double speechSeconds = heard.speechSeconds();
  if (speechSeconds < options.minSpeech || cues.empty() || rates.empty()) {
    result.doubt = "not enough speech";
    return result;
  }

  std::vector<double> starts;
  for (const Span& sp : heard.speech) {
    const bool cut = std::any_of(heard.listened.begin(), heard.listened.end(),
                                 [&](const Span& l) { return std::fabs(l.start - sp.start) < 0.05; });
    if (!cut) starts.push_back(sp.start);
  }
  Sweep sweep(cues, options.step);
  const auto apart = static_cast<std::int64_t>(std::llround(options.apart / options.step));
  std::vector<Peaks> all;
  for (double rate : rates) {
    if (rate > 0 && std::isfinite(rate)) all.push_back(sweep.run(heard, starts, rate, apart));
  }
  const Peaks* bestRate = nullptr;
  for (const Peaks& p : all) {
    if (!p.top.empty() && (!bestRate || p.top[0].score > bestRate->top[0].score)) bestRate = &p;
  }
  if (!bestRate) {
    result.doubt = "nothing to align";
    return result;
  }
  const Timing coarse{bestRate->rate, bestRate->top[0].offset};
  const std::int64_t best = bestRate->top[0].score;
  result.best = coarse;

  // Another rate meets the same lines at its own offset: the one that maps
  // the middle of what was heard to the same subtitle time. Its peak there
  // is the same answer, told less or more well; its peaks elsewhere are
  // rival answers.
  double first = heard.speech.front().start, last = heard.speech.back().end;
  const double middle = (first + last) / 2;
  std::int64_t runnerUp = INT64_MIN;
  struct Contender {
    double rate;
    std::int64_t score;
  };
  std::vector<Contender> here;
  for (const Peaks& p : all) {
    const double same = coarse.offset + middle * (coarse.rate - p.rate);
    std::int64_t local = INT64_MIN;
    for (const Peaks::Peak& peak : p.top) {
      if (std::fabs(peak.offset - same) < options.apart) {
        local = std::max(local, peak.score);
      } else {
        runnerUp = std::max(runnerUp, peak.score);
      }
    }
    if (local != INT64_MIN) here.push_back({p.rate, local});
  }
  // How far the best stands out, in the spread of the scores of chance
  // alignments: the best of chance stands a few spreads above their mean,
  // the runner-up close behind it. Scores count steps of speech twice.
  const double gap = runnerUp == INT64_MIN ? static_cast<double>(best) : static_cast<double>(best - runnerUp);
  const double lead = gap * options.step / 2;
  result.margin = bestRate->spread > 0 ? gap / bestRate->spread : 0;
  if (result.margin < options.minMargin || lead < options.minLead) {
    result.doubt = "no clear best offset";
    return result;
  }

  // The sweep says where; onsets say exactly where, and at which rate.
  const std::vector<Onset> onsets = matchOnsets(heard, cues, coarse, options.onsetReach);
  std::vector<double> residual;
  for (const Onset& o : onsets) residual.push_back(o.cueStart - o.position * coarse.rate);
  const double centre = median(residual);
  std::vector<double> deviation;
  for (double r : residual) deviation.push_back(std::fabs(r - centre));
  // Chance meetings (a murmur near some cue's start) stray further than
  // the onsets of the lines themselves, whose spread the median tells.
  const double reach = std::clamp(3 * 1.4826 * median(deviation), 0.06, kInlierReach);
  std::vector<Onset> inliers;
  for (std::size_t i = 0; i < onsets.size(); ++i) {
    if (deviation[i] <= reach) inliers.push_back(onsets[i]);
  }
  result.onsets = static_cast<int>(inliers.size());
  if (result.onsets < options.minOnsets) {
    result.doubt = "too few onsets at cue starts";
    return result;
  }
  // The slope of the residuals against the position is how far the rate
  // is from the coarse one. The median of the pairwise slopes: a stray
  // onset (music that starts near a cue) cannot tilt it as it would tilt
  // least squares. Its error follows from the residuals' robust spread.
  const auto residualOf = [&](const Onset& o) { return o.cueStart - o.position * coarse.rate; };
  std::vector<double> slopes;
  for (std::size_t i = 0; i < inliers.size(); ++i) {
    for (std::size_t j = i + 1; j < inliers.size(); ++j) {
      const double dp = inliers[j].position - inliers[i].position;
      if (std::fabs(dp) > 1) slopes.push_back((residualOf(inliers[j]) - residualOf(inliers[i])) / dp);
    }
  }
  const double slope = median(slopes);
  double mp = 0;
  for (const Onset& o : inliers) mp += o.position;
  mp /= static_cast<double>(inliers.size());
  double spp = 0;
  std::vector<double> fitted, spread;
  for (const Onset& o : inliers) {
    spp += (o.position - mp) * (o.position - mp);
    fitted.push_back(residualOf(o) - slope * o.position);
  }
  const double level = median(fitted);
  for (double f : fitted) spread.push_back(std::fabs(f - level));
  // The onsets tell their own spread: a few thousandths where the lines
  // were spoken to the subtitle, a few hundredths in a film's own. A dozen
  // onsets tell it loosely, so it is taken wider the fewer there are, and
  // never below what 10 ms frames can place.
  result.onsetSpread = 1.4826 * median(spread);
  const double sigma = std::max(result.onsetSpread * (1 + 3 / std::sqrt(static_cast<double>(inliers.size()))),
                                kFinestOnset);
  // The pairwise median is a little less efficient than least squares.
  const double se = spp > 0 && !slopes.empty() ? 1.1 * sigma / std::sqrt(spp) : INFINITY;
  const double estimate = coarse.rate + slope;
  result.rateEstimate = estimate;
  result.rateError = se;

  // The rates still in the running: those whose sweep came close here,
  // and every rate near one of them, whatever its sweep said: the onsets
  // alone can tell neighbours apart, and a neighbour left out could not
  // object to the choice.
  const double close = options.minMargin * bestRate->spread;
  std::vector<double> running;
  for (const Contender& c : here) {
    if (static_cast<double>(best - c.score) <= close) running.push_back(c.rate);
  }
  std::vector<double> candidates;
  for (double r : rates) {
    const bool near = std::any_of(running.begin(), running.end(), [&](double c) { return std::fabs(c - r) < 0.003; });
    if (near && std::find(candidates.begin(), candidates.end(), r) == candidates.end()) candidates.push_back(r);
  }
  std::sort(candidates.begin(), candidates.end(), [&](double a, double b) {
    return std::fabs(a - estimate) < std::fabs(b - estimate);
  });
  if (candidates.empty() ||
      std::find(running.begin(), running.end(), candidates.front()) == running.end()) {
    result.doubt = "the onsets and the sweep disagree on the rate";
    return result;
  }
  const double chosen = candidates.front();
  const double miss = (chosen - estimate) / se;
  // The onsets must fit the chosen rate, and fit it clearly better than
  // the next: rates a thousandth apart need a long listen to tell apart.
  if (std::fabs(miss) > 2) {
    result.doubt = "the rate lies between the presets";
    return result;
  }
  if (candidates.size() > 1) {
    const double next = (candidates[1] - estimate) / se;
    if (next * next - miss * miss < options.rateEvidence) {
      result.doubt = kRatesTooClose;
      return result;
    }
  }
  std::vector<double> offsets;
  for (const Onset& o : inliers) offsets.push_back(o.cueStart - o.position * chosen);
  result.timing = Timing{chosen, median(offsets)};
  result.best = *result.timing;
  result.doubt = {};
  return result;
}

}  // namespace lumerix::listen
