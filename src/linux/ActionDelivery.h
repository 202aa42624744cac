#pragma once

// Where `lumerix --do` finds the running bar: the GApplication that owns
// this name on the session bus, and the action it registers for it.
namespace lumerix::barbus {

inline constexpr const char* kBarBusName = "io.lumerix.Lumerix";
inline constexpr const char* kBarObjectPath = "/io/lumerix/Lumerix";
inline constexpr const char* kDoActionName = "do";  // one string parameter: the action's name

}  // namespace lumerix::barbus
