#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "app/Conventions.h"
#include "platform/Clock.h"
#include "platform/SettingsStore.h"
#include "platform/SoundCapture.h"
#include "platform/System.h"
#include "sync/FusedSync.h"

// What each platform's service set gives a shell. Declared here, implemented
// once per platform (linux/, mac/) and chosen by the build, so a shell that
// runs on both never names either.
namespace lumerix::platform {

// The user's own settings store. Problems with it are reported once to
// `warnings`; it keeps working in memory regardless.
std::unique_ptr<SettingsStore> makeUserSettingsStore(std::ostream& warnings);

struct PlayerServices {
  std::unique_ptr<System> system;      // declared first: outlives the source
  std::unique_ptr<SyncSource> source;  // the fused source, not started; for the controller
  FusedSync* fused = nullptr;          // the same source, to see which of its halves leads
  Conventions conventions;             // this platform's words (naming the player) and rules
};

// The machine and the source following the player. player: the one the
// user named on the command line; empty means the platform's default (the
// TV app on macOS; on Linux the "TargetPlayer" setting, else any player).
PlayerServices makePlayerServices(SettingsStore& settings, const std::string& player);

// Whether this platform follows players the user can name (MPRIS on Linux),
// and keeps its settings in a file of its own; macOS follows the TV app and
// keeps them in the user defaults. What --help offers follows it.
bool linuxPlayers();

// Listening to what the machine plays, for syncing by listening; nothing is
// captured until the controller starts it.
std::unique_ptr<SoundCapture> makeSoundCapture(const Clock& clock);

}  // namespace lumerix::platform
