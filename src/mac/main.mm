#import <AppKit/AppKit.h>

#import "mac/AppDelegate.h"
#include "util/StopSignals.h"

// An accessory application: no Dock icon and no menu bar of its own, only
// the floating bar and the menu-bar item.
int main() {
  lumerix::stopsignals::hold();  // before anything else: no stop may lose the timing
  @autoreleasepool {
    NSApplication* app = NSApplication.sharedApplication;
    [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
    AppDelegate* delegate = [AppDelegate new];  // the application holds its delegate weakly
    app.delegate = delegate;
    [app run];
  }
  return 0;
}
