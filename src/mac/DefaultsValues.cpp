#include "mac/DefaultsValues.h"

#include <string>

#include "app/MemorySettingsStore.h"
#include "util/Numbers.h"

namespace lumerix::mac {

namespace {

// A number: as it is; a truth value: 1 or 0; a text that is a number in full
// (spaces around it allowed): that number.
nlohmann::json asNumber(const nlohmann::json& v) {
  if (v.is_boolean()) return v.get<bool>() ? 1LL : 0LL;
  if (!v.is_string()) return v;
  const std::string& text = v.get_ref<const std::string&>();
  const auto first = text.find_first_not_of(" \t\n");
  if (first == std::string::npos) return nullptr;
  const auto last = text.find_last_not_of(" \t\n");
  if (const auto number = parseDecimal(std::string_view(text).substr(first, last - first + 1))) return *number;
  return nullptr;
}

}  // namespace

double defaultsDouble(const nlohmann::json& v) {
  const nlohmann::json n = asNumber(v);
  return MemorySettingsStore::asDouble(&n);
}

long long defaultsInteger(const nlohmann::json& v) {
  const nlohmann::json n = asNumber(v);
  return MemorySettingsStore::asInteger(&n);
}

bool defaultsBool(const nlohmann::json& v) {
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return v.get<double>() != 0;
  if (!v.is_string()) return false;
  // -[NSString boolValue]: spaces, a sign and zeros skipped, then Y, T or a
  // digit 1 to 9 means true.
  const std::string& text = v.get_ref<const std::string&>();
  std::size_t i = text.find_first_not_of(" \t\n");
  if (i == std::string::npos) return false;
  if (text[i] == '+' || text[i] == '-') ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace lumerix::mac
