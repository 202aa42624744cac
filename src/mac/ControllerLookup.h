#pragma once

#include <functional>

#include "app/Controller.h"

namespace lumerix::mac {

// How the shell's windows, views, observers and timers reach the controller:
// null while it is being built and once it is gone, so that none of them
// keeps it alive or calls into it half-made.
using ControllerLookup = std::function<Controller*()>;

}  // namespace lumerix::mac
