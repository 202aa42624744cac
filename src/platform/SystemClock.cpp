#include <chrono>

#include "platform/Clock.h"

namespace lumerix {

double SystemClock::uptime() const noexcept {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double SystemClock::wallClock() const noexcept {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace lumerix
