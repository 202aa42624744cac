#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "app/MemorySettingsStore.h"

namespace lumerix {

// Settings in a JSON file, rewritten atomically on every change. Keys that
// other writers (another instance, the user's editor) put in the file are
// kept: each write starts from what is on disk. A file that is not a JSON
// object is reported once, read as empty, and moved aside to
// "<file>.corrupt" before the first write, so nothing of it is lost.
//
// A string that is not UTF-8 (a folder named in Latin-1, say) cannot be a
// JSON string; it is kept as {"percentEncoded": "caf%E9"} and reads back as
// the same bytes.
class FileSettingsStore : public MemorySettingsStore {
 public:
  FileSettingsStore(std::string path, std::ostream& warnings);
  const std::string& path() const { return file; }

  // $XDG_CONFIG_HOME/lumerix/settings.json, or ~/.config/lumerix/settings.json;
  // absent when neither variable gives an absolute folder.
  static std::optional<std::string> defaultPath();

 protected:
  void persist(const std::string& key) noexcept override;

 private:
  // The file's object; absent when it is missing or unreadable (then
  // `corrupt` tells whether it exists but holds something else).
  std::optional<nlohmann::json> readFile(bool& corrupt);
  void warnOnce(const std::string& message) noexcept;

  std::string file;
  std::ostream& warnings;
  bool warned = false;
};

}  // namespace lumerix
