#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/SettingsStore.h"

namespace lumerix {

// Settings held in memory only: for tests, and for the demo, which must not
// touch the user's own settings.
class MemorySettingsStore : public SettingsStore {
 public:
  void registerDefaults(const std::map<std::string, SettingValue>& defaults) override;
  double doubleFor(const std::string& key) const override;
  long long integerFor(const std::string& key) const override;
  bool boolFor(const std::string& key) const override;
  std::optional<std::string> stringFor(const std::string& key) const override;
  void set(const std::string& key, const SettingValue& value) override;

 protected:
  // Called after every set; values already holds the new value.
  virtual void persist(const std::string& key) { (void)key; }
  const nlohmann::json* find(const std::string& key) const;

  nlohmann::json values = nlohmann::json::object();
  nlohmann::json defaults = nlohmann::json::object();
};

// Settings in a JSON file, rewritten atomically on every change. Keys that
// other writers (another instance, the user's editor) put in the file are
// kept: each write starts from what is on disk. A file that is not a JSON
// object is reported once, read as empty, and moved aside to
// "<file>.corrupt" before the first write, so nothing of it is lost.
class FileSettingsStore : public MemorySettingsStore {
 public:
  FileSettingsStore(std::string path, std::ostream& warnings);
  const std::string& path() const { return file; }

  // $XDG_CONFIG_HOME/lumerix/settings.json, or ~/.config/lumerix/settings.json;
  // absent when neither variable gives an absolute folder.
  static std::optional<std::string> defaultPath();

 protected:
  void persist(const std::string& key) override;

 private:
  // The file's object; absent when it is missing or unreadable (then
  // `corrupt` tells whether it exists but holds something else).
  std::optional<nlohmann::json> readFile(bool& corrupt);
  void warnOnce(const std::string& message);

  std::string file;
  std::ostream& warnings;
  bool warned = false;
};

}  // namespace lumerix
