#include "linux/LinuxSyncCommands.h"

#include <unistd.h>

namespace lumerix {

SyncCommands linuxSyncCommands(const std::string& helperPath, const std::string& player) {
  SyncCommands c;
  std::vector<std::string> choice;
  if (!player.empty()) choice = {"--player", player};
  c.poll = {helperPath, "serve"};  // resident: a request line in, an answer line out
  c.poll.insert(c.poll.end(), choice.begin(), choice.end());
  // The helper follows only the named player (by its bus name, else by a
  // part of it): whatever it reports is ours.
  c.streamTarget = "";
  c.stream = [helperPath, choice]() -> std::optional<std::vector<std::string>> {
    if (helperPath.empty() || ::access(helperPath.c_str(), X_OK) != 0) return std::nullopt;
    std::vector<std::string> argv{helperPath, "stream"};
    argv.insert(argv.end(), choice.begin(), choice.end());
    return argv;
  };
  return c;
}

}  // namespace lumerix
