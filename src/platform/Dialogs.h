#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumerix {

struct GuideRow {
  std::string symbol;  // platform symbol name; the row goes without an icon where there is none
  std::string heading;
  std::string body;
};

// How the first-run guide is set: an icon, two spaces, the heading in bold,
// the body in the secondary colour, one paragraph a row.
struct GuideLayout {
  double paragraphSpacing = 0;
  double lineSpacing = 0;
  double headIndent = 0;  // wrapped lines align after the icon
  double fontSize = 0;    // body and (bold) heading
  double symbolPointSize = 0;
  bool symbolSemibold = false;
  double width = 0;        // of the text block
  double extraHeight = 0;  // added to the laid-out height, rounded up first
};

struct Alert {
  enum class Style { informational, warning };
  Style style = Style::informational;
  std::string message;
  std::string informative;
  std::vector<std::string> buttons;  // empty: the platform's single default button
  std::vector<GuideRow> guide;       // the first-run guide, shown as the accessory
  GuideLayout guideLayout{};
};

// Modal dialogs. Main thread only; every call blocks until the user answers.
// No member throws.
class Dialogs {
 public:
  virtual ~Dialogs() = default;
  // Runs the alert; returns the index of the button chosen (0: the first),
  // or -1 when it was dismissed otherwise.
  virtual int runAlert(const Alert& alert) = 0;
  // The open panel offering files with these extensions (lower case, no
  // dot); the chosen path.
  virtual std::optional<std::string> chooseFile(const std::vector<std::string>& extensions) = 0;
  // A panel that chooses one folder and no files; the chosen path.
  virtual std::optional<std::string> chooseFolder() = 0;
};

// What the application as a whole is asked to do. Main thread only; no
// member throws.
class AppServices {
 public:
  virtual ~AppServices() = default;
  // Brings the application to the front, ignoring other applications.
  virtual void activate() = 0;
  virtual void openURL(const std::string& url) = 0;
  // Shows the one preferences window, refreshed from the controller.
  virtual void showPreferences() = 0;
  virtual void checkForUpdates() = 0;  // a build without an updater does nothing
  virtual void terminate() = 0;        // asks the application to quit
};

// Nobody to ask: every alert is dismissed, every choice declined, and
// requests are dropped. For programs and benchmarks without a screen.
class NullDialogs : public Dialogs, public AppServices {
 public:
  int runAlert(const Alert&) override { return -1; }
  std::optional<std::string> chooseFile(const std::vector<std::string>&) override { return std::nullopt; }
  std::optional<std::string> chooseFolder() override { return std::nullopt; }
  void activate() override {}
  void openURL(const std::string&) override {}
  void showPreferences() override {}
  void checkForUpdates() override {}
  void terminate() override {}
};

}  // namespace lumerix
