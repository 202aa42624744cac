#import "mac/AppDelegate.h"

#include <os/log.h>

#include <iostream>

#include "app/Controller.h"
#include "app/PlatformServices.h"
#import "mac/Conversions.h"
#include "mac/MacDialogs.h"
#import "mac/MacDrawing.h"
#include "mac/OverlayPanel.h"
#include "ui/StatusIcon.h"

using namespace lumerix;

namespace {

// Everything the application owns while it runs. The controller is built
// last, so it goes first.
struct Shell {
  Shell(const mac::ControllerLookup& lookup, std::optional<std::string> subtitle)
      : settings(platform::makeUserSettingsStore(std::cerr)),
        player(platform::makePlayerServices(*settings, "")),
        host(lookup),
        dialogs(lookup),
        controller({*player.system, *settings, host, dialogs, dialogs}, std::move(player.source), std::move(subtitle),
                   player.conventions) {
    controller.setSoundCapture(platform::makeSoundCapture(*player.system));
  }

  std::unique_ptr<SettingsStore> settings;
  platform::PlayerServices player;
  mac::MacOverlayHost host;
  mac::MacDialogs dialogs;
  Controller controller;
};

}  // namespace

@implementation AppDelegate {
  std::unique_ptr<Shell> _shell;
  NSStatusItem* _statusItem;
  int _menuRevision;
}

- (Controller*)controller {
  return _shell ? &_shell->controller : nullptr;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  std::vector<std::string> arguments;
  for (NSString* argument in NSProcessInfo.processInfo.arguments) arguments.push_back(mac::stdString(argument));
  __weak AppDelegate* weakSelf = self;
  const mac::ControllerLookup lookup = [weakSelf]() -> Controller* {
    AppDelegate* delegate = weakSelf;
    return delegate ? [delegate controller] : nullptr;
  };
  _shell = std::make_unique<Shell>(lookup, startupSubtitlePath(arguments));
  [self buildStatusItem];
  [self startTimers];
  showGuideOnFirstLaunch(_shell->controller, *_shell->settings);
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  if (_shell) _shell->controller.source().cancel();  // the quit paths cancelled it already; twice is harmless
}

// The tick keeps running while a menu is open or the bar is dragged, hence
// the common modes. Timers end with the process.
- (void)startTimers {
  NSRunLoop* loop = NSRunLoop.mainRunLoop;
  [loop addTimer:[NSTimer timerWithTimeInterval:Controller::tickInterval
                                         target:self
                                       selector:@selector(tick:)
                                       userInfo:nil
                                        repeats:YES]
         forMode:NSRunLoopCommonModes];
  if (!_shell->controller.debugLogEnabled()) return;
  __weak AppDelegate* weakSelf = self;
  [loop addTimer:[NSTimer timerWithTimeInterval:Controller::debugLogInterval
                                        repeats:YES
                                          block:^(NSTimer* __unused timer) {
                                            [weakSelf logPanelState];
                                          }]
         forMode:NSRunLoopCommonModes];
}

- (void)tick:(NSTimer*)timer {
  Controller& controller = _shell->controller;
  controller.tick();
  // Items come and go (listening, undoing it); an open menu keeps its own
  // until it closes.
  if (controller.menuRevision() != _menuRevision) {
    _menuRevision = controller.menuRevision();
    _statusItem.menu = [self menuFrom:controller.menu()];
  }
  // The text changes before the next tick: one more tick right then.
  if (const auto extra = controller.extraTickIn()) {
    [NSRunLoop.mainRunLoop addTimer:[NSTimer timerWithTimeInterval:*extra
                                                           target:self
                                                         selector:@selector(tick:)
                                                         userInfo:nil
                                                          repeats:NO]
                            forMode:NSRunLoopCommonModes];
  }
}

- (void)logPanelState {
  os_log(OS_LOG_DEFAULT, "%{public}s", Controller::debugLine(_shell->host.diagnostics()).c_str());
}

- (void)buildStatusItem {
  _statusItem = [NSStatusBar.systemStatusBar statusItemWithLength:NSSquareStatusItemLength];
  // Drawn in its own black and white: not a template the menu bar recolours.
  NSImage* icon = [NSImage imageWithSize:NSMakeSize(statusIconSize, statusIconSize)
                                 flipped:NO
                          drawingHandler:^BOOL(NSRect __unused rect) {
                            CGContextRef context = NSGraphicsContext.currentContext.CGContext;
                            if (!context) return NO;
                            mac::MacCanvas canvas(context);
                            drawStatusIcon(canvas);
                            return YES;
                          }];
  [icon setTemplate:NO];
  _statusItem.button.image = icon;
  _menuRevision = _shell->controller.menuRevision();
  _statusItem.menu = [self menuFrom:_shell->controller.menu()];
}

// Key equivalents are pressed with Command, the menu items' default.
- (NSMenu*)menuFrom:(const std::vector<MenuItem>&)items {
  NSMenu* menu = [NSMenu new];
  for (const MenuItem& item : items) {
    if (item.separator()) {
      [menu addItem:NSMenuItem.separatorItem];
      continue;
    }
    NSMenuItem* entry = [[NSMenuItem alloc] initWithTitle:mac::nsString(item.title)
                                                   action:item.action == MenuAction::none ? nil : @selector(menuAction:)
                                            keyEquivalent:mac::nsString(item.keyEquivalent)];
    entry.target = self;
    entry.tag = static_cast<NSInteger>(item.action);
    if (!item.submenu.empty()) entry.submenu = [self menuFrom:item.submenu];
    [menu addItem:entry];
  }
  return menu;
}

- (void)menuAction:(NSMenuItem*)sender {
  _shell->controller.perform(static_cast<MenuAction>(sender.tag));
}

@end
