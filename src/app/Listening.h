#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "listen/ListenSession.h"
#include "platform/SoundCapture.h"

namespace lumerix {

// What the controller keeps for syncing by listening (Listening.cpp).
struct ListeningState {
  std::unique_ptr<SoundCapture> capture;  // none: this build cannot listen
  std::unique_ptr<listen::ListenSession> session;
  std::optional<std::string> sessionPath;  // the subtitle it listens for
  std::vector<HeardFrame> frames;          // reused by every tick
  // The timing before the last sync by listening, for as long as the same
  // subtitle stays loaded.
  std::optional<listen::Timing> undo;
  std::optional<std::string> undoPath;
  bool always = false;  // keep in sync while playing
  listen::KeepInSync keep;
  std::optional<double> lastKeepTick;
  bool keepFailed = false;  // said once; keeping tries again quietly
  int menuRevision = 0;
};

}  // namespace lumerix
