#pragma once

#include "platform/SettingsStore.h"

namespace lumerix {

// The application's user defaults (NSUserDefaults), read with the same
// rules as every store: a value of another type, whoever wrote it, reads as
// the zero value. The defaults system saves on its own, atomically.
class MacSettingsStore : public SettingsStore {
 public:
  void registerDefaults(const std::map<std::string, SettingValue>& defaults) noexcept override;
  double doubleFor(const std::string& key) const noexcept override;
  long long integerFor(const std::string& key) const noexcept override;
  bool boolFor(const std::string& key) const noexcept override;
  std::optional<std::string> stringFor(const std::string& key) const noexcept override;
  void set(const std::string& key, const SettingValue& value) noexcept override;
};

}  // namespace lumerix
