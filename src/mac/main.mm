#import <AppKit/AppKit.h>

#import "mac/AppDelegate.h"

#include <cstring>

#include "program/Program.h"

// An accessory application: no Dock icon and no menu bar of its own, only
// the floating bar and the menu-bar item.
int main(int argc, char** argv) {
  // `Lumerix --do ACTION`, from a shortcut tool or a terminal: handed to the
  // running application, no second one started.
  if (argc > 1 && std::strncmp(argv[1], "--do", 4) == 0) return lumerix::runProgram(argc, argv, {}, nullptr);
  @autoreleasepool {
    NSApplication* app = NSApplication.sharedApplication;
    [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
    AppDelegate* delegate = [AppDelegate new];  // the application holds its delegate weakly
    app.delegate = delegate;
    [app run];
  }
  return 0;
}
