#import "mac/PreferencesWindow.h"

#import "mac/Conversions.h"
#include "mac/MacGlobalKeys.h"
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
  NSPopUpButton* _encodingPopup;
  NSTextField* _folderLabel;
  NSTextField* _fontValue;
  NSTextField* _strokeValue;
  NSTextField* _alphaValue;
  NSTextField* _secondLabel;
  NSButton* _secondRemove;
  NSSlider* _secondFontSlider;
  NSTextField* _secondFontValue;
  NSPopUpButton* _secondPositionPopup;
  NSPopUpButton* _secondColorPopup;
  NSButton* _globalBox;
  NSPopUpButton* _chordPopup;
  NSTextField* _globalLine;
  NSButton* _listenAlways;
}

- (instancetype)initWithController:(lumerix::mac::ControllerLookup)controller {
  // Rows more than the five: the fallback encoding, the second subtitle's,
  // the shortcuts with the chord, then listening's.
  const double height = prefs::windowHeight + prefs::secondRowsHeight + 3 * (prefs::rowSpacing + 25) +
                        prefs::rowSpacing + prefs::listenRowHeight;
  NSWindow* window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, prefs::windowWidth, height)
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
  _encodingPopup = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
  for (const std::string& item : Controller::fallbackEncodingItems()) [_encodingPopup addItemWithTitle:nsString(item)];
  _encodingPopup.target = self;
  _encodingPopup.action = @selector(encodingChanged:);
  _folderLabel = [self secondaryLabel:prefs::folderInitial];
  _folderLabel.lineBreakMode = NSLineBreakByTruncatingMiddle;
  [_folderLabel setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                         forOrientation:NSLayoutConstraintOrientationHorizontal];
  [_folderLabel.widthAnchor constraintLessThanOrEqualToConstant:prefs::folderLabelMaxWidth].active = YES;
  _fontValue = [self valueLabel];
  _strokeValue = [self valueLabel];
  _alphaValue = [self valueLabel];
  _secondLabel = [self secondaryLabel:prefs::secondNone];
  _secondLabel.lineBreakMode = NSLineBreakByTruncatingMiddle;
  [_secondLabel setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                         forOrientation:NSLayoutConstraintOrientationHorizontal];
  [_secondLabel.widthAnchor constraintLessThanOrEqualToConstant:prefs::folderLabelMaxWidth].active = YES;
  _secondRemove = [NSButton buttonWithTitle:nsString(prefs::secondRemoveTitle)
                                     target:self
                                     action:@selector(removeSecond:)];
  _secondFontSlider = [self sliderFor:prefs::secondFontRow action:@selector(secondFontChanged:)];
  _secondFontValue = [self valueLabel];
  _secondPositionPopup = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
  for (std::string_view item : prefs::secondPositionItems) [_secondPositionPopup addItemWithTitle:nsString(item)];
  _secondPositionPopup.target = self;
  _secondPositionPopup.action = @selector(secondPositionChanged:);
  _secondColorPopup = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
  for (const prefs::ColorChoice& choice : prefs::secondColors) {
    [_secondColorPopup addItemWithTitle:nsString(choice.title)];
  }
  _secondColorPopup.target = self;
  _secondColorPopup.action = @selector(secondColorChanged:);
  _globalBox = [NSButton checkboxWithTitle:nsString(lumerix::globalKeysCheckTitle)
                                    target:self
                                    action:@selector(globalChanged:)];
  _chordPopup = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
  for (lumerix::Chord chord : lumerix::chordChoices(lumerix::KeyNames::mac)) {
    [_chordPopup addItemWithTitle:nsString(lumerix::chordText(chord, lumerix::KeyNames::mac))];
  }
  _chordPopup.target = self;
  _chordPopup.action = @selector(chordChanged:);
  _globalLine = [self secondaryLabel:""];
  _globalLine.lineBreakMode = NSLineBreakByTruncatingTail;
  [_globalLine.widthAnchor constraintLessThanOrEqualToConstant:prefs::windowWidth - 40].active = YES;
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
  NSButton* openSecond = [NSButton buttonWithTitle:nsString(prefs::secondOpenTitle)
                                            target:self
                                            action:@selector(openSecond:)];
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
    @[ [self rowTitle:prefs::fallbackEncodingTitle], _encodingPopup, none ],
    @[ [self rowTitle:prefs::folderTitle], [NSStackView stackViewWithViews:@[ _folderLabel, choose ]], none ],
    @[
      [self rowTitle:prefs::secondTitle], [NSStackView stackViewWithViews:@[ _secondLabel, openSecond, _secondRemove ]],
      none
    ],
    @[ [self rowTitle:prefs::secondFontRow.title], _secondFontSlider, _secondFontValue ],
    @[ [self rowTitle:prefs::secondPositionTitle], _secondPositionPopup, none ],
    @[ [self rowTitle:prefs::secondColorTitle], _secondColorPopup, none ],
    @[ [self rowTitle:lumerix::globalKeysTitle], [NSStackView stackViewWithViews:@[ _globalBox, _chordPopup ]], none ],
    @[ none, _globalLine, none ],
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
  [_encodingPopup selectItemAtIndex:values.fallbackEncoding];
  _folderLabel.stringValue = nsString(values.folder);
  _secondLabel.stringValue = nsString(values.second.file);
  _secondRemove.enabled = values.second.loaded;
  _secondFontSlider.doubleValue = values.second.fontSize;
  [_secondPositionPopup selectItemAtIndex:values.second.position];
  [_secondColorPopup selectItemAtIndex:values.second.color];  // -1: none of ours
  _listenAlways.state = values.listenAlways ? NSControlStateValueOn : NSControlStateValueOff;
  [self refreshValueLabels];
  [self syncGlobalKeys];
}

- (void)syncGlobalKeys {
  Controller* c = _controller();
  if (!c) return;
  using namespace lumerix;
  const GlobalKeySettings keys = c->globalKeySettings();
  const auto choices = chordChoices(KeyNames::mac);
  while (_chordPopup.numberOfItems > static_cast<NSInteger>(choices.size())) {
    [_chordPopup removeItemAtIndex:_chordPopup.numberOfItems - 1];
  }
  NSInteger at = -1;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (choices[i] == keys.chord) at = static_cast<NSInteger>(i);
  }
  // A chord written into the defaults by hand shows as itself.
  if (at < 0) {
    [_chordPopup addItemWithTitle:nsString(chordText(keys.chord, KeyNames::mac))];
    at = _chordPopup.numberOfItems - 1;
  }
  [_chordPopup selectItemAtIndex:at];
  mac::MacGlobalKeys* service = mac::MacGlobalKeys::current();
  const GlobalKeysState state = service ? service->state() : GlobalKeysState::unavailable;
  _globalBox.state = keys.enabled && state != GlobalKeysState::unavailable ? NSControlStateValueOn
                                                                            : NSControlStateValueOff;
  _globalBox.enabled = state != GlobalKeysState::unavailable;
  _chordPopup.enabled = state == GlobalKeysState::active;
  const std::vector<const GlobalAction*> none;
  _globalLine.stringValue =
      nsString(globalKeysLine(state, keys.chord, service ? service->refused() : none, KeyNames::mac));
}

- (void)applyGlobalKeys {
  Controller* c = _controller();
  if (!c) return;
  if (lumerix::mac::MacGlobalKeys* service = lumerix::mac::MacGlobalKeys::current()) {
    service->apply(c->globalKeySettings());
  }
  [self syncGlobalKeys];
}

- (void)globalChanged:(NSButton*)sender {
  if (Controller* c = _controller()) c->setGlobalShortcuts(sender.state == NSControlStateValueOn);
  [self applyGlobalKeys];
}

- (void)chordChanged:(NSPopUpButton*)sender {
  const auto choices = lumerix::chordChoices(lumerix::KeyNames::mac);
  const NSInteger i = sender.indexOfSelectedItem;
  if (i < 0 || static_cast<std::size_t>(i) >= choices.size()) return;
  if (Controller* c = _controller()) c->setGlobalChord(choices[static_cast<std::size_t>(i)]);
  [self applyGlobalKeys];
}

- (void)refreshValueLabels {
  _fontValue.stringValue = nsString(prefs::fontValueLabel(_fontSlider.doubleValue));
  _strokeValue.stringValue = nsString(prefs::strokeValueLabel(_strokeSlider.doubleValue));
  _alphaValue.stringValue = nsString(prefs::alphaValueLabel(_alphaSlider.doubleValue));
  _secondFontValue.stringValue = nsString(prefs::fontValueLabel(_secondFontSlider.doubleValue));
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

- (void)openSecond:(id)sender {
  if (Controller* c = _controller()) c->openSecondFileDialog();
  [self syncFromController];
}

- (void)removeSecond:(id)sender {
  if (Controller* c = _controller()) c->removeSecondSubtitle();
  [self syncFromController];
}

- (void)secondFontChanged:(NSSlider*)sender {
  if (Controller* c = _controller()) c->setSecondFontSize(sender.doubleValue);
  [self refreshValueLabels];
}

- (void)secondPositionChanged:(NSPopUpButton*)sender {
  if (Controller* c = _controller()) c->setSecondAbove(sender.indexOfSelectedItem == 1);
}

- (void)secondColorChanged:(NSPopUpButton*)sender {
  const NSInteger i = sender.indexOfSelectedItem;
  if (i < 0 || i >= static_cast<NSInteger>(std::size(prefs::secondColors))) return;
  if (Controller* c = _controller()) c->setSecondColor(std::string(prefs::secondColors[i].hex));
}

- (void)encodingChanged:(NSPopUpButton*)sender {
  if (Controller* c = _controller()) c->setFallbackEncodingIndex(sender.indexOfSelectedItem);
}

- (void)listenAlwaysChanged:(NSButton*)sender {
  if (Controller* c = _controller()) c->setListenAlways(sender.state == NSControlStateValueOn);
}

- (void)chooseFolder:(id)sender {
  Controller* c = _controller();
  if (c && c->chooseSubtitleFolder()) _folderLabel.stringValue = nsString(c->preferenceValues().folder);
}

@end
