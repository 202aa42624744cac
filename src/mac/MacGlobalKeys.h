#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "app/GlobalActions.h"

namespace lumerix::mac {

// The bar's keys with the chord while another application is in front:
// system-wide hot keys, which need no permission. Main thread only.
class MacGlobalKeys {
 public:
  using Fired = std::function<void(const GlobalAction&)>;
  using Refused = std::function<void(const std::vector<const GlobalAction*>&, Chord)>;
  MacGlobalKeys(Fired fired, Refused refused);
  ~MacGlobalKeys();  // the keys go back
  MacGlobalKeys(const MacGlobalKeys&) = delete;
  MacGlobalKeys& operator=(const MacGlobalKeys&) = delete;

  // Registers the keys with the settings' chord, or none when turned off;
  // at once, the keys of an earlier chord unregistered first.
  void apply(const GlobalKeySettings& settings);
  GlobalKeysState state() const;
  const std::vector<const GlobalAction*>& refused() const;
  // The application's one instance while it lives (Preferences drives it).
  static MacGlobalKeys* current();

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl;
};

}  // namespace lumerix::mac
