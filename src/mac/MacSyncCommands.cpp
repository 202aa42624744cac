#include "mac/MacSyncCommands.h"

#include <sys/stat.h>

#include "sync/TVSync.h"

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
  c.streamTarget = tvAppBundleID;
  c.stream = [resourceDir, privateFrameworksDir]() -> std::optional<std::vector<std::string>> {
    if (!resourceDir || !privateFrameworksDir) return std::nullopt;
    const std::string script = *resourceDir + "/mediaremote-adapter.pl";
    const std::string framework = *privateFrameworksDir + "/MediaRemoteAdapter.framework";
    if (!exists(script) || !exists(framework)) return std::nullopt;
    return std::vector<std::string>{"/usr/bin/perl", script, framework, "stream"};
  };
  return c;
}

}  // namespace lumerix
