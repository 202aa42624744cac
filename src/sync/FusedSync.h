#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/System.h"
#include "sync/SyncSource.h"

namespace lumerix {

// True when any window of the target player is the size of a screen, within
// 2 points each way. Only sizes count: not origins, layers or titles; but a
// window whose window manager keeps a full-screen state is judged by that.
bool isFullscreen(const std::vector<int>& targetPids, const std::optional<std::vector<WindowInfo>>& windows,
                  const std::vector<ScreenSize>& screens);

// The one source the controller owns: the poller wins in windowed
// playback, the stream (shifted by a learnt bias, so switching does not make
// the subtitles jump) in full screen. Main thread only, except that the two
// sources run their own threads.
class FusedSync : public SyncSource {
 public:
  // tv: the poller; mr: the now-playing stream. pollerLeadsInFullscreen:
  // where the player answers polls in full screen as it does windowed
  // (MPRIS players), the poller stays in the lead there too; the stream
  // then fills in only while the poller has no position. The TV app cannot
  // be asked in full screen, hence the hand-over on macOS.
  FusedSync(System& system, std::unique_ptr<SyncSource> tv, std::unique_ptr<SyncSource> mr,
            bool pollerLeadsInFullscreen = false);

  void start() override;
  void cancel() override;
  void snapshotInto(SyncSnapshot& into) override;
  bool permissionIssue() override { return tv->permissionIssue(); }
  // Either source's word reaches the listener.
  void onChange(std::function<void()> wake) override;

  // Poller position minus stream position, smoothed; absent until learnt.
  std::optional<double> bias() const { return mrBias; }
  // Whether the player is in full screen, asked at most twice a second.
  // Where the poller leads in full screen the fusion needs no answer, and
  // the window list (round trips to the bus and the display) is asked for
  // only when someone calls this.
  bool fullscreen();

 private:
  bool detectFullscreen();
  void refreshFullscreen();

  System& system;
  const std::unique_ptr<SyncSource> tv;
  const std::unique_ptr<SyncSource> mr;
  const bool pollerLeadsInFullscreen;
  double lastFSCheck = 0;
  bool lastFS = false;
  std::optional<double> mrBias;
  SyncSnapshot t, m;  // the sources' latest, kept for their storage
};

}  // namespace lumerix
