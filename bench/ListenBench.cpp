// The cost of one alignment while listening: 2 000 cues (a long film)
// against 90 s of speech, at every preset rate. The session aligns once a
// second of playing, on the main thread. Run: ./bench/listen_bench

#include <benchmark/benchmark.h>

#include <random>

#include "app/Controller.h"
#include "listen/Aligner.h"

namespace {

using namespace lumerix;
using namespace lumerix::listen;

struct Film {
  std::vector<Span> cues;
  Heard heard;
};

Film makeFilm(std::size_t cueCount, double listenSeconds) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(0, 1);
  Film f;
  double t = 10;
  for (std::size_t i = 0; i < cueCount; ++i) {
    const double d = 1 + 3 * u(rng);
    f.cues.push_back({t, t + d});
    t += d + 0.2 + 2 * u(rng);
  }
  // Heard from a third of the way in, 2.5 s later than the subtitle says.
  const double from = t / 3;
  f.heard.listened.push_back({from, from + listenSeconds});
  for (const Span& c : f.cues) {
    if (c.start - 2.5 < from || c.end - 2.5 > from + listenSeconds) continue;
    f.heard.speech.push_back({c.start - 2.5 + 0.05, c.end - 2.5 - 0.3});
  }
  return f;
}

void BM_AlignFilmAgainst90sOfSpeech(benchmark::State& state) {
  const Film film = makeFilm(static_cast<std::size_t>(state.range(0)), 90);
  std::vector<double> rates;
  for (const auto& p : Controller::scalePresets) rates.push_back(p.factor);
  for (auto _ : state) {
    const Alignment a = align(film.heard, film.cues, rates);
    benchmark::DoNotOptimize(a.timing);
  }
  state.counters["speech_spans"] = static_cast<double>(film.heard.speech.size());
}
BENCHMARK(BM_AlignFilmAgainst90sOfSpeech)->Arg(500)->Arg(2000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
