#pragma once

#include <atomic>
#include <cmath>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "app/CommandLine.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/OverlayHost.h"
#include "sync/SyncSource.h"

namespace lumerix {

// A panel that exists only as text: prints one JSON object a line whenever
// the shown text or the status line changes.
class ConsoleHost : public NullOverlayHost {
 public:
  ConsoleHost(const Clock& clock, std::ostream& out);

  std::optional<Size> mainScreenSize() override { return Size{1920, 1080}; }
  void setStatusText(const std::string& text) override;
  void setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) override;
  // No fonts here: a fair guess of a proportional font's size.
  Size measureText(const TextLayer& layer, Size bounds) override;

  // After each tick: prints a change of the shown text, with the player
  // position and the subtitle time that tick used, so a reader can see how
  // far the clock is from the player's own.
  void flushText(std::optional<double> position, std::optional<double> subtitleTime);

 private:
  double elapsed() const;

  const Clock& clock;
  const double started;
  std::ostream& out;
  std::optional<std::pair<std::string, bool>> shown;
  bool textChanged = false;
};

// No one to ask: alerts are printed, choices are declined, and quitting
// ends the run loop.
class ConsoleDialogs : public NullDialogs {
 public:
  ConsoleDialogs(const Clock& clock, std::ostream& out, std::atomic<bool>& quitRequested)
      : clock(clock), started(clock.uptime()), out(out), quitRequested(quitRequested) {}
  int runAlert(const Alert& alert) override;
  void terminate() override { quitRequested = true; }

 private:
  const Clock& clock;
  const double started;
  std::ostream& out;
  std::atomic<bool>& quitRequested;
};

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

// How long the demo's episode runs: its sample's last cue, then a pause.
double demoLoopSeconds();

// A private folder holding the bundled sample subtitle for one run, so the
// demo never touches the user's files; it goes when the run ends. Placed in
// $TMPDIR when that is a usable folder, else in /tmp.
class DemoFolder {
 public:
  DemoFolder();
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

struct HeadlessOptions {
  std::optional<std::string> subtitle;
  bool demo = false;
  std::string player;  // MPRIS name; empty: the "TargetPlayer" setting, else any player
};

// Runs the controller at 20 ticks a second until SIGINT or SIGTERM (or a
// quit key), then leaves as quitting does: calibration saved, sources
// stopped. Returns the exit status.
int runHeadless(const HeadlessOptions& options, std::ostream& out, std::ostream& err);

// What `lumerix` does with its command line, whichever shell is built:
// help, version, --dump-cues and --headless are answered here; the launch
// form goes to showBar, or, in a build without a window (showBar empty),
// runs headless with a note saying so. Returns the exit status.
int runProgram(int argc, char** argv, const std::function<int(const CommandLine&)>& showBar);

}  // namespace lumerix
