#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/Conventions.h"
#include "app/GlobalActions.h"
#include "app/Listening.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/OverlayHost.h"
#include "platform/SettingsStore.h"
#include "subtitles/Cue.h"
#include "sync/SyncSource.h"
#include "ui/DesktopTexts.h"
#include "ui/Menu.h"
#include "ui/Preferences.h"

namespace lumerix {

// What the shell reports about the panel for the diagnostic log line.
struct PanelDiagnostics {
  bool onActiveSpace = false;
  bool visible = false;
  unsigned long occlusion = 0;
  bool key = false;
  long level = 0;
  Rect frame;
  // The platform's own string for the frame (NSStringFromRect on macOS);
  // empty: the same "{{x, y}, {w, h}}" form, written here.
  std::string frameText;
};

// The services a controller talks to; all outlive it.
struct ControllerServices {
  const Clock& clock;
  SettingsStore& defaults;
  OverlayHost& host;
  Dialogs& dialogs;
  AppServices& app;
};

// Everything the program decides: start-up, the tick, keys and
// adjustments, calibration, loading and episode auto-pick, preferences, what
// the overlay shows. Main thread only; it takes no locks. Nothing a shell
// calls throws: failures become hints in the status line.
class Controller {
 public:
  // The shell calls tick() this often, from a timer that keeps firing while
  // menus are open or the panel is dragged; or, where it can sleep between
  // ticks, when nextTickIn() says. Animations run at this rate too.
  static constexpr double tickInterval = 0.05;
  // The longest nextTickIn() ever asks to sleep.
  static constexpr double longestTickGap = 1.0;
  // While the DebugLog setting is on, the shell writes debugLine() to the
  // system log this often.
  static constexpr double debugLogInterval = 2.0;

  struct CalPoint {
    double v;  // player position when marked
    double t;  // subtitle time showing then
  };
  // A second subtitle shown with the first, timed on its own: a translation
  // from another release rarely shares the first's offset or rate.
  struct Second {
    std::vector<Cue> cues;
    std::vector<double> starts;
    std::optional<std::string> path;
    std::string name;
    double offset = 0;
    double scale = 1.0;
    int scaleIdx = 0;
    std::map<int, CalPoint> calPoints;
    std::optional<double> lastShownT;
    std::optional<std::string> encodingChoice;  // the user's for this file, kept in its side file
  };
  // How the second is drawn; fontSize 0 follows the first's at 0.8.
  struct SecondLook {
    double fontSize = 0;
    RGBA color;
    bool above = false;
  };
  // What of the second's look a layout depends on; empty while none is loaded.
  struct SecondStyle {
    bool shown = false;
    double fontSize = 0;
    RGBA color;
    bool above = false;
    bool operator==(const SecondStyle&) const = default;
  };
  // The timing the keys, rate presets and calibration move: the first's or
  // the second's.
  struct Timing {
    double& offset;
    double& scale;
    int& scaleIdx;
    std::map<int, CalPoint>& calPoints;
    std::optional<double>& lastShownT;
    const std::optional<std::string>& path;
    const std::optional<std::string>& encodingChoice;
  };
  // The style a layout was made under; a layout is redone when it differs.
  struct Style {
    long long bgMode;
    double fontSize, strokeWidth, winW, winH;
    bool brand;
    SecondStyle second{};
    bool operator==(const Style&) const = default;
  };
  struct State {
    std::vector<Cue> cues;
    std::vector<double> starts;
    std::optional<std::string> subPath;
    std::string subName;  // last component of subPath
    std::string subEncoding;                    // what the loaded file was read in ("UTF-8", "windows-1251", ...)
    std::optional<std::string> encodingChoice;  // the user's for this file, kept in its side file
    bool autoPick = true;
    double offset = 0;
    double scale = 1.0;
    int scaleIdx = 0;
    std::map<int, CalPoint> calPoints;
    double fontSize = 28.0;
    double strokeWidth = 7.0;
    double alpha = 0.92;
    long long bgMode = 0;
    double hintUntil = 0;
    std::optional<std::string> curText;
    std::optional<Style> curStyle;
    std::optional<std::string> lastTrack;
    std::optional<double> lastShownT;
    std::optional<double> lastPosition;  // the player position the last tick used
    std::optional<double> extraTickIn;   // see Controller::extraTickIn
  double textDueIn = 0;                // seconds from the last tick until either text changes by itself
  double nextTickAt = 0;               // uptime; see Controller::nextTickIn
  double glintPhase = -1;              // the last the panel was given
    bool hovering = false;
    double winW = 800.0, winH = 190.0;
    bool lastPermissionIssue = false;
    bool permissionAlertOpen = false;  // the alert's modal loop runs ticks too
    bool debugLog = false;
    Second second;
    bool adjustSecond = false;  // which of the two the timing keys move
    SecondLook secondLook;
    std::optional<std::string> curSecondText;
    bool barHidden = false;  // by the h key, until it is pressed again
  };

  struct ScalePreset {
    double factor;
    std::string_view label;
  };
  static constexpr ScalePreset scalePresets[] = {
      {1.0, "1.000 original"},         {25 / 23.976, "1.0427 (23.976→25)"},
      {25 / 24.0, "1.0417 (24→25)"},   {24 / 23.976, "1.0010 (23.976→24)"},
      {0.999, "0.9990 (24→23.976)"},   {0.96, "0.9600 (25→24)"},
      {0.95904, "0.9590 (25→23.976)"},
  };

  // Reads the settings, starts the source, builds the panel, loads the
  // start-up subtitle and shows the start hint. The shell then calls tick()
  // every tickInterval, or as nextTickIn() says.
  Controller(ControllerServices services, std::unique_ptr<SyncSource> sync, std::optional<std::string> subtitlePath,
             Conventions conventions = {}, std::optional<std::string> secondPath = std::nullopt);
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  const State& state() const { return s; }
  const Conventions& platformConventions() const { return conventions; }
  // The menu-bar item's menu, in this platform's words.
  std::vector<MenuItem> menu() const;
  // Changes whenever menu() would change; the shells rebuild their menus then.
  int menuRevision() const noexcept { return listening.menuRevision + menuRevisionCount; }
  SyncSource& source() { return *sync; }

  void tick() noexcept;

  // When the shown text will next change, if that is before the next
  // regular tick: seconds from the last tick's snapshot. The shell runs one
  // extra tick then, so a cue appears when it is due rather than up to a
  // tick late. Absent while paused, stalled or with no position.
  std::optional<double> extraTickIn() const noexcept { return s.extraTickIn; }

  // For a shell that sleeps between ticks: seconds from now until the next
  // tick is due, whichever comes first of the next cue boundary of either
  // subtitle, the next second of the player's clock in the status line, a
  // hint's end, the glint's next frame or its next sweep; every
  // tickInterval while listening; longestTickGap at most. Anything else
  // that reaches the controller between ticks (a key, a menu, a drop, the
  // source's word that it changed: SyncSource::onChange) is to be followed
  // by a tick at once, which plans anew.
  double nextTickIn() const noexcept;

  // Keys typed into the panel: a code from platform/KeyCodes.h (or
  // keycode::none), whether Shift was held, and the characters ignoring
  // modifiers. True when consumed; the shell hands other keys on.
  bool handleKey(int keyCode, bool shift, std::string_view characters) noexcept;
  void bumpOffset(double delta) noexcept;
  void bumpScale(double delta) noexcept;
  void cycleFPS() noexcept;
  void toggleBG() noexcept;
  void bumpAlpha(double delta) noexcept;
  void bumpFont(double delta) noexcept;
  void resize(double dw, double dh) noexcept;
  void markPoint(int n) noexcept;
  void saveCalibration() noexcept;
  void quit() noexcept;

  // Keys that work while another program has the keyboard, and --do.
  // runAction: false for a name that is no action.
  bool runAction(std::string_view name) noexcept;
  void toggleBar() noexcept;
  GlobalKeySettings globalKeySettings() const noexcept;
  void setGlobalShortcuts(bool on) noexcept;  // the shell then grabs or lets go
  void setGlobalChord(Chord chord) noexcept;
  // The shell's grabs that another program holds already: said once.
  void shortcutsRefused(const std::vector<const GlobalAction*>& refused, Chord chord) noexcept;

  void loadSubtitle(const std::string& path) noexcept;
  void maybeAutoPick(const std::string& track) noexcept;
  std::optional<std::string> findEpisodeSubtitle(long long episode) noexcept;
  void openFileDialog() noexcept;
  // The first subtitle file (.srt, .vtt, .ass, .ssa) among dragged paths, in their order; a drag
  // without one is refused, with no hover feedback.
  static std::optional<std::string> subtitlePathFrom(const std::vector<std::string>& paths) noexcept;
  void fileDropped(const std::string& path) noexcept;
  void menuAutoPick() noexcept;
  void applySubtitleFolder(const std::string& folder) noexcept;
  // "Reopen with Encoding": reads the loaded file again in the named
  // encoding (empty: guessed) and remembers the choice in its side file.
  void reopenWithEncoding(const std::string& name) noexcept;
  // The preferences' encoding for unsure guesses; empty: none. As the
  // pop-up shows it: "Automatic", then the encodings by language.
  void setFallbackEncoding(const std::string& name) noexcept;
  static std::vector<std::string> fallbackEncodingItems();
  long long fallbackEncodingIndex() const noexcept;
  void setFallbackEncodingIndex(long long index) noexcept;

  // Panel events: the pointer (or an accepted drag) entering or leaving,
  // the panel becoming or ceasing to be the key window, a new size.
  void hoverChanged(bool inside) noexcept;
  void keyWindowChanged() noexcept;
  void panelResized() noexcept;

  void render(const std::string& text, bool brand) noexcept;

  // The second subtitle. Loading one without a first loads the first; the
  // first's own file is refused. `s` switches which one the timing keys,
  // rate presets and calibration adjust.
  void loadSecondSubtitle(const std::string& path) noexcept;
  void removeSecondSubtitle() noexcept;
  void openSecondFileDialog() noexcept;
  void switchAdjusted() noexcept;
  // "Second to First": times the second by lining its cue spans up with the
  // first's as shown; changes nothing unless the match is convincing.
  void alignSecondToFirst() noexcept;
  // A drop: with the platform's modifier for it held, the second.
  void fileDropped(const std::string& path, bool asSecond) noexcept;
  void setSecondFontSize(double size) noexcept;
  void setSecondColor(const std::string& hex) noexcept;
  void setSecondAbove(bool above) noexcept;
  // The second's text due at the last tick; absent while none is loaded.
  std::optional<std::string_view> secondShown() const noexcept;
  // Whether the menu shows an item now (removing the second only while
  // there is one), and a count that changes whenever that may have.
  bool menuItemShown(MenuAction action) const noexcept;

  // The preferences window: what it shows when opened, and its controls'
  // actions, called on every change (continuously while a slider is
  // dragged). Each writes its setting at once; the next tick redraws.
  prefs::Values preferenceValues() const noexcept;
  void setFontSize(double size) noexcept;
  void setStrokeWidth(double width) noexcept;
  void setAlpha(double alpha) noexcept;  // the panel follows at once
  void setBgMode(long long mode) noexcept;
  // "Choose…": asks for a folder; true when one was chosen (and applied).
  bool chooseSubtitleFolder() noexcept;

  void perform(MenuAction action) noexcept;

  // Syncing by listening (Listening.cpp). Without a capture (the tests',
  // or a build that cannot listen) the key says so.
  void setSoundCapture(std::unique_ptr<SoundCapture> capture) noexcept;
  void toggleListening() noexcept;  // the key and the menu item
  void startListening() noexcept;   // --listen; harmless while listening
  void undoListening() noexcept;
  void setListenAlways(bool on) noexcept;
  bool isListening() const noexcept;
  bool canUndoSync() const noexcept;
  void presentPermissionAlert() noexcept;
  void menuGrantPermission() noexcept;
  // Shown once as a hint, after the hints already up; notes wait in turn.
  void postNote(std::string_view text) noexcept;
  void menuAbout() noexcept;
  void menuHowTo() noexcept;
  void showOnboarding() noexcept;

  // Whether the shell should write debugLine() every debugLogInterval.
  bool debugLogEnabled() const noexcept { return s.debugLog; }
  // "PXDBG ..." for the system log.
  static std::string debugLine(const PanelDiagnostics& panel);

 private:
  void buildPanel();
  void tickOnce() noexcept;
  void planNextTick() noexcept;
  void planExtraTick(double position, const double* nextStart, const Cue* shown);
  void textDueIn(double in) noexcept;  // either text changes by itself this many seconds after the tick
  void showGlint() noexcept;
  void updateFrameVisibility();
  void showHint(std::string_view text);
  void performEncodingChoice(std::size_t index) noexcept;
  void setStatus(std::string_view text);
  bool showNextNote();
  double now() const { return services.clock.uptime(); }
  Timing adjusted() noexcept;
  Timing firstTiming() noexcept;
  Timing secondTiming() noexcept;
  // " (second)" while the second is adjusted: hints must say which moved.
  std::string_view adjustedSuffix() const noexcept;
  void saveTiming(const Timing& timing) noexcept;
  void readSecondLook() noexcept;
  void startSecond(const std::optional<std::string>& secondPath) noexcept;
  void followEpisode(long long episode) noexcept;
  const std::string& secondTextAt(double position) noexcept;
  void planSecondExtraTick(double position);
  void renderPair(const std::string& text) noexcept;
  double secondFontSize() const noexcept;
  prefs::Values::Second secondValues() const noexcept;
  std::optional<std::string> chooseSubtitleFile() noexcept;
  void tickListening() noexcept;
  void keepListening(bool playing);
  bool showListeningProgress();
  bool openCapture();
  void beginSession(listen::ListenSession::Purpose purpose, std::vector<double> rates);
  void endListening(std::string_view hint) noexcept;
  void setTiming(listen::Timing timing);
  void applyListened(listen::Timing timing);

  ControllerServices services;
  const Conventions conventions;
  std::unique_ptr<SyncSource> sync;
  State s;
  // Reused by every tick, so that steady ticks do not allocate.
  SyncSnapshot snap;
  std::string statusLine;
  std::string shownStatus;         // what the status line shows; the host hears only of changes
  std::vector<std::string> notes;  // waiting for the status line, first first
  std::string_view secondNow;      // the second's text the last tick found
  int menuRevisionCount = 0;
  ListeningState listening;
};

// The start-up subtitle: the first argument after the program's path, when
// something exists at that path.
std::optional<std::string> startupSubtitlePath(const std::vector<std::string>& argv);

// Shows the first-run guide once. The flag is set before the guide shows,
// so quitting from the guide does not bring it back.
void showGuideOnFirstLaunch(Controller& controller, SettingsStore& defaults) noexcept;

}  // namespace lumerix
