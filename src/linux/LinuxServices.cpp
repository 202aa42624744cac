#include <ostream>

#include "app/PlatformServices.h"
#include "app/SettingsKeys.h"
#include "linux/FileSettingsStore.h"
#include "linux/LinuxSyncCommands.h"
#include "linux/LinuxSystem.h"
#include "linux/PulseCapture.h"
#include "sync/TVSync.h"

namespace lumerix::platform {

std::unique_ptr<SettingsStore> makeUserSettingsStore(std::ostream& warnings) {
  if (auto path = FileSettingsStore::defaultPath()) return std::make_unique<FileSettingsStore>(*path, warnings);
  warnings << "lumerix: neither XDG_CONFIG_HOME nor HOME names a folder; settings last only until you quit"
           << std::endl;
  return std::make_unique<MemorySettingsStore>();
}

bool linuxPlayers() {
  return true;
}

PlayerServices makePlayerServices(SettingsStore& settings, const std::string& player) {
  const std::string name = player.empty() ? settings.stringFor(keys::targetPlayer).value_or("") : player;
  PlayerServices p;
  p.system = std::make_unique<LinuxSystem>(name);
  const SyncCommands commands = linuxSyncCommands(LinuxSystem::helperPath(), name);
  const SourceTexts texts = linuxSourceTexts(name, LinuxSystem::helperPlaces());
  TVSync::Options poller{commands.poll, commands.consent};
  poller.texts = texts.poller;
  // One resident helper answers every poll, with the player's rate.
  poller.resident = true;
  poller.answerCarriesRate = true;
  poller.stepEdges = true;
  // MPRIS players answer in full screen as they do windowed.
  auto fused =
      std::make_unique<FusedSync>(*p.system, std::make_unique<TVSync>(*p.system, poller),
                                  std::make_unique<MediaRemoteSync>(*p.system, commands.stream, commands.streamTarget,
                                                                    2.0, commands.streamTargetMatch, texts.stream),
                                  true);
  p.fused = fused.get();
  p.source = std::move(fused);
  // Players here report file names: "Show.S01E02.mkv" is episode 2.
  p.conventions = {linuxUiTexts(name), EpisodeRule::seasonEpisodeTag, MenuStyle::barKeys};
  return p;
}

std::unique_ptr<SoundCapture> makeSoundCapture(const Clock& clock) {
  return std::make_unique<PulseCapture>(clock);
}

}  // namespace lumerix::platform
