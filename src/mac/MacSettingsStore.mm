#include "mac/MacSettingsStore.h"

#import <Foundation/Foundation.h>

#include <type_traits>

#include "app/MemorySettingsStore.h"
#import "mac/Conversions.h"
#include "mac/DefaultsValues.h"

namespace lumerix {

namespace {

id objectFor(const SettingValue& value) {
  return std::visit(
      [](const auto& v) -> id {
        if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::string>) {
          return mac::nsString(v);
        } else {
          return @(v);
        }
      },
      value);
}

// What the defaults hold under the key, as the shared reading rules see it;
// null for nothing, or for a kind of value no setting has.
nlohmann::json valueFor(const std::string& key) {
  @autoreleasepool {
    id object = [NSUserDefaults.standardUserDefaults objectForKey:mac::nsString(key)];
    if ([object isKindOfClass:NSString.class]) return mac::stdString(object);
    if (![object isKindOfClass:NSNumber.class]) return nullptr;
    NSNumber* number = object;
    if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) return static_cast<bool>(number.boolValue);
    if (CFNumberIsFloatType((__bridge CFNumberRef)number)) return number.doubleValue;
    return number.longLongValue;
  }
}

}  // namespace

void MacSettingsStore::registerDefaults(const std::map<std::string, SettingValue>& defaults) noexcept {
  @autoreleasepool {
    NSMutableDictionary<NSString*, id>* table = [NSMutableDictionary dictionary];
    for (const auto& [key, value] : defaults) table[mac::nsString(key)] = objectFor(value);
    [NSUserDefaults.standardUserDefaults registerDefaults:table];
  }
}

double MacSettingsStore::doubleFor(const std::string& key) const noexcept {
  return mac::defaultsDouble(valueFor(key));
}

long long MacSettingsStore::integerFor(const std::string& key) const noexcept {
  return mac::defaultsInteger(valueFor(key));
}

bool MacSettingsStore::boolFor(const std::string& key) const noexcept {
  return mac::defaultsBool(valueFor(key));
}

std::optional<std::string> MacSettingsStore::stringFor(const std::string& key) const noexcept {
  const nlohmann::json v = valueFor(key);
  return MemorySettingsStore::asString(&v);
}

void MacSettingsStore::set(const std::string& key, const SettingValue& value) noexcept {
  @autoreleasepool {
    [NSUserDefaults.standardUserDefaults setObject:objectFor(value) forKey:mac::nsString(key)];
  }
}

}  // namespace lumerix
