#include "mac/MacDialogs.h"

#import <AppKit/AppKit.h>
#if __has_include(<UniformTypeIdentifiers/UniformTypeIdentifiers.h>)
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>
#define LUMERIX_HAS_UTTYPE 1
#endif
#if defined(LUMERIX_SPARKLE)
#import <Sparkle/Sparkle.h>
#endif

#include <cmath>

#import "mac/Conversions.h"
#import "mac/PreferencesWindow.h"

namespace lumerix::mac {

namespace {

// The first-run guide as one text view: a row a paragraph, each with its
// symbol (when the system has it), heading and body.
NSTextView* guideView(const std::vector<GuideRow>& rows, const GuideLayout& layout) {
  NSMutableParagraphStyle* paragraph = [NSMutableParagraphStyle new];
  paragraph.paragraphSpacing = layout.paragraphSpacing;
  paragraph.lineSpacing = layout.lineSpacing;
  paragraph.headIndent = layout.headIndent;
  NSFont* bodyFont = [NSFont systemFontOfSize:layout.fontSize];
  NSImageSymbolConfiguration* symbolSize = [NSImageSymbolConfiguration
      configurationWithPointSize:layout.symbolPointSize
                          weight:layout.symbolSemibold ? NSFontWeightSemibold : NSFontWeightRegular];
  NSDictionary* heading = @{
    NSFontAttributeName : [NSFont boldSystemFontOfSize:layout.fontSize],
    NSParagraphStyleAttributeName : paragraph,
    NSForegroundColorAttributeName : NSColor.labelColor,
  };
  NSDictionary* body = @{
    NSFontAttributeName : bodyFont,
    NSParagraphStyleAttributeName : paragraph,
    NSForegroundColorAttributeName : NSColor.secondaryLabelColor,
  };

  NSMutableAttributedString* text = [NSMutableAttributedString new];
  for (const GuideRow& row : rows) {
    NSImage* symbol =
        [[NSImage imageWithSystemSymbolName:nsString(row.symbol)
                   accessibilityDescription:nsString(row.heading)] imageWithSymbolConfiguration:symbolSize];
    if (symbol) {
      NSTextAttachment* attachment = [NSTextAttachment new];
      attachment.image = symbol;
      NSMutableAttributedString* icon = [[NSAttributedString attributedStringWithAttachment:attachment] mutableCopy];
      [icon addAttribute:NSParagraphStyleAttributeName value:paragraph range:NSMakeRange(0, icon.length)];
      [text appendAttributedString:icon];
      [text appendAttributedString:[[NSAttributedString alloc] initWithString:@"  "
                                                                   attributes:@{
                                                                     NSFontAttributeName : bodyFont,
                                                                     NSParagraphStyleAttributeName : paragraph
                                                                   }]];
    }
    [text appendAttributedString:[[NSAttributedString alloc] initWithString:nsString(row.heading) attributes:heading]];
    [text appendAttributedString:[[NSAttributedString alloc] initWithString:nsString(row.body) attributes:body]];
  }

  // TextKit 1: the height below is measured with its layout manager, which
  // a TextKit 2 view (the default from macOS 13) does not have.
  NSTextView* view = [[NSTextView alloc] initUsingTextLayoutManager:NO];
  [view setFrameSize:NSMakeSize(layout.width, 10)];
  view.editable = NO;
  view.selectable = NO;
  view.drawsBackground = NO;
  [view.textStorage setAttributedString:text];
  NSLayoutManager* layoutManager = view.layoutManager;
  NSTextContainer* container = view.textContainer;
  if (layoutManager && container) {
    [layoutManager ensureLayoutForTextContainer:container];
    const double used = [layoutManager usedRectForTextContainer:container].size.height;
    [view setFrameSize:NSMakeSize(layout.width, std::ceil(used) + layout.extraHeight)];
  }
  return view;
}

std::optional<std::string> chosenPath(NSOpenPanel* panel) {
  if ([panel runModal] != NSModalResponseOK) return std::nullopt;
  NSString* path = panel.URLs.firstObject.path;
  if (!path) return std::nullopt;
  return stdString(path);
}

}  // namespace

struct MacDialogs::Windows {
  PreferencesWindow* preferences = nil;  // made when first shown, then kept
#if defined(LUMERIX_SPARKLE)
  SPUStandardUpdaterController* updater = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                                                        updaterDelegate:nil
                                                                                     userDriverDelegate:nil];
#endif
};

MacDialogs::MacDialogs(ControllerLookup controller)
    : windows(std::make_unique<Windows>()), controller(std::move(controller)) {}

MacDialogs::~MacDialogs() = default;

int MacDialogs::runAlert(const Alert& a) {
  NSAlert* alert = [NSAlert new];
  alert.alertStyle = a.style == Alert::Style::warning ? NSAlertStyleWarning : NSAlertStyleInformational;
  alert.messageText = nsString(a.message);
  alert.informativeText = nsString(a.informative);
  for (const std::string& title : a.buttons) [alert addButtonWithTitle:nsString(title)];
  if (!a.guide.empty()) alert.accessoryView = guideView(a.guide, a.guideLayout);
  const NSInteger chosen = [alert runModal] - NSAlertFirstButtonReturn;
  return chosen >= 0 && chosen < static_cast<NSInteger>(a.buttons.size()) ? static_cast<int>(chosen) : -1;
}

std::optional<std::string> MacDialogs::chooseFile(const std::vector<std::string>& extensions) {
  NSOpenPanel* panel = [NSOpenPanel openPanel];
#if defined(LUMERIX_HAS_UTTYPE)
  // Each extension as a kind of data; one the system cannot make is left out.
  NSMutableArray<UTType*>* types = [NSMutableArray array];
  for (const std::string& extension : extensions) {
    if (UTType* type = [UTType typeWithFilenameExtension:nsString(extension) conformingToType:UTTypeData]) {
      [types addObject:type];
    }
  }
  panel.allowedContentTypes = types;
#else
  // An SDK without UTType: the extensions themselves, the one older way.
  NSMutableArray<NSString*>* types = [NSMutableArray array];
  for (const std::string& extension : extensions) [types addObject:nsString(extension)];
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
  panel.allowedFileTypes = types;
#pragma clang diagnostic pop
#endif
  return chosenPath(panel);
}

std::optional<std::string> MacDialogs::chooseFolder() {
  NSOpenPanel* panel = [NSOpenPanel openPanel];
  panel.canChooseDirectories = YES;
  panel.canChooseFiles = NO;
  return chosenPath(panel);
}

void MacDialogs::activate() {
  // Ignoring other apps: the permission alert comes from the tick while the
  // TV app is frontmost, where the newer activate is a request the system
  // may refuse, leaving the alert behind the player.
  NSApplication* app = NSApp;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"  // deprecated in later SDKs, still the one that insists
  [app activateIgnoringOtherApps:YES];
#pragma clang diagnostic pop
}

void MacDialogs::openURL(const std::string& url) {
  if (NSURL* address = [NSURL URLWithString:nsString(url)]) [NSWorkspace.sharedWorkspace openURL:address];
}

void MacDialogs::showPreferences() {
  if (!windows->preferences) windows->preferences = [[PreferencesWindow alloc] initWithController:controller];
  [windows->preferences syncFromController];
  activate();
  NSWindow* window = windows->preferences.window;
  [window center];
  [window makeKeyAndOrderFront:nil];
}

void MacDialogs::checkForUpdates() {
#if defined(LUMERIX_SPARKLE)
  [windows->updater checkForUpdates:nil];
#endif
}

void MacDialogs::terminate() {
  [NSApp terminate:nil];
}

}  // namespace lumerix::mac
