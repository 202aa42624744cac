// The cost of one controller tick with 10 000 cues while the shown cue does
// not change, and whether it allocates. Run: ./bench/tick_bench

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

#include "app/Controller.h"
#include "app/MemorySettingsStore.h"

namespace {

std::atomic<long> allocations{0};

}  // namespace

void* operator new(std::size_t n) {
  ++allocations;
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

using namespace lumerix;

struct StillClock : Clock {
  double now = 5000;
  double uptime() const noexcept override { return now; }
  double wallClock() const noexcept override { return now; }
};

struct StillSource : SyncSource {
  SyncSnapshot snap;
  void start() override {}
  void cancel() override {}
  void snapshotInto(SyncSnapshot& into) override { into = snap; }  // as the real sources do
  bool permissionIssue() override { return false; }
};

void BM_TickUnchangedCue(benchmark::State& state, const char* track) {
  const std::string path = "/tmp/lumerix-tick-bench-" + std::to_string(::getpid()) + ".srt";
  {
    std::ofstream out(path);
    for (int i = 0; i < 10000; ++i) {
      const int s = i * 3;
      char line[128];
      std::snprintf(line, sizeof line, "%d\n%02d:%02d:%02d,000 --> %02d:%02d:%02d,500\nCue number %d\n\n", i + 1,
                    s / 3600, s / 60 % 60, s % 60, (s + 2) / 3600, (s + 2) / 60 % 60, (s + 2) % 60, i);
      out << line;
    }
  }
  StillClock clock;
  MemorySettingsStore settings;
  NullOverlayHost host;
  NullDialogs dialogs;
  auto source = std::make_unique<StillSource>();
  StillSource* src = source.get();
  src->snap = {15000.25, true, track, "", false, false};  // the middle of the file
  Controller controller({clock, settings, host, dialogs, dialogs}, std::move(source), path);
  clock.now += 10;  // past the start hint: every tick rebuilds the status line
  controller.tick();
  const long before = allocations;
  for (auto _ : state) controller.tick();
  state.counters["allocs/tick"] =
      benchmark::Counter(static_cast<double>(allocations - before) / static_cast<double>(state.iterations()));
  std::remove(path.c_str());
  std::remove((path + ".sync.json").c_str());
}

BENCHMARK_CAPTURE(BM_TickUnchangedCue, short_track, "Episode 3");
BENCHMARK_CAPTURE(BM_TickUnchangedCue, long_track, "The Night Shift, Episode 3: Nobody Leaves");

}  // namespace

BENCHMARK_MAIN();
