#pragma once

#include <string>
#include <vector>

#include "sync/MediaRemoteSync.h"

namespace lumerix {

// How a platform runs the two sources' helpers. Each platform's service set
// builds its own (linux/LinuxSyncCommands.h, mac/MacSyncCommands.h).
struct SyncCommands {
  std::vector<std::string> poll;
  std::vector<std::string> consent;  // empty: no consent run
  MediaRemoteSync::CommandProvider stream;
  std::string streamTarget;  // the now-playing identity that counts; empty: any
  MediaRemoteSync::TargetMatch streamTargetMatch = MediaRemoteSync::TargetMatch::exact;
};

}  // namespace lumerix
