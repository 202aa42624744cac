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

SyncCommands macSyncCommands(std::optional<std::string> contents) {
  SyncCommands c;
  c.poll = {"/usr/bin/osascript", "-e", std::string(TVSync::pollScript)};
  c.consent = {"/usr/bin/osascript", "-e", std::string(TVSync::consentScript)};
  c.streamTarget = tvAppBundleID;
  c.stream = [contents]() -> std::optional<std::vector<std::string>> {
    if (!contents) return std::nullopt;
    const std::string script = *contents + "/" + adapterScriptInBundle;
    const std::string framework = *contents + "/" + adapterFrameworkInBundle;
    if (!exists(script) || !exists(framework)) return std::nullopt;
    return std::vector<std::string>{"/usr/bin/perl", script, framework, "stream"};
  };
  return c;
}

}  // namespace lumerix
