#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace lumerix {

using SettingValue = std::variant<bool, long long, double, std::string>;

// The user's persisted settings. Reads never fail: a missing key gives the
// registered default, and a value of the wrong type reads as the zero value
// (0, false, absent). Whole and fractional numbers read as each other.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  virtual void registerDefaults(const std::map<std::string, SettingValue>& defaults) = 0;
  virtual double doubleFor(const std::string& key) const = 0;
  virtual long long integerFor(const std::string& key) const = 0;
  virtual bool boolFor(const std::string& key) const = 0;
  virtual std::optional<std::string> stringFor(const std::string& key) const = 0;
  virtual void set(const std::string& key, const SettingValue& value) = 0;
};

}  // namespace lumerix
