#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/SettingsStore.h"

namespace lumerix {

// Settings held in memory only: for tests, and for the demo, which must not
// touch the user's own settings. Also the base of stores that keep a copy
// on disk.
class MemorySettingsStore : public SettingsStore {
 public:
  void registerDefaults(const std::map<std::string, SettingValue>& defaults) noexcept override;
  double doubleFor(const std::string& key) const noexcept override;
  long long integerFor(const std::string& key) const noexcept override;
  bool boolFor(const std::string& key) const noexcept override;
  std::optional<std::string> stringFor(const std::string& key) const noexcept override;
  void set(const std::string& key, const SettingValue& value) noexcept override;

  // The typed reads of the value found under a key (null: none), for every
  // store to share: another type reads as the zero value, and whole and
  // fractional numbers read as each other.
  static double asDouble(const nlohmann::json* value) noexcept;
  static long long asInteger(const nlohmann::json* value) noexcept;
  static bool asBool(const nlohmann::json* value) noexcept;
  static std::optional<std::string> asString(const nlohmann::json* value) noexcept;

 protected:
  // Called after every set; values already holds the new value.
  virtual void persist(const std::string& key) noexcept { (void)key; }
  const nlohmann::json* find(const std::string& key) const;

  nlohmann::json values = nlohmann::json::object();
  nlohmann::json defaults = nlohmann::json::object();
};

}  // namespace lumerix
