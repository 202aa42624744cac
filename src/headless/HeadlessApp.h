#pragma once

#include <atomic>
#include <iosfwd>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/OverlayHost.h"
#include "sync/SyncSource.h"

namespace lumerix {

// A panel that exists only as text: prints one JSON object a line whenever
// the shown text or the status line changes.
class ConsoleHost : public OverlayHost {
 public:
  ConsoleHost(const Clock& clock, std::ostream& out);

  std::optional<Size> mainScreenSize() override { return Size{1920, 1080}; }
  void createPanel(const PanelConfig& config) override { frame = config.frame; }
  Rect panelFrame() override { return frame; }
  void setPanelFrame(const Rect& f) override { frame = f; }
  void setPanelAlpha(double) override {}
  bool panelIsKey() override { return false; }
  void fadeBackdrop(double, double) override {}
  void setStatusText(const std::string& text) override;
  void setStatusFrame(const Rect&) override {}
  void setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) override;
  void setTextFrame(const Rect&) override {}
  void setBrandPhase(double) override {}
  // No fonts here: a fair guess of a proportional font's size.
  Size measureText(const TextLayer& layer, Size bounds) override;
  void setBandFrame(const Rect&) override {}
  void setBandHidden(bool) override {}

 private:
  double elapsed() const;

  const Clock& clock;
  const double started;
  std::ostream& out;
  Rect frame;
  std::optional<std::string> status;
  std::optional<std::pair<std::string, bool>> shown;
};

// No one to ask: alerts are printed, choices are declined, and quitting
// ends the run loop.
class ConsoleDialogs : public Dialogs {
 public:
  ConsoleDialogs(const Clock& clock, std::ostream& out, std::atomic<bool>& quitRequested)
      : clock(clock), started(clock.uptime()), out(out), quitRequested(quitRequested) {}
  void activate() override {}
  int runAlert(const Alert& alert) override;
  std::optional<std::string> chooseFile(const std::vector<std::string>&) override { return std::nullopt; }
  void openURL(const std::string&) override {}
  void showPreferences() override {}
  void checkForUpdates() override {}
  void terminate() override { quitRequested = true; }

 private:
  const Clock& clock;
  const double started;
  std::ostream& out;
  std::atomic<bool>& quitRequested;
};

// A player that started playing at creation and never stops: the demo's
// source, so the whole program can be seen working with no player at all.
class DemoSync : public SyncSource {
 public:
  explicit DemoSync(const Clock& clock) : clock(clock), started(clock.uptime()) {}
  void start() override {}
  void cancel() override {}
  void snapshotInto(SyncSnapshot& into) override {
    into = {clock.uptime() - started, true, "Demo S01E01", "", false, false};
  }
  bool permissionIssue() override { return false; }

 private:
  const Clock& clock;
  const double started;
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

}  // namespace lumerix
