#pragma once

#include <nlohmann/json.hpp>

// How a setting reads on macOS, where people change them with `defaults
// write`. The user defaults keep numbers and booleans as one kind (NSNumber),
// and `defaults write app.lumerix.Lumerix FontSize 30`, without a type flag,
// stores the text "30". We read as NSUserDefaults' own typed getters do, so
// that what a user wrote by hand means what they meant: a number is a truth
// value (non-zero is true) and a truth value a number (1 or 0); a text reads
// as a number when it is one in full, and as a truth value the way
// -[NSString boolValue] does. Anything else reads as zero. Plain C++: tested
// on every platform.
namespace lumerix::mac {

double defaultsDouble(const nlohmann::json& v);
long long defaultsInteger(const nlohmann::json& v);
bool defaultsBool(const nlohmann::json& v);

}  // namespace lumerix::mac
