#include "app/SettingsFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "util/Files.h"
#include "util/Path.h"

namespace lumerix {

namespace {

nlohmann::json toJson(const SettingValue& value) {
  return std::visit([](const auto& v) { return nlohmann::json(v); }, value);
}

}  // namespace

void MemorySettingsStore::registerDefaults(const std::map<std::string, SettingValue>& table) {
  for (const auto& [key, value] : table) defaults[key] = toJson(value);
}

const nlohmann::json* MemorySettingsStore::find(const std::string& key) const {
  if (auto it = values.find(key); it != values.end()) return &*it;
  if (auto it = defaults.find(key); it != defaults.end()) return &*it;
  return nullptr;
}

double MemorySettingsStore::doubleFor(const std::string& key) const {
  const auto* v = find(key);
  return v && v->is_number() ? v->get<double>() : 0.0;
}

long long MemorySettingsStore::integerFor(const std::string& key) const {
  const auto* v = find(key);
  if (!v || !v->is_number()) return 0;
  if (v->is_number_float()) {
    const double d = v->get<double>();
    // Out of range reads as zero too, rather than as undefined behaviour.
    return std::isfinite(d) && std::fabs(d) < 9.2e18 ? static_cast<long long>(d) : 0;
  }
  return v->is_number_unsigned() && v->get<unsigned long long>() > 9223372036854775807ULL ? 0 : v->get<long long>();
}

bool MemorySettingsStore::boolFor(const std::string& key) const {
  const auto* v = find(key);
  return v && v->is_boolean() && v->get<bool>();
}

std::optional<std::string> MemorySettingsStore::stringFor(const std::string& key) const {
  const auto* v = find(key);
  if (!v || !v->is_string()) return std::nullopt;
  return v->get<std::string>();
}

void MemorySettingsStore::set(const std::string& key, const SettingValue& value) {
  values[key] = toJson(value);
  persist(key);
}

// ---------------------------------------------------------------------------

FileSettingsStore::FileSettingsStore(std::string path, std::ostream& warnings)
    : file(std::move(path)), warnings(warnings) {
  bool corrupt = false;
  if (auto loaded = readFile(corrupt)) values = std::move(*loaded);
  if (corrupt) {
    warnOnce("lumerix: " + file + " is not a JSON object; starting from the defaults (the file will be kept as " +
             file + ".corrupt)");
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
  auto json = nlohmann::json::parse(text, nullptr, false);
  if (!json.is_object()) {
    corrupt = true;
    return std::nullopt;
  }
  return json;
}

void FileSettingsStore::persist(const std::string& key) {
  bool corrupt = false;
  nlohmann::json merged = readFile(corrupt).value_or(values);
  if (corrupt) {
    warnOnce("lumerix: " + file + " is not a JSON object; keeping it as " + file + ".corrupt");
    std::rename(file.c_str(), (file + ".corrupt").c_str());
  }
  merged[key] = values[key];
  values = merged;  // picks up what others wrote meanwhile
  const std::string folder = path::parent(file);
  // Create the folder chain; existing folders are fine.
  for (std::size_t slash = 1; (slash = folder.find('/', slash)) != std::string::npos; ++slash) {
    ::mkdir(folder.substr(0, slash).c_str(), 0700);
  }
  ::mkdir(folder.c_str(), 0700);
  if (!writeFileAtomically(file, values.dump(2) + "\n")) {
    warnOnce("lumerix: cannot save settings to " + file + ": " + std::strerror(errno));
  }
}

void FileSettingsStore::warnOnce(const std::string& message) {
  if (warned) return;
  warned = true;
  warnings << message << std::endl;
}

}  // namespace lumerix
