#import <AppKit/AppKit.h>

#import "mac/AppDelegate.h"
#include "util/StopSignals.h"

#include <cstring>
#include <iostream>

#include "app/CommandLine.h"
#include "app/PlatformServices.h"

namespace {

// `Lumerix --do ACTION`, from a shortcut tool or a terminal: handed to the
// running application, no second one started. Exit status as on Linux.
int handOn(int argc, char** argv) {
  using namespace lumerix;
  const CommandLine cl = parseCommandLine({argv + 1, argv + argc});
  if (cl.mode != CommandLine::Mode::doAction) {
    std::cerr << cl.error << '\n';
    return 2;
  }
  std::string why;
  const platform::Delivery delivery = platform::deliverAction(cl.action, why);
  return deliveryStatus(delivery, cl.action, why, std::cerr);
}

}  // namespace

// An accessory application: no Dock icon and no menu bar of its own, only
// the floating bar and the menu-bar item.
int main(int argc, char** argv) {
  lumerix::stopsignals::hold();  // before anything else: no stop may lose the timing
  if (argc > 1 && std::strncmp(argv[1], "--do", 4) == 0) return handOn(argc, argv);
  @autoreleasepool {
    NSApplication* app = NSApplication.sharedApplication;
    [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
    AppDelegate* delegate = [AppDelegate new];  // the application holds its delegate weakly
    app.delegate = delegate;
    [app run];
  }
  return 0;
}
