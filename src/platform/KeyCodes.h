#pragma once

namespace lumerix {

// The keys the controller knows by code rather than by character. The values
// are the macOS virtual key codes; other shells map their own key values
// onto them.
namespace keycode {
inline constexpr int escape = 53;
inline constexpr int left = 123;
inline constexpr int right = 124;
inline constexpr int down = 125;
inline constexpr int up = 126;
// A key with no code of its own: only its characters count.
inline constexpr int none = -1;
}  // namespace keycode

}  // namespace lumerix
