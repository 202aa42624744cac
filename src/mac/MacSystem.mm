#include "mac/MacSystem.h"
#include "mac/ScreenSizes.h"

#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>

#include <cstring>

#import "mac/Conversions.h"
#include "mac/MacSyncCommands.h"

namespace lumerix {

namespace {

// NSRunningApplication may be asked from any thread; the poller has no
// autorelease pool of its own, hence the pools around each call.
NSArray<NSRunningApplication*>* tvApps() {
  return [NSRunningApplication runningApplicationsWithBundleIdentifier:mac::nsString(tvAppBundleID)];
}

}  // namespace

std::vector<int> MacSystem::targetProcessIds() {
  std::vector<int> pids;
  @autoreleasepool {
    for (NSRunningApplication* app in tvApps()) pids.push_back(app.processIdentifier);
  }
  return pids;
}

std::optional<std::vector<WindowInfo>> MacSystem::onScreenWindows() {
  @autoreleasepool {
    NSArray<NSDictionary*>* list = (__bridge_transfer NSArray*)CGWindowListCopyWindowInfo(
        kCGWindowListOptionOnScreenOnly | kCGWindowListExcludeDesktopElements, kCGNullWindowID);
    if (!list) return std::nullopt;
    std::vector<WindowInfo> windows;
    windows.reserve(list.count);
    for (NSDictionary* w in list) {
      NSNumber* pid = w[(__bridge NSString*)kCGWindowOwnerPID];
      NSDictionary* bounds = w[(__bridge NSString*)kCGWindowBounds];
      CGRect r = CGRectZero;
      if (bounds) CGRectMakeWithDictionaryRepresentation((__bridge CFDictionaryRef)bounds, &r);
      windows.push_back({pid.intValue, r.size.width, r.size.height, std::nullopt});
    }
    return windows;
  }
}

std::vector<ScreenSize> MacSystem::screenSizes() {
  std::vector<mac::ScreenShape> screens;
  @autoreleasepool {
    for (NSScreen* screen in NSScreen.screens) {
      screens.push_back({screen.frame.size.width, screen.frame.size.height, screen.safeAreaInsets.top});
    }
  }
  return mac::fullScreenSizes(screens);
}

bool MacSystem::targetRunning() {
  @autoreleasepool {
    return tvApps().count > 0;
  }
}

std::optional<int> MacSystem::requestAutomationPermission() {
  AEAddressDesc target;
  if (AECreateDesc(typeApplicationBundleID, tvAppBundleID, std::strlen(tvAppBundleID), &target) != noErr) {
    return std::nullopt;
  }
  const OSStatus status = AEDeterminePermissionToAutomateTarget(&target, typeWildCard, typeWildCard, true);
  AEDisposeDesc(&target);
  return status;
}

}  // namespace lumerix
