#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/Conventions.h"
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

// Everything the program decides: start-up, the 20 Hz tick, keys and
// adjustments, calibration, loading and episode auto-pick, preferences, what
// the overlay shows. Main thread only; it takes no locks. Nothing a shell
// calls throws: failures become hints in the status line.
class Controller {
 public:
  // The shell calls tick() this often, from a timer that keeps firing while
  // menus are open or the panel is dragged.
  static constexpr double tickInterval = 0.05;
  // While the DebugLog setting is on, the shell writes debugLine() to the
  // system log this often.
  static constexpr double debugLogInterval = 2.0;

  struct CalPoint {
    double v;  // player position when marked
    double t;  // subtitle time showing then
  };
  // The style a layout was made under; a layout is redone when it differs.
  struct Style {
    long long bgMode;
    double fontSize, strokeWidth, winW, winH;
    bool brand;
    bool operator==(const Style&) const = default;
  };
  struct State {
    std::vector<Cue> cues;
    std::vector<double> starts;
    std::optional<std::string> subPath;
    std::string subName;  // last component of subPath
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
    bool hovering = false;
    double winW = 800.0, winH = 190.0;
    bool lastPermissionIssue = false;
    bool permissionAlertOpen = false;  // the alert's modal loop runs ticks too
    bool debugLog = false;
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
  // every 0.05 s.
  Controller(ControllerServices services, std::unique_ptr<SyncSource> sync, std::optional<std::string> subtitlePath,
             Conventions conventions = {});
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  const State& state() const { return s; }
  const Conventions& platformConventions() const { return conventions; }
  // The menu-bar item's menu, in this platform's words.
  std::vector<MenuItem> menu() const {
    return statusMenu(conventions.texts, conventions.menu, {isListening(), canUndoSync()});
  }
  // Changes whenever menu() would change; the shells rebuild their menus then.
  int menuRevision() const noexcept { return listening.menuRevision; }
  SyncSource& source() { return *sync; }

  void tick() noexcept;

  // When the shown text will next change, if that is before the next
  // regular tick: seconds from the last tick's snapshot. The shell runs one
  // extra tick then, so a cue appears when it is due rather than up to a
  // tick late. Absent while paused, stalled or with no position.
  std::optional<double> extraTickIn() const noexcept { return s.extraTickIn; }

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

  void loadSubtitle(const std::string& path) noexcept;
  void maybeAutoPick(const std::string& track) noexcept;
  std::optional<std::string> findEpisodeSubtitle(long long episode) noexcept;
  void openFileDialog() noexcept;
  // The first .srt or .vtt among dragged paths, in their order; a drag
  // without one is refused, with no hover feedback.
  static std::optional<std::string> subtitlePathFrom(const std::vector<std::string>& paths) noexcept;
  void fileDropped(const std::string& path) noexcept;
  void menuAutoPick() noexcept;
  void applySubtitleFolder(const std::string& folder) noexcept;

  // Panel events: the pointer (or an accepted drag) entering or leaving,
  // the panel becoming or ceasing to be the key window, a new size.
  void hoverChanged(bool inside) noexcept;
  void keyWindowChanged() noexcept;
  void panelResized() noexcept;

  void render(const std::string& text, bool brand) noexcept;

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
  void planExtraTick(double position, const double* nextStart, const Cue* shown);
  void updateFrameVisibility();
  void showHint(std::string_view text);
  void setStatus(std::string_view text);
  bool showNextNote();
  double now() const { return services.clock.uptime(); }
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
  ListeningState listening;
};

// The start-up subtitle: the first argument after the program's path, when
// something exists at that path.
std::optional<std::string> startupSubtitlePath(const std::vector<std::string>& argv);

// Shows the first-run guide once. The flag is set before the guide shows,
// so quitting from the guide does not bring it back.
void showGuideOnFirstLaunch(Controller& controller, SettingsStore& defaults) noexcept;

}  // namespace lumerix
