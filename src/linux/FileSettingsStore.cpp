#include "linux/FileSettingsStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "util/Files.h"
#include "util/JsonText.h"
#include "util/Path.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

constexpr const char* kEncodedKey = "percentEncoded";

bool plainByte(unsigned char c) {
  return c >= 0x20 && c < 0x7f && c != '%';
}

std::string percentEncoded(const std::string& bytes) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : bytes) {
    if (plainByte(c)) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

std::optional<std::string> percentDecoded(const std::string& text) {
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
  };
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int hi = nibble(text[i + 1]), lo = nibble(text[i + 2]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  return out;
}

// What goes into the file: strings that JSON cannot hold, encoded.
nlohmann::json encodedForFile(const nlohmann::json& values) {
  nlohmann::json out = values;
  for (auto& [key, value] : out.items()) {
    if (value.is_string() && !unicode::isValidUtf8(value.get_ref<const std::string&>())) {
      value = {{kEncodedKey, percentEncoded(value.get_ref<const std::string&>())}};
    }
  }
  return out;
}

// And back.
void decodeFromFile(nlohmann::json& values) {
  for (auto& [key, value] : values.items()) {
    if (!value.is_object() || value.size() != 1) continue;
    const auto encoded = value.find(kEncodedKey);
    if (encoded == value.end() || !encoded->is_string()) continue;
    if (auto bytes = percentDecoded(encoded->get_ref<const std::string&>())) value = std::move(*bytes);
  }
}

}  // namespace

FileSettingsStore::FileSettingsStore(std::string path, std::ostream& warnings)
    : file(std::move(path)), warnings(warnings) {
  bool corrupt = false;
  if (auto loaded = readFile(corrupt)) values = std::move(*loaded);
  if (corrupt) {
    warnOnce("lumerix: " + file +
             " is not a JSON object of settings; starting from the defaults (the file will be kept as " + file +
             ".corrupt)");
  }
}

std::optional<std::string> FileSettingsStore::defaultPath() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && xdg[0] == '/') return path::append(path::append(xdg, "lumerix"), "settings.json");
  const char* home = std::getenv("HOME");
  if (home && home[0] == '/') return path::append(path::append(home, ".config/lumerix"), "settings.json");
  return std::nullopt;
}

std::optional<nlohmann::json> FileSettingsStore::readFile(bool& corrupt) {
  corrupt = false;
  std::string text;
  if (!readWholeFile(file, text)) {
    if (errno != ENOENT) warnOnce("lumerix: cannot read " + file + ": " + std::strerror(errno));
    return std::nullopt;
  }
  auto parsed =
      json::nestingWithin(text, json::maxNesting) ? nlohmann::json::parse(text, nullptr, false) : nlohmann::json();
  if (!parsed.is_object()) {
    corrupt = true;
    return std::nullopt;
  }
  decodeFromFile(parsed);
  return parsed;
}

namespace {

// Another instance may be saving at the same moment: reading, merging and
// writing happen under an exclusive lock on a file beside the settings, so
// no one's key is lost between someone else's read and write. A lock that
// cannot be had within a few seconds is done without rather than hang.
class SaveLock {
 public:
  explicit SaveLock(const std::string& settingsFile) {
    fd = ::open((settingsFile + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return;
    for (int tries = 0; tries < 300; ++tries) {
      if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return;
      if (errno != EWOULDBLOCK && errno != EINTR) return;
      ::usleep(10000);
    }
  }
  ~SaveLock() {
    if (fd >= 0) ::close(fd);  // and with it the lock
  }
  SaveLock(const SaveLock&) = delete;
  SaveLock& operator=(const SaveLock&) = delete;

 private:
  int fd = -1;
};

}  // namespace

void FileSettingsStore::persist(const std::string& key) noexcept {
  try {
    const std::string folder = path::parent(file);
    // Create the folder chain (for the lock file too); existing folders are fine.
    for (std::size_t slash = 1; (slash = folder.find('/', slash)) != std::string::npos; ++slash) {
      ::mkdir(folder.substr(0, slash).c_str(), 0700);
    }
    ::mkdir(folder.c_str(), 0700);
    const SaveLock lock(file);
    bool corrupt = false;
    nlohmann::json merged = readFile(corrupt).value_or(values);
    if (corrupt) {
      warnOnce("lumerix: " + file + " is not a JSON object of settings; keeping it as " + file + ".corrupt");
      std::rename(file.c_str(), (file + ".corrupt").c_str());
    }
    merged[key] = values[key];
    values = std::move(merged);  // picks up what others wrote meanwhile
    if (!writeFileAtomically(file, encodedForFile(values).dump(2) + "\n")) {
      warnOnce("lumerix: cannot save settings to " + file + ": " + std::strerror(errno));
    }
  } catch (const std::exception& e) {
    // The value stays in memory for this run.
    warnOnce("lumerix: cannot save settings to " + file + ": " + e.what());
  }
}

void FileSettingsStore::warnOnce(const std::string& message) noexcept {
  if (warned) return;
  warned = true;
  try {
    warnings << message << std::endl;
  } catch (...) {
  }
}

}  // namespace lumerix
