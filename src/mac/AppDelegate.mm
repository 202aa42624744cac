#import "mac/AppDelegate.h"

#include <os/log.h>
#include <signal.h>
#include <stdlib.h>

#include <iostream>

#include "app/Controller.h"
#include "app/PlatformServices.h"
#import "mac/Conversions.h"
#include "mac/ActionNotice.h"
#include "mac/MacDialogs.h"
#include "mac/MacGlobalKeys.h"
#import "mac/MacDrawing.h"
#include "mac/OverlayPanel.h"
#include "ui/StatusIcon.h"
#include "util/StopSignals.h"

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
                   player.conventions),
        globalKeys([this](const GlobalAction& action) { controller.runAction(action.name); },
                   [this](const std::vector<const GlobalAction*>& refused, Chord chord) {
                     controller.shortcutsRefused(refused, chord);
                   }) {
    globalKeys.apply(controller.globalKeySettings());
    controller.setSoundCapture(platform::makeSoundCapture(*player.system));
  }

  std::unique_ptr<SettingsStore> settings;
  platform::PlayerServices player;
  mac::MacOverlayHost host;
  mac::MacDialogs dialogs;
  Controller controller;
  mac::MacGlobalKeys globalKeys;  // after the controller it drives, gone before it
};

}  // namespace

@implementation AppDelegate {
  std::unique_ptr<Shell> _shell;
  NSStatusItem* _statusItem;
  NSMutableArray* _stopSources;
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
  // Stopped before the subtitle loads: nothing to save, nothing written.
  if (const int signal = stopsignals::takePending()) exit(128 + signal);
  _shell = std::make_unique<Shell>(lookup, startupSubtitlePath(arguments));
  [self buildStatusItem];
  [self startTimers];
  [self handleStopSignals];
  // `Lumerix --do ACTION` from another process; a name this build does not
  // know is dropped.
  [NSDistributedNotificationCenter.defaultCenter addObserverForName:mac::nsString(mac::kActionNotice)
                                                             object:nil
                                                              queue:NSOperationQueue.mainQueue
                                                         usingBlock:^(NSNotification* note) {
                                                           AppDelegate* delegate = weakSelf;
                                                           Controller* c = delegate ? [delegate controller] : nullptr;
                                                           if (c && [note.object isKindOfClass:NSString.class]) {
                                                             c->runAction(mac::stdString(note.object));
                                                           }
                                                         }];
  showGuideOnFirstLaunch(_shell->controller, *_shell->settings);
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  if (_shell) _shell->controller.source().cancel();  // the quit paths cancelled it already; twice is harmless
}

// A stop signal quits as the quit keys do: the calibration is saved. The
// sources see signals the process ignores; one that came while they were
// held (the subtitle loading) is taken off and acted on here.
- (void)handleStopSignals {
  _stopSources = [NSMutableArray new];
  __weak AppDelegate* weakSelf = self;
  void (^stop)(void) = ^{
    AppDelegate* delegate = weakSelf;
    if (Controller* controller = delegate ? [delegate controller] : nullptr) controller->quit();
  };
  for (int s : stopsignals::kSignals) {
    ::signal(s, SIG_IGN);
    dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(s), 0, dispatch_get_main_queue());
    dispatch_source_set_event_handler(source, stop);
    dispatch_resume(source);
    [_stopSources addObject:source];
  }
  const bool came = stopsignals::takePending() != 0;
  stopsignals::release();
  if (came) dispatch_async(dispatch_get_main_queue(), stop);
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

// Asked before the menu shows: the core decides which items are there now.
- (BOOL)validateMenuItem:(NSMenuItem*)item {
  if (item.action == @selector(menuAction:)) item.hidden = !_shell->controller.menuItemShown(static_cast<MenuAction>(item.tag));
  return YES;
}

@end
