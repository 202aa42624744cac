// Whatever a now-playing helper writes, in whatever pieces it arrives, the
// stream's state stays one the clock can use, and nothing crashes.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "FuzzCheck.h"
#include "platform/Clock.h"
#include "sync/MediaRemoteSync.h"

namespace {

struct StillClock : lumerix::Clock {
  double uptime() const noexcept override { return 1000; }
  double wallClock() const noexcept override { return 1.7e9; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static StillClock clock;
  lumerix::MediaRemoteSync stream(
      clock, [] { return std::nullopt; }, "org.mpris.MediaPlayer2.mpv", 2.0,
      lumerix::MediaRemoteSync::TargetMatch::withInstances);
  // The first byte cuts the rest into reads of varying size, as pipes do.
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t piece = bytes.empty() ? 1 : 1 + static_cast<unsigned char>(bytes[0]) % 64;
  if (!bytes.empty()) bytes.remove_prefix(1);
  while (!bytes.empty()) {
    stream.consume(bytes.substr(0, piece));
    bytes.remove_prefix(std::min(piece, bytes.size()));
    const auto s = stream.snapshot();
    check(s.position.has_value() == s.status.empty(), "a position comes with no status, and only then");
    check(!s.position || (std::isfinite(*s.position) && std::fabs(*s.position) < 1e13), "position out of range");
    check(!(s.idle && s.position), "idle with a position");
    check(stream.pendingBytes() <= lumerix::MediaRemoteSync::maxLineBytes, "line buffer past its cap");
  }
  return 0;
}
