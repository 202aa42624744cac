#include "app/MemorySettingsStore.h"

#include <cmath>

namespace lumerix {

namespace {

nlohmann::json toJson(const SettingValue& value) {
  return std::visit([](const auto& v) { return nlohmann::json(v); }, value);
}

}  // namespace

void MemorySettingsStore::registerDefaults(const std::map<std::string, SettingValue>& table) noexcept {
  for (const auto& [key, value] : table) defaults[key] = toJson(value);
}

const nlohmann::json* MemorySettingsStore::find(const std::string& key) const {
  if (auto it = values.find(key); it != values.end()) return &*it;
  if (auto it = defaults.find(key); it != defaults.end()) return &*it;
  return nullptr;
}

double MemorySettingsStore::asDouble(const nlohmann::json* v) noexcept {
  return v && v->is_number() ? v->get<double>() : 0.0;
}

long long MemorySettingsStore::asInteger(const nlohmann::json* v) noexcept {
  if (!v || !v->is_number()) return 0;
  if (v->is_number_float()) {
    const double d = v->get<double>();
    // Out of range reads as zero too, rather than as undefined behaviour.
    return std::isfinite(d) && std::fabs(d) < 9.2e18 ? static_cast<long long>(d) : 0;
  }
  return v->is_number_unsigned() && v->get<unsigned long long>() > 9223372036854775807ULL ? 0 : v->get<long long>();
}

bool MemorySettingsStore::asBool(const nlohmann::json* v) noexcept {
  return v && v->is_boolean() && v->get<bool>();
}

std::optional<std::string> MemorySettingsStore::asString(const nlohmann::json* v) noexcept {
  if (!v || !v->is_string()) return std::nullopt;
  return v->get<std::string>();
}

double MemorySettingsStore::doubleFor(const std::string& key) const noexcept {
  return asDouble(find(key));
}

long long MemorySettingsStore::integerFor(const std::string& key) const noexcept {
  return asInteger(find(key));
}

bool MemorySettingsStore::boolFor(const std::string& key) const noexcept {
  return asBool(find(key));
}

std::optional<std::string> MemorySettingsStore::stringFor(const std::string& key) const noexcept {
  return asString(find(key));
}

void MemorySettingsStore::set(const std::string& key, const SettingValue& value) noexcept {
  values[key] = toJson(value);
  persist(key);
}

}  // namespace lumerix
