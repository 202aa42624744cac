#pragma once

#include <memory>

#include "mac/ControllerLookup.h"
#include "platform/Dialogs.h"

namespace lumerix::mac {

// The controller's alerts, choosers and requests to the application, in
// AppKit; also the owner of the preferences window and of the updater.
class MacDialogs final : public Dialogs, public AppServices {
 public:
  explicit MacDialogs(ControllerLookup controller);
  ~MacDialogs() override;
  MacDialogs(const MacDialogs&) = delete;
  MacDialogs& operator=(const MacDialogs&) = delete;

  int runAlert(const Alert& alert) override;
  std::optional<std::string> chooseFile(const std::vector<std::string>& extensions) override;
  std::optional<std::string> chooseFolder() override;

  void activate() override;
  void openURL(const std::string& url) override;
  void showPreferences() override;
  void checkForUpdates() override;  // through Sparkle when built with it
  void terminate() override;

 private:
  struct Windows;
  const std::unique_ptr<Windows> windows;
  const ControllerLookup controller;
};

}  // namespace lumerix::mac
