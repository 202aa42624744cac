#pragma once

// Objective-C++ only.

#import <AppKit/AppKit.h>

#include "mac/ControllerLookup.h"

NS_ASSUME_NONNULL_BEGIN

// The preferences window: text size, outline, opacity, background, the
// subtitle folder and the second subtitle (its file, size, place and
// colour), each acting at once through the controller. Closing it
// only hides it; it is refreshed from the controller every time it shows.
@interface PreferencesWindow : NSWindowController
- (instancetype)initWithController:(lumerix::mac::ControllerLookup)controller NS_DESIGNATED_INITIALIZER;
- (instancetype)initWithWindow:(nullable NSWindow*)window NS_UNAVAILABLE;
- (nullable instancetype)initWithCoder:(NSCoder*)coder NS_UNAVAILABLE;
- (void)syncFromController;
@end

NS_ASSUME_NONNULL_END
