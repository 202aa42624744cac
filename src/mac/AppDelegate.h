#pragma once

// Objective-C++ only.

#import <AppKit/AppKit.h>

// Starts the controller once launching has finished, with the first
// argument as the start-up subtitle when a file is there; runs its timers
// and its menu-bar item; stops its playback source when the application
// ends.
@interface AppDelegate : NSObject <NSApplicationDelegate, NSMenuItemValidation>
@end
