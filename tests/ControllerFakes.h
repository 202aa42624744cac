#pragma once

#include <cstdio>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "app/Controller.h"
#include "app/MemorySettingsStore.h"
#include "platform/Dialogs.h"
#include "platform/OverlayHost.h"
#include "sync/SyncSource.h"

namespace lumerix::test {

// A source that says whatever the test tells it to.
class ScriptedSource : public SyncSource {
 public:
  SyncSnapshot next;
  bool permission = false;
  int starts = 0, cancels = 0;
  void start() override { ++starts; }
  void cancel() override { ++cancels; }
  void snapshotInto(SyncSnapshot& into) override { into = next; }
  bool permissionIssue() override { return permission; }
};

inline SyncSnapshot playingAt(double position, std::string track = "", bool playing = true) {
  return {position, playing, std::move(track), "", false, false};
}

inline std::string str(const Rect& r) {
  char b[96];
  std::snprintf(b, sizeof b, "%g,%g,%g,%g", r.x, r.y, r.width, r.height);
  return b;
}

// Records what the controller asks of the panel, one line a call. The
// sheen phase changes every tick and is only kept, not recorded.
class RecordingHost : public OverlayHost {
 public:
  std::vector<std::string> calls;
  std::optional<Size> screen = Size{1920, 1080};
  std::optional<Rect> savedFrame;
  Rect frame;
  bool key = false;
  double brandPhase = -1;
  std::string status;
  std::vector<TextLayer> layers;

  std::optional<Size> mainScreenSize() override { return screen; }
  void createPanel(const PanelConfig& config) override {
    frame = savedFrame.value_or(config.frame);
    calls.push_back("panel:" + str(config.frame));
  }
  Rect panelFrame() override { return frame; }
  void setPanelFrame(const Rect& f) override {
    frame = f;
    calls.push_back("frame:" + str(f));
  }
  void setPanelAlpha(double a) override { calls.push_back("alpha:" + std::to_string(a).substr(0, 4)); }
  bool panelIsKey() override { return key; }
  void fadeBackdrop(double alpha, double) override { calls.push_back(alpha > 0 ? "backdrop:in" : "backdrop:out"); }
  void setStatusText(const std::string& text) override {
    status = text;
    calls.push_back("status:" + text);
  }
  void setStatusFrame(const Rect& f) override { calls.push_back("statusFrame:" + str(f)); }
  void setTextLayers(const std::vector<TextLayer>& l, bool brand) override {
    layers = l;
    calls.push_back(std::string(brand ? "brand:" : "text:") + (l.empty() ? "" : l.back().text));
  }
  void setTextFrame(const Rect& f) override {
    textFrame = f;
    calls.push_back("textFrame:" + str(f));
  }
  void setBrandPhase(double phase) override { brandPhase = phase; }
  // 10 points a character, 20 a line: easy to check by hand.
  Size measureText(const TextLayer& layer, Size) override {
    double widest = 0, lines = 1, current = 0;
    for (char c : layer.text) {
      if (c == '\n') {
        ++lines;
        current = 0;
      } else {
        widest = std::max(widest, current += 10);
      }
    }
    return {widest, lines * 20};
  }
  void setBandFrame(const Rect& f) override { calls.push_back("bandFrame:" + str(f)); }
  void setBandHidden(bool hidden) override { calls.push_back(hidden ? "band:hidden" : "band:shown"); }
  std::vector<TextLayer> secondLayers;
  Rect textFrame, secondFrame;
  void setSecondText(const std::vector<TextLayer>& l, const Rect& f) override {
    secondLayers = l;
    secondFrame = f;
    calls.push_back("second:" + (l.empty() ? std::string() : l.back().text) + "@" + str(f));
  }

  std::vector<std::string> take() { return std::exchange(calls, {}); }
};

// Dialogs and application requests in one log, so their order shows.
class RecordingDialogs : public Dialogs, public AppServices {
 public:
  std::vector<std::string> calls;
  std::deque<int> answers;  // buttons the user picks, in order; -1 when none left
  std::optional<std::string> chosenFile;
  std::optional<std::string> chosenFolder;

  void activate() override { calls.push_back("activate"); }
  std::function<void()> whileAlertIsOpen;  // the modal loop's own ticks, say

  int runAlert(const Alert& alert) override {
    calls.push_back("alert:" + alert.message);
    if (whileAlertIsOpen) whileAlertIsOpen();
    if (answers.empty()) return -1;
    const int a = answers.front();
    answers.pop_front();
    return a;
  }
  std::optional<std::string> chooseFile(const std::vector<std::string>& ext) override {
    std::string list;
    for (const std::string& e : ext) list += (list.empty() ? "" : ",") + e;
    calls.push_back("choose:" + list);
    return chosenFile;
  }
  std::optional<std::string> chooseFolder() override {
    calls.push_back("chooseFolder");
    return chosenFolder;
  }
  void openURL(const std::string& url) override { calls.push_back("open:" + url); }
  void showPreferences() override { calls.push_back("prefs"); }
  void checkForUpdates() override { calls.push_back("updates"); }
  void terminate() override { calls.push_back("terminate"); }
};

}  // namespace lumerix::test
