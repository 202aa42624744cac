#include "sync/SyncCommands.h"

#include <sys/stat.h>
#include <unistd.h>

namespace lumerix {

namespace {

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

SyncCommands macSyncCommands(std::optional<std::string> resourceDir, std::optional<std::string> privateFrameworksDir) {
  SyncCommands c;
  c.poll = {"/usr/bin/osascript", "-e", std::string(TVSync::pollScript)};
  c.consent = {"/usr/bin/osascript", "-e", std::string(TVSync::consentScript)};
  c.streamTarget = "com.apple.TV";
  c.stream = [resourceDir, privateFrameworksDir]() -> std::optional<std::vector<std::string>> {
    if (!resourceDir || !privateFrameworksDir) return std::nullopt;
    const std::string script = *resourceDir + "/mediaremote-adapter.pl";
    const std::string framework = *privateFrameworksDir + "/MediaRemoteAdapter.framework";
    if (!exists(script) || !exists(framework)) return std::nullopt;
    return std::vector<std::string>{"/usr/bin/perl", script, framework, "stream"};
  };
  return c;
}

SyncCommands linuxSyncCommands(const std::string& helperPath, const std::string& player) {
  SyncCommands c;
  std::vector<std::string> choice;
  if (!player.empty()) choice = {"--player", player};
  c.poll = {helperPath, "poll"};
  c.poll.insert(c.poll.end(), choice.begin(), choice.end());
  c.streamTarget = player.empty() ? "" : "org.mpris.MediaPlayer2." + player;
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
