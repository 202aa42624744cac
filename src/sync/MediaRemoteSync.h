#pragma once

#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "sync/SourceTexts.h"
#include "sync/Subprocess.h"
#include "sync/SyncSource.h"
#include "sync/Worker.h"

namespace lumerix {

// The source that keeps working when the player cannot be asked directly
// (full screen): a helper streams the system's now-playing information as
// JSON lines, and the merged state gives an anchor to extrapolate from.
class MediaRemoteSync : public SyncSource {
 public:
  // The helper's command line, looked up afresh for every launch; absent
  // when the helper is not installed.
  using CommandProvider = std::function<std::optional<std::vector<std::string>>()>;

  // How the now-playing identity is compared with the target: exactly, or
  // also accepting "<target>.<anything>" (MPRIS players running several
  // instances, such as org.mpris.MediaPlayer2.vlc.instance42).
  enum class TargetMatch { exact, withInstances };

  // targetBundleID: the only player whose information counts; empty
  // accepts any player.
  MediaRemoteSync(const Clock& clock, CommandProvider adapterCommand, std::string targetBundleID = "com.apple.TV",
                  double relaunchDelay = 2.0, TargetMatch targetMatch = TargetMatch::exact,
                  StreamTexts texts = macSourceTexts().stream);
  ~MediaRemoteSync() override = default;  // the worker stops and joins first

  void start() override;
  void cancel() override;
  void snapshotInto(SyncSnapshot& into) override;
  bool permissionIssue() override { return false; }

  // A line longer than this is dropped whole (the helper's lines are a few
  // hundred bytes).
  static constexpr std::size_t maxLineBytes = 1 << 20;

  // Output of the helper as it arrives, cut into lines. Reader thread.
  void consume(std::string_view data);
  // Bytes of an unfinished line held now. Reader thread.
  std::size_t pendingBytes() const { return lineBuffer.size(); }
  void handleLine(std::string_view line);

  // "yyyy-MM-ddTHH:mm:ss.SSSZ" or "yyyy-MM-ddTHH:mm:ssZ", UTC, as seconds
  // since the Unix epoch.
  static std::optional<double> parseDate(std::string_view text);

 private:
  void apply();
  void run();  // launches the helper and relaunches it after every exit

  const Clock& clock;
  const CommandProvider adapterCommand;
  const std::string targetBundleID;
  const double relaunchDelay;
  const TargetMatch targetMatch;
  const StreamTexts texts;

  mutable std::mutex lock;  // guards ok through idleFlag
  bool ok = false;
  double elapsed = 0;
  double rate = 0;
  double anchorUptime = 0;
  bool playingFlag = false;
  std::string title;
  std::string statusText;
  bool idleFlag = false;

  // Reader side only: one call at a time, no lock.
  std::string lineBuffer;   // the line so far, without its line feed
  bool discarding = false;  // the line so far was too long: skip to its end
  nlohmann::json merged = nlohmann::json::object();

  Worker worker;  // last: stopped and joined before the fields above go
};

}  // namespace lumerix
