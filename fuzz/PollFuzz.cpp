// Whatever a poll helper answers, the poller's clock stays one the tick can
// use, and nothing crashes.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "FuzzCheck.h"
#include "sync/TVSync.h"

namespace {

struct StillSystem : lumerix::System {
  double now = 1000;
  double uptime() const noexcept override { return now; }
  double wallClock() const noexcept override { return 1.7e9 + now; }
  std::vector<int> targetProcessIds() override { return {}; }
  std::optional<std::vector<lumerix::WindowInfo>> onScreenWindows() override { return std::nullopt; }
  std::vector<lumerix::ScreenSize> screenSizes() override { return {}; }
  bool targetRunning() override { return true; }
  std::optional<int> requestAutomationPermission() override { return 0; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StillSystem system;
  lumerix::TVSync poller(system, {});
  // Answers separated by NUL bytes; within one, a second NUL splits the
  // standard output from the standard error.
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\0');
    const std::string_view answer = bytes.substr(0, end);
    bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
    const std::size_t split = bytes.find('\0');
    const std::string_view err = bytes.substr(0, split);
    bytes.remove_prefix(split == std::string_view::npos ? bytes.size() : split + 1);
    poller.applyPoll(answer, err, system.now, system.now + 0.1);
    system.now += 0.45;
    const auto s = poller.snapshot();
    check(s.position.has_value() == s.status.empty(), "a position comes with no status, and only then");
    check(!s.position || (std::isfinite(*s.position) && std::fabs(*s.position) < 1e10), "position out of range");
    check(!(s.holding && !s.position), "holding without a position");
  }
  return 0;
}
