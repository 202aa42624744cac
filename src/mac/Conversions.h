#pragma once

// Between the core's plain values and Foundation's and AppKit's (Objective-C++
// only).

#import <AppKit/AppKit.h>

#include <string>
#include <string_view>

#include "platform/Geometry.h"

NS_ASSUME_NONNULL_BEGIN

namespace lumerix::mac {

// Text that is not UTF-8 (it cannot reach here from the core, whose texts all
// are) gives the empty string rather than nil.
inline NSString* nsString(std::string_view text) {
  NSString* s = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
  return s ? s : @"";
}

inline std::string stdString(NSString* _Nullable text) {
  const char* utf8 = text.UTF8String;
  return utf8 ? utf8 : "";
}

// Calibrated, as the panel's colours were chosen; greys in the grey space.
inline NSColor* nsColor(const RGBA& c) {
  if (c.r == c.g && c.g == c.b) return [NSColor colorWithCalibratedWhite:c.r alpha:c.a];
  return [NSColor colorWithCalibratedRed:c.r green:c.g blue:c.b alpha:c.a];
}

inline NSRect nsRect(const Rect& r) {
  return NSMakeRect(r.x, r.y, r.width, r.height);
}

inline Rect rect(NSRect r) {
  return {r.origin.x, r.origin.y, r.size.width, r.size.height};
}

}  // namespace lumerix::mac

NS_ASSUME_NONNULL_END
