#include "linux/LinuxSyncCommands.h"

#include <unistd.h>

#include "linux/Mpris.h"

namespace lumerix {

SyncCommands linuxSyncCommands(const std::string& helperPath, const std::string& player) {
  SyncCommands c;
  std::vector<std::string> choice;
  if (!player.empty()) choice = {"--player", player};
  c.poll = {helperPath, "poll"};
  c.poll.insert(c.poll.end(), choice.begin(), choice.end());
  c.streamTarget = player.empty() ? "" : mpris::busPrefix + player;
  c.streamTargetMatch = MediaRemoteSync::TargetMatch::withInstances;
  c.stream = [helperPath, choice]() -> std::optional<std::vector<std::string>> {
    if (helperPath.empty() || ::access(helperPath.c_str(), X_OK) != 0) return std::nullopt;
    std::vector<std::string> argv{helperPath, "stream"};
    argv.insert(argv.end(), choice.begin(), choice.end());
    return argv;
  };
  return c;
}

}  // namespace lumerix
