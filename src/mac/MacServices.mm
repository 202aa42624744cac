#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#include <unistd.h>

#include <ostream>

#include "app/PlatformServices.h"
#include "mac/ActionNotice.h"
#import "mac/Conversions.h"
#include "mac/MacSettingsStore.h"
#include "mac/MacSyncCommands.h"
#include "mac/MacSystem.h"
#include "mac/ProcessTapCapture.h"
#include "sync/TVSync.h"

namespace lumerix::platform {

namespace {

std::optional<std::string> path(NSString* _Nullable folder) {
  if (!folder) return std::nullopt;
  return mac::stdString(folder);
}

}  // namespace

std::unique_ptr<SettingsStore> makeUserSettingsStore(std::ostream&) {
  return std::make_unique<MacSettingsStore>();  // the defaults system reports its own troubles
}

// macOS follows the TV app only: the poll script and the stream's filter
// both name it, so a player named on the command line changes nothing.
bool linuxPlayers() {
  return false;
}

Delivery deliverAction(const std::string& action, std::string&) {
  @autoreleasepool {
    NSString* bundleId = NSBundle.mainBundle.bundleIdentifier ?: mac::nsString(mac::kDefaultBundleId);
    bool running = false;
    for (NSRunningApplication* app in [NSRunningApplication runningApplicationsWithBundleIdentifier:bundleId]) {
      running = running || app.processIdentifier != ::getpid();
    }
    if (!running) return Delivery::notRunning;
    // Delivered at once even while the application is in the background,
    // which it always is: an accessory application is never in front.
    [NSDistributedNotificationCenter.defaultCenter postNotificationName:mac::nsString(mac::kActionNotice)
                                                                 object:mac::nsString(action)
                                                               userInfo:nil
                                                     deliverImmediately:YES];
    return Delivery::delivered;
  }
}

PlayerServices makePlayerServices(SettingsStore&, const std::string&) {
  PlayerServices p;
  p.system = std::make_unique<MacSystem>();
  SyncCommands commands;
  @autoreleasepool {
    // The adapter travels inside the application bundle; outside one (the
    // command-line program) it is missing, and the poller works alone.
    NSBundle* bundle = NSBundle.mainBundle;
    auto contents = path(bundle.bundlePath);
    if (contents) *contents += "/Contents";
    commands = macSyncCommands(contents);
  }
  auto fused = std::make_unique<FusedSync>(
      *p.system, std::make_unique<TVSync>(*p.system, TVSync::Options{commands.poll, commands.consent}),
      std::make_unique<MediaRemoteSync>(*p.system, commands.stream, commands.streamTarget));
  p.fused = fused.get();
  p.source = std::move(fused);
  return p;
}

std::unique_ptr<SoundCapture> makeSoundCapture(const Clock& clock) {
  return std::make_unique<ProcessTapCapture>(clock);
}

}  // namespace lumerix::platform
