#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace lumerix {

using SettingValue = std::variant<bool, long long, double, std::string>;

// The user's persisted settings. Main thread only. Reads never fail: a
// missing key gives the registered default, and a value of the wrong type
// reads as the zero value (0, false, absent). Whole and fractional numbers
// read as each other. Writes never fail either, as far as the caller can
// tell: a store that cannot save says so to the user its own way and keeps
// the value for this run. No member throws.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  virtual void registerDefaults(const std::map<std::string, SettingValue>& defaults) noexcept = 0;
  virtual double doubleFor(const std::string& key) const noexcept = 0;
  virtual long long integerFor(const std::string& key) const noexcept = 0;
  virtual bool boolFor(const std::string& key) const noexcept = 0;
  virtual std::optional<std::string> stringFor(const std::string& key) const noexcept = 0;
  virtual void set(const std::string& key, const SettingValue& value) noexcept = 0;
};

}  // namespace lumerix
