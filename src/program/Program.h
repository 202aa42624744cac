#pragma once

#include <atomic>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

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

struct HeadlessOptions {
  std::optional<std::string> subtitle;
  bool demo = false;
  bool listen = false;          // sync the subtitle by listening from the start
  std::string player;           // MPRIS name; empty: the "TargetPlayer" setting, else any player
  std::string_view demoSample;  // the bundled sample subtitle's text, for the demo
};

// Runs the controller at 20 ticks a second until SIGINT or SIGTERM (or a
// quit key), then leaves as quitting does: calibration saved, sources
// stopped. Returns the exit status.
int runHeadless(const HeadlessOptions& options, std::ostream& out, std::ostream& err);

// What `lumerix` does with its command line, whichever shell is built:
// help, version, --dump-cues and --headless are answered here; the launch
// form goes to showBar, or, in a build without a window (showBar empty),
// runs headless with a note saying so. Returns the exit status.
// demoSample: the bundled sample subtitle's text (SampleSubtitle.h, which
// the build makes from samples/sample.srt).
int runProgram(int argc, char** argv, std::string_view demoSample,
               const std::function<int(const CommandLine&)>& showBar);

}  // namespace lumerix
