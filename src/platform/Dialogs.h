#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumerix {

struct GuideRow {
  std::string symbol;  // platform symbol name; no icon where there is none
  std::string heading;
  std::string body;
};

struct Alert {
  enum class Style { informational, warning };
  Style style = Style::informational;
  std::string message;
  std::string informative;
  std::vector<std::string> buttons;  // empty: the platform's single default button
  std::vector<GuideRow> guide;       // the first-run guide, shown as the accessory
};

// Modal dialogs and application-level requests. Main thread only; every
// call may block until the user answers.
class Dialogs {
 public:
  virtual ~Dialogs() = default;
  // Brings the application to the front, ignoring other applications.
  virtual void activate() = 0;
  // Runs the alert; returns the index of the button chosen (0: the first).
  virtual int runAlert(const Alert& alert) = 0;
  // The open panel offering these file extensions; the chosen path.
  virtual std::optional<std::string> chooseFile(const std::vector<std::string>& extensions) = 0;
  virtual void openURL(const std::string& url) = 0;
  virtual void showPreferences() = 0;
  virtual void checkForUpdates() = 0;  // a build without an updater does nothing
  virtual void terminate() = 0;        // asks the application to quit
};

}  // namespace lumerix
