#include "mac/OverlayPanel.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#import "mac/Conversions.h"
#import "mac/MacDrawing.h"
#include "overlay/Nameplate.h"

using lumerix::Controller;
using lumerix::TextLayer;
using lumerix::mac::ControllerLookup;

// The bar's window. Borderless, so it says it can become key: clicking it
// is how the user turns its keyboard shortcuts on.
@interface SubtitlePanel : NSPanel
@property(nonatomic) ControllerLookup keyHandler;
@end

@implementation SubtitlePanel

- (BOOL)canBecomeKeyWindow {
  return YES;
}

- (void)keyDown:(NSEvent*)event {
  Controller* c = _keyHandler ? _keyHandler() : nullptr;
  const bool shift = (event.modifierFlags & NSEventModifierFlagShift) != 0;
  if (c && c->handleKey(event.keyCode, shift, lumerix::mac::stdString(event.charactersIgnoringModifiers))) return;
  [super keyDown:event];
}

@end

// The full-size view behind everything: hover and drop target, and the
// handle by which the bar is dragged.
@interface PanelBackdropView : NSView
@property(nonatomic, copy, nullable) void (^onHover)(BOOL inside);
@property(nonatomic, copy, nullable) void (^onFileDropped)(NSString* path);
- (instancetype)initWithFrame:(NSRect)frame NS_DESIGNATED_INITIALIZER;
- (nullable instancetype)initWithCoder:(NSCoder*)coder NS_UNAVAILABLE;
@end

@implementation PanelBackdropView

- (instancetype)initWithFrame:(NSRect)frame {
  self = [super initWithFrame:frame];
  if (self) [self registerForDraggedTypes:@[ NSPasteboardTypeFileURL ]];
  return self;
}

- (void)updateTrackingAreas {
  [super updateTrackingAreas];
  for (NSTrackingArea* area in self.trackingAreas) [self removeTrackingArea:area];
  // In the visible rect: the area follows the view, whatever rect is given.
  [self addTrackingArea:[[NSTrackingArea alloc] initWithRect:NSZeroRect
                                                     options:NSTrackingMouseEnteredAndExited | NSTrackingActiveAlways |
                                                             NSTrackingInVisibleRect
                                                       owner:self
                                                    userInfo:nil]];
}

- (void)hover:(BOOL)inside {
  void (^onHover)(BOOL) = self.onHover;
  if (onHover) onHover(inside);
}

- (void)mouseEntered:(NSEvent*)event {
  [self hover:YES];
}

- (void)mouseExited:(NSEvent*)event {
  [self hover:NO];
}

- (BOOL)mouseDownCanMoveWindow {
  return YES;
}

// The dragged file the controller would load; nil refuses the drag.
- (nullable NSString*)subtitlePathFrom:(id<NSDraggingInfo>)info {
  std::vector<std::string> paths;
  NSDictionary<NSPasteboardReadingOptionKey, id>* filesOnly = @{NSPasteboardURLReadingFileURLsOnlyKey : @YES};
  for (NSURL* url in [info.draggingPasteboard readObjectsForClasses:@[ NSURL.class ] options:filesOnly]) {
    paths.push_back(lumerix::mac::stdString(url.path));
  }
  const auto path = Controller::subtitlePathFrom(paths);
  return path ? lumerix::mac::nsString(*path) : nil;
}

- (NSDragOperation)draggingEntered:(id<NSDraggingInfo>)sender {
  if (![self subtitlePathFrom:sender]) return NSDragOperationNone;
  [self hover:YES];  // lit up as a drop target
  return NSDragOperationCopy;
}

- (void)draggingExited:(nullable id<NSDraggingInfo>)sender {
  [self hover:NO];
}

- (BOOL)performDragOperation:(id<NSDraggingInfo>)sender {
  NSString* path = [self subtitlePathFrom:sender];
  if (!path) return NO;
  [self hover:NO];
  void (^onFileDropped)(NSString*) = self.onFileDropped;
  if (onFileDropped) onFileDropped(path);
  return YES;
}

@end

// The band and the status line only show: the mouse and the dragged files go
// through them to the backdrop, the bar's drop target and drag handle.
@interface PassThroughView : NSView
@end

@implementation PassThroughView
- (nullable NSView*)hitTest:(NSPoint)point {
  return nil;
}
@end

@interface PassThroughLabel : NSTextField
@end

@implementation PassThroughLabel
- (nullable NSView*)hitTest:(NSPoint)point {
  return nil;
}
@end

// The subtitle text: the controller's layers painted over each other, or
// the first of them as the nameplate.
@interface SubtitleTextView : NSView
- (void)setLayers:(const std::vector<TextLayer>&)layers brandMode:(BOOL)brandMode;
- (void)setBrandPhase:(double)phase;
@end

@implementation SubtitleTextView {
  std::vector<TextLayer> _layers;
  NSArray<NSAttributedString*>* _strings;  // the same layers as AppKit text
  BOOL _brandMode;
  double _brandPhase;
}

- (void)setLayers:(const std::vector<TextLayer>&)layers brandMode:(BOOL)brandMode {
  _layers = layers;
  NSMutableArray<NSAttributedString*>* strings = [NSMutableArray arrayWithCapacity:layers.size()];
  for (const TextLayer& layer : layers) [strings addObject:lumerix::mac::attributedString(layer)];
  _strings = strings;
  _brandMode = brandMode;
  self.needsDisplay = YES;
}

- (void)setBrandPhase:(double)phase {
  _brandPhase = phase;
  if (_brandMode) self.needsDisplay = YES;  // the sheen moves
}

// A drop on the nameplate or on a cue lands on the backdrop beneath.
- (nullable NSView*)hitTest:(NSPoint)point {
  return nil;
}

- (BOOL)mouseDownCanMoveWindow {
  return YES;
}

- (void)drawRect:(NSRect)dirtyRect {
  if (_brandMode && !_layers.empty()) {
    CGContextRef context = NSGraphicsContext.currentContext.CGContext;
    if (!context) return;
    lumerix::mac::MacCanvas canvas(context);
    lumerix::drawBrand(canvas, lumerix::mac::rect(self.bounds), _layers.front(), _brandPhase);
    return;
  }
  for (NSAttributedString* layer in _strings) {
    [layer drawWithRect:self.bounds options:NSStringDrawingUsesLineFragmentOrigin context:nil];
  }
}

@end

namespace lumerix::mac {

struct MacOverlayHost::Views {
  SubtitlePanel* panel = nil;
  PanelBackdropView* backdrop = nil;
  NSView* band = nil;
  SubtitleTextView* text = nil;
  SubtitleTextView* second = nil;  // the second subtitle's block, drawn as the first's
  NSTextField* status = nil;
  NSMutableArray<id<NSObject>>* observers = [NSMutableArray array];
};

MacOverlayHost::MacOverlayHost(ControllerLookup controller)
    : views(std::make_unique<Views>()), controller(std::move(controller)) {}

MacOverlayHost::~MacOverlayHost() {
  for (id<NSObject> observer in views->observers) [NSNotificationCenter.defaultCenter removeObserver:observer];
}

std::optional<Size> MacOverlayHost::mainScreenSize() {
  NSScreen* screen = NSScreen.mainScreen;
  if (!screen) return std::nullopt;
  return Size{screen.frame.size.width, screen.frame.size.height};
}

void MacOverlayHost::createPanel(const PanelConfig& config) {
  const NSWindowStyleMask style = (config.nonActivating ? NSWindowStyleMaskNonactivatingPanel : 0) |
                                  (config.resizable ? NSWindowStyleMaskResizable : 0);
  SubtitlePanel* panel = [[SubtitlePanel alloc] initWithContentRect:nsRect(config.frame)
                                                          styleMask:style
                                                            backing:NSBackingStoreBuffered
                                                              defer:NO];
  views->panel = panel;
  panel.keyHandler = controller;
  panel.level = config.aboveFullScreen ? NSPopUpMenuWindowLevel : NSNormalWindowLevel;
  panel.collectionBehavior =
      (config.onAllSpaces ? NSWindowCollectionBehaviorCanJoinAllSpaces | NSWindowCollectionBehaviorStationary : 0) |
      (config.aboveFullScreen ? NSWindowCollectionBehaviorFullScreenAuxiliary : 0);
  panel.opaque = NO;
  panel.backgroundColor = NSColor.clearColor;
  panel.hidesOnDeactivate = NO;
  panel.movableByWindowBackground = config.movableByBackground;
  panel.alphaValue = config.alpha;
  panel.releasedWhenClosed = NO;
  panel.minSize = NSMakeSize(config.minSize.width, config.minSize.height);
  // Restores the frame saved under the name, if any, and saves every change.
  [panel setFrameAutosaveName:nsString(config.autosaveName)];

  const ControllerLookup lookup = controller;
  NSNotificationCenter* center = NSNotificationCenter.defaultCenter;
  NSOperationQueue* main = NSOperationQueue.mainQueue;
  [views->observers addObject:[center addObserverForName:NSWindowDidResizeNotification
                                                  object:panel
                                                   queue:main
                                              usingBlock:^(NSNotification* __unused note) {
                                                if (Controller* c = lookup()) c->panelResized();
                                              }]];
  for (NSNotificationName name in @[ NSWindowDidBecomeKeyNotification, NSWindowDidResignKeyNotification ]) {
    [views->observers addObject:[center addObserverForName:name
                                                    object:panel
                                                     queue:main
                                                usingBlock:^(NSNotification* __unused note) {
                                                  if (Controller* c = lookup()) c->keyWindowChanged();
                                                }]];
  }

  NSView* content = panel.contentView;
  PanelBackdropView* backdrop = [[PanelBackdropView alloc] initWithFrame:content.bounds];
  views->backdrop = backdrop;
  backdrop.autoresizingMask = NSViewWidthSizable | NSViewHeightSizable;
  backdrop.wantsLayer = YES;
  backdrop.layer.backgroundColor = nsColor(config.backdropFill).CGColor;
  backdrop.layer.borderColor = nsColor(config.backdropBorder).CGColor;
  backdrop.layer.borderWidth = config.backdropBorderWidth;
  backdrop.layer.cornerRadius = config.backdropCornerRadius;
  backdrop.alphaValue = config.backdropAlpha;
  backdrop.onHover = ^(BOOL inside) {
    if (Controller* c = lookup()) c->hoverChanged(inside);
  };
  backdrop.onFileDropped = ^(NSString* path) {
    // Option held while letting go: the file is the second subtitle.
    const bool asSecond = (NSEvent.modifierFlags & NSEventModifierFlagOption) != 0;
    if (Controller* c = lookup()) c->fileDropped(stdString(path), asSecond);
  };
  [content addSubview:backdrop];

  NSView* band = [[PassThroughView alloc] initWithFrame:nsRect(config.bandFrame)];
  views->band = band;
  band.wantsLayer = YES;
  band.layer.backgroundColor = nsColor(config.bandFill).CGColor;
  band.layer.cornerRadius = config.bandCornerRadius;
  band.hidden = config.bandHidden;
  [content addSubview:band];

  views->text = [[SubtitleTextView alloc] initWithFrame:NSZeroRect];
  [content addSubview:views->text];
  views->second = [[SubtitleTextView alloc] initWithFrame:NSZeroRect];
  [content addSubview:views->second];

  NSTextField* status = [PassThroughLabel labelWithString:@""];
  views->status = status;
  status.alignment = NSTextAlignmentCenter;
  status.font = [NSFont systemFontOfSize:config.statusFontSize];
  status.textColor = nsColor(config.statusColor);
  [content addSubview:status];

  [panel orderFrontRegardless];
}

Rect MacOverlayHost::panelFrame() {
  return rect(views->panel.frame);
}

void MacOverlayHost::setPanelFrame(const Rect& frame) {
  [views->panel setFrame:nsRect(frame) display:YES];
}

void MacOverlayHost::setPanelAlpha(double alpha) {
  views->panel.alphaValue = alpha;
}

bool MacOverlayHost::panelIsKey() {
  return views->panel.keyWindow;
}

void MacOverlayHost::fadeBackdrop(double alpha, double seconds) {
  PanelBackdropView* backdrop = views->backdrop;
  [NSAnimationContext
      runAnimationGroup:^(NSAnimationContext* context) {
        context.duration = seconds;
        backdrop.animator.alphaValue = alpha;
      }
      completionHandler:nil];
}

void MacOverlayHost::setStatusText(const std::string& text) {
  views->status.stringValue = nsString(text);
}

void MacOverlayHost::setStatusFrame(const Rect& frame) {
  views->status.frame = nsRect(frame);
}

void MacOverlayHost::setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) {
  [views->text setLayers:layers brandMode:brandMode];
}

void MacOverlayHost::setTextFrame(const Rect& frame) {
  views->text.frame = nsRect(frame);
  views->text.needsDisplay = YES;
}

void MacOverlayHost::setBrandPhase(double phase) {
  [views->text setBrandPhase:phase];
}

Size MacOverlayHost::measureText(const TextLayer& layer, Size bounds) {
  const NSRect r = [attributedString(layer) boundingRectWithSize:NSMakeSize(bounds.width, bounds.height)
                                                         options:NSStringDrawingUsesLineFragmentOrigin
                                                         context:nil];
  return {r.size.width, r.size.height};
}

void MacOverlayHost::setBandFrame(const Rect& frame) {
  views->band.frame = nsRect(frame);
}

void MacOverlayHost::setBandHidden(bool hidden) {
  views->band.hidden = hidden;
}

void MacOverlayHost::setSecondText(const std::vector<TextLayer>& layers, const Rect& frame) {
  [views->second setLayers:layers brandMode:NO];
  views->second.frame = nsRect(frame);
  views->second.needsDisplay = YES;
}

void MacOverlayHost::setPanelHidden(bool hidden) {
  if (hidden) {
    [views->panel orderOut:nil];
  } else {
    [views->panel orderFrontRegardless];
  }
}

PanelDiagnostics MacOverlayHost::diagnostics() const {
  SubtitlePanel* p = views->panel;
  return {p.onActiveSpace == YES,
          p.visible == YES,
          p.occlusionState,
          p.keyWindow == YES,
          p.level,
          rect(p.frame),
          NSStringFromRect(p.frame).UTF8String};
}

}  // namespace lumerix::mac
