#pragma once

#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "sync/SyncSource.h"

// The demo: the whole program at work with no player at all, on the
// bundled sample subtitle. Every shell runs it the same way.
namespace lumerix {

// A player that started playing at creation and plays its episode again
// and again: the demo's source, so the whole program can be seen working
// with no player at all.
class DemoSync : public SyncSource {
 public:
  // loopSeconds: the episode's length; it starts over from 0 after it.
  DemoSync(const Clock& clock, double loopSeconds) : clock(clock), started(clock.uptime()), loopSeconds(loopSeconds) {}
  void start() override {}
  void cancel() override {}
  void snapshotInto(SyncSnapshot& into) override {
    into = {std::fmod(clock.uptime() - started, loopSeconds), true, "Demo S01E01", "", false, false};
  }
  bool permissionIssue() override { return false; }

 private:
  const Clock& clock;
  const double started;
  const double loopSeconds;
};

// How long the demo's episode runs: the sample's last cue, then a pause.
double demoLoopSeconds(std::string_view sample);

// A private folder holding the bundled sample subtitle for one run, so the
// demo never touches the user's files; it goes when the run ends. Placed in
// $TMPDIR when that is a usable folder, else in /tmp.
class DemoFolder {
 public:
  explicit DemoFolder(std::string_view sample);
  ~DemoFolder();
  DemoFolder(const DemoFolder&) = delete;
  DemoFolder& operator=(const DemoFolder&) = delete;
  // The sample's path; absent when no folder could be made (why: error()).
  const std::optional<std::string>& subtitle() const { return sample; }
  const std::string& error() const { return problem; }

 private:
  std::string root;
  std::optional<std::string> sample;
  std::string problem;
};

}  // namespace lumerix
