#import "mac/PreferencesWindow.h"

#import "mac/Conversions.h"
#include "ui/Preferences.h"

using lumerix::Controller;
using lumerix::mac::nsString;
namespace prefs = lumerix::prefs;

@implementation PreferencesWindow {
  lumerix::mac::ControllerLookup _controller;
  NSSlider* _fontSlider;
  NSSlider* _strokeSlider;
  NSSlider* _alphaSlider;
  NSPopUpButton* _bgPopup;
  NSTextField* _folderLabel;
  NSTextField* _fontValue;
  NSTextField* _strokeValue;
  NSTextField* _alphaValue;
  NSButton* _listenAlways;
}

- (instancetype)initWithController:(lumerix::mac::ControllerLookup)controller {
  NSWindow* window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, prefs::windowWidth,
                                                                               prefs::windowHeight + prefs::rowSpacing +
                                                                                   prefs::listenRowHeight)
                                                 styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                                                   backing:NSBackingStoreBuffered
                                                     defer:NO];
  window.title = nsString(prefs::windowTitle);
  window.releasedWhenClosed = NO;
  self = [super initWithWindow:window];
  if (!self) return nil;
  _controller = std::move(controller);
  _fontSlider = [self sliderFor:prefs::fontRow action:@selector(fontChanged:)];
  _strokeSlider = [self sliderFor:prefs::strokeRow action:@selector(strokeChanged:)];
  _alphaSlider = [self sliderFor:prefs::alphaRow action:@selector(alphaChanged:)];
  _bgPopup = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
  for (std::string_view item : prefs::backgroundItems) [_bgPopup addItemWithTitle:nsString(item)];
  _bgPopup.target = self;
  _bgPopup.action = @selector(bgChanged:);
  _folderLabel = [self secondaryLabel:prefs::folderInitial];
  _folderLabel.lineBreakMode = NSLineBreakByTruncatingMiddle;
  [_folderLabel setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                         forOrientation:NSLayoutConstraintOrientationHorizontal];
  [_folderLabel.widthAnchor constraintLessThanOrEqualToConstant:prefs::folderLabelMaxWidth].active = YES;
  _fontValue = [self valueLabel];
  _strokeValue = [self valueLabel];
  _alphaValue = [self valueLabel];
  _listenAlways = [NSButton checkboxWithTitle:nsString(prefs::listenAlwaysTitle)
                                       target:self
                                       action:@selector(listenAlwaysChanged:)];
  [self buildUI];
  [self syncFromController];
  return self;
}

- (NSSlider*)sliderFor:(const prefs::SliderRow&)row action:(SEL)action {
  NSSlider* slider = [NSSlider sliderWithValue:row.initial
                                      minValue:row.minimum
                                      maxValue:row.maximum
                                        target:self
                                        action:action];
  slider.continuous = YES;
  [slider.widthAnchor constraintEqualToConstant:prefs::sliderWidth].active = YES;
  return slider;
}

- (NSTextField*)secondaryLabel:(std::string_view)text {
  NSTextField* label = [NSTextField labelWithString:nsString(text)];
  label.textColor = NSColor.secondaryLabelColor;
  return label;
}

- (NSTextField*)valueLabel {
  NSTextField* label = [self secondaryLabel:""];
  [label.widthAnchor constraintEqualToConstant:prefs::valueLabelWidth].active = YES;
  return label;
}

- (NSTextField*)rowTitle:(std::string_view)text {
  return [NSTextField labelWithString:nsString(text)];
}

- (void)buildUI {
  NSButton* choose = [NSButton buttonWithTitle:nsString(prefs::chooseTitle)
                                        target:self
                                        action:@selector(chooseFolder:)];
  NSView* none = NSGridCell.emptyContentView;
  NSTextField* privacy = [self secondaryLabel:prefs::listenPrivacy];
  privacy.font = [NSFont systemFontOfSize:NSFont.smallSystemFontSize];
  privacy.lineBreakMode = NSLineBreakByWordWrapping;
  privacy.preferredMaxLayoutWidth = prefs::sliderWidth + prefs::valueLabelWidth;
  NSStackView* listen = [NSStackView stackViewWithViews:@[ _listenAlways, privacy ]];
  listen.orientation = NSUserInterfaceLayoutOrientationVertical;
  listen.alignment = NSLayoutAttributeLeading;
  listen.spacing = 2;
  NSGridView* grid = [NSGridView gridViewWithViews:@[
    @[ [self rowTitle:prefs::fontRow.title], _fontSlider, _fontValue ],
    @[ [self rowTitle:prefs::strokeRow.title], _strokeSlider, _strokeValue ],
    @[ [self rowTitle:prefs::alphaRow.title], _alphaSlider, _alphaValue ],
    @[ [self rowTitle:prefs::backgroundTitle], _bgPopup, none ],
    @[ [self rowTitle:prefs::folderTitle], [NSStackView stackViewWithViews:@[ _folderLabel, choose ]], none ],
    @[ none, listen, none ],
  ]];
  [[grid cellForView:listen].row mergeCellsInRange:NSMakeRange(1, 2)];
  grid.rowSpacing = prefs::rowSpacing;
  grid.columnSpacing = prefs::columnSpacing;
  [grid columnAtIndex:0].xPlacement = NSGridCellPlacementTrailing;
  grid.translatesAutoresizingMaskIntoConstraints = NO;
  NSView* content = self.window.contentView;
  if (!content) return;  // a window made with a content rectangle has one
  [content addSubview:grid];
  [NSLayoutConstraint activateConstraints:@[
    [grid.centerXAnchor constraintEqualToAnchor:content.centerXAnchor],
    [grid.centerYAnchor constraintEqualToAnchor:content.centerYAnchor],
  ]];
}

- (void)syncFromController {
  Controller* c = _controller();
  if (!c) return;
  const prefs::Values values = c->preferenceValues();
  _fontSlider.doubleValue = values.fontSize;
  _strokeSlider.doubleValue = values.strokeWidth;
  _alphaSlider.doubleValue = values.alpha;
  [_bgPopup selectItemAtIndex:values.bgMode];
  _folderLabel.stringValue = nsString(values.folder);
  _listenAlways.state = values.listenAlways ? NSControlStateValueOn : NSControlStateValueOff;
  [self refreshValueLabels];
}

- (void)refreshValueLabels {
  _fontValue.stringValue = nsString(prefs::fontValueLabel(_fontSlider.doubleValue));
  _strokeValue.stringValue = nsString(prefs::strokeValueLabel(_strokeSlider.doubleValue));
  _alphaValue.stringValue = nsString(prefs::alphaValueLabel(_alphaSlider.doubleValue));
}

- (void)fontChanged:(NSSlider*)sender {
  if (Controller* c = _controller()) c->setFontSize(sender.doubleValue);
  [self refreshValueLabels];
}

- (void)strokeChanged:(NSSlider*)sender {
  if (Controller* c = _controller()) c->setStrokeWidth(sender.doubleValue);
  [self refreshValueLabels];
}

- (void)alphaChanged:(NSSlider*)sender {
  if (Controller* c = _controller()) c->setAlpha(sender.doubleValue);
  [self refreshValueLabels];
}

- (void)bgChanged:(NSPopUpButton*)sender {
  if (Controller* c = _controller()) c->setBgMode(sender.indexOfSelectedItem);
}

- (void)listenAlwaysChanged:(NSButton*)sender {
  if (Controller* c = _controller()) c->setListenAlways(sender.state == NSControlStateValueOn);
}

- (void)chooseFolder:(id)sender {
  Controller* c = _controller();
  if (c && c->chooseSubtitleFolder()) _folderLabel.stringValue = nsString(c->preferenceValues().folder);
}

@end
