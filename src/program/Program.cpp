#include "program/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "app/Controller.h"
#include "app/Demo.h"
#include "app/MemorySettingsStore.h"
#include "app/PlatformServices.h"
#include "subtitles/SRTParser.h"
#include "util/Files.h"
#include "util/Path.h"
#include "util/StopSignals.h"
#include "util/Unicode.h"

namespace lumerix {

namespace {

double millis(double seconds) {
  return std::round(seconds * 1000) / 1000;
}

void printLine(std::ostream& out, double t, const char* key, const nlohmann::json& value,
               const nlohmann::ordered_json& more = nlohmann::ordered_json::object()) {
  nlohmann::ordered_json line;
  line["t"] = millis(t);
  line[key] = value;
  for (const auto& [k, v] : more.items()) line[k] = v;
  out << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}

std::atomic<bool>* stopFlag = nullptr;
int wakeFd = -1;  // the write end of the loop's wake-up pipe

// A pipe the loop sleeps on until the next tick is due: the source's
// threads and the stop signals write a byte to wake it sooner.
struct WakePipe {
  int fds[2] = {-1, -1};
  WakePipe() {
    if (::pipe(fds) != 0) return;
    for (int fd : fds) {
      ::fcntl(fd, F_SETFD, FD_CLOEXEC);
      ::fcntl(fd, F_SETFL, O_NONBLOCK);
    }
  }
  ~WakePipe() {
    for (int fd : fds) {
      if (fd >= 0) ::close(fd);
    }
  }
  WakePipe(const WakePipe&) = delete;
  WakePipe& operator=(const WakePipe&) = delete;
  static void wake(int fd) {
    if (fd < 0) return;
    const char byte = 1;
    const ssize_t written = ::write(fd, &byte, 1);  // a full pipe has a wake-up pending anyway
    (void)written;
  }
  // Sleeps up to `seconds` or until woken; takes the wake-ups in.
  void sleep(double seconds) {
    pollfd p{fds[0], POLLIN, 0};
    ::poll(&p, fds[0] >= 0 ? 1 : 0, static_cast<int>(std::ceil(std::clamp(seconds, 0.0, 60.0) * 1000)));
    char drain[64];
    while (fds[0] >= 0 && ::read(fds[0], drain, sizeof drain) > 0) {
    }
  }
};

extern "C" void onStopSignal(int) {
  if (stopFlag) *stopFlag = true;
  WakePipe::wake(wakeFd);
}

}  // namespace

ConsoleHost::ConsoleHost(const Clock& clock, std::ostream& out) : clock(clock), started(clock.uptime()), out(out) {}

double ConsoleHost::elapsed() const {
  return clock.uptime() - started;
}

void ConsoleHost::setStatusText(const std::string& text) {
  printLine(out, elapsed(), "status", text);
}

void ConsoleHost::setTextLayers(const std::vector<TextLayer>& layers, bool brandMode) {
  std::pair<std::string, bool> now{layers.empty() ? "" : layers.back().text, brandMode};
  if (shown == now) return;
  shown = now;
  textChanged = true;
}

void ConsoleHost::setSecondText(const std::vector<TextLayer>& layers, const Rect&) {
  const std::string& now = layers.empty() ? std::string() : layers.back().text;
  if (now == secondShown) return;
  secondShown = now;
  textChanged = true;
}

void ConsoleHost::flushText(std::optional<double> position, std::optional<double> subtitleTime,
                            std::optional<std::string_view> second) {
  if (!textChanged || !shown) return;
  textChanged = false;
  nlohmann::ordered_json more{{"brand", shown->second}};
  if (second) more["second"] = std::string(*second);
  if (position && subtitleTime) {
    more["pos"] = millis(*position);
    more["sub"] = millis(*subtitleTime);
  }
  printLine(out, elapsed(), "text", shown->first, more);
}

Size ConsoleHost::measureText(const TextLayer& layer, Size bounds) {
  // All in doubles: a settings file may hold a font size no integer holds.
  double widest = 0;
  double lines = 0;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = layer.text.find('\n', start);
    const std::string_view line = std::string_view(layer.text).substr(start, end - start);
    std::size_t points = 0;
    for (std::size_t i = 0; i < line.size(); ++points) unicode::next(line, i);
    const double width = 0.55 * layer.font.size * static_cast<double>(points);
    const double wraps = bounds.width > 0 ? std::max(1.0, std::ceil(width / bounds.width)) : 1.0;
    widest = std::max(widest, std::min(width, bounds.width));
    lines += wraps;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return {widest, std::min(lines * layer.font.size * 1.2, bounds.height)};
}

int ConsoleDialogs::runAlert(const Alert& alert) {
  printLine(out, clock.uptime() - started, "alert", alert.message);
  return -1;  // dismissed without a choice
}

int runHeadless(const HeadlessOptions& options, std::ostream& out, std::ostream& err) {
  SystemClock clock;
  std::atomic<bool> quit{false};
  // A reader of our output that goes away must not kill us mid-save.
  ::signal(SIGPIPE, SIG_IGN);

  // The demo keeps its settings in memory: it must not change the user's.
  std::unique_ptr<SettingsStore> settings =
      options.demo ? std::make_unique<MemorySettingsStore>() : platform::makeUserSettingsStore(err);
  // The demo still speaks as this platform does; only its player is built in.
  platform::PlayerServices player = platform::makePlayerServices(*settings, options.player);
  std::unique_ptr<SyncSource> source;
  std::optional<DemoFolder> demo;
  std::optional<std::string> subtitle;
  if (options.demo) {
    source = std::make_unique<DemoSync>(clock, demoLoopSeconds(options.demoSample));
    player.fused = nullptr;
    demo.emplace(options.demoSample);
    subtitle = demo->subtitle();
    if (!subtitle) err << "lumerix: no folder for the demo's sample subtitle (" << demo->error() << ")\n";
  } else {
    source = std::move(player.source);
    if (options.subtitle) subtitle = startupSubtitlePath({"lumerix", *options.subtitle});
  }

  // Before the controller starts the source; it outlives the controller.
  WakePipe wakePipe;
  source->onChange([fd = wakePipe.fds[1]] { WakePipe::wake(fd); });

  // Stopped before the subtitle loads: nothing to save, nothing written.
  if (const int signal = stopsignals::takePending()) return 128 + signal;

  const double started = clock.uptime();
  ConsoleHost host(clock, out);
  ConsoleDialogs dialogs(clock, out, quit);
  player.conventions.texts.startHint = consoleStartHint(player.conventions.texts.startHint);
  Controller controller({clock, *settings, host, dialogs, dialogs}, std::move(source), subtitle, player.conventions,
                        options.demo ? std::nullopt : options.second);
  controller.setSoundCapture(platform::makeSoundCapture(clock));
  if (options.listen) controller.startListening();
  // Only now is there a calibration to save on the way out; a stop signal
  // that came while the subtitle loaded was held for this moment.
  stopFlag = &quit;
  wakeFd = wakePipe.fds[1];
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  for (int s : stopsignals::kSignals) ::sigaction(s, &action, nullptr);
  stopsignals::release();

  // As the bar does: a tick when the controller says one is due, or when
  // the source says it changed; full screen is asked for (twice a second).
  bool fullscreen = false;
  while (!quit) {
    controller.tick();
    host.flushText(controller.state().lastPosition, controller.state().lastShownT, controller.secondShown());
    double in = controller.nextTickIn();
    if (player.fused) {
      if (player.fused->fullscreen() != fullscreen) {
        // Full screen hands the lead from the poller to the stream.
        fullscreen = player.fused->fullscreen();
        printLine(out, clock.uptime() - started, "fullscreen", fullscreen);
      }
      in = std::min(in, 0.5);
    }
    if (!quit) wakePipe.sleep(in);
  }
  controller.quit();  // saves the calibration, stops the sources
  stopFlag = nullptr;
  wakeFd = -1;
  return out ? 0 : 1;
}

int runProgram(int argc, char** argv, std::string_view demoSample,
               const std::function<int(const CommandLine&)>& showBar) {
  std::ios::sync_with_stdio(false);
  const CommandLine cl = parseCommandLine({argv + 1, argv + argc});
  // Only a running bar has timing to save: the rest stop as any tool does.
  if (cl.mode != CommandLine::Mode::run) stopsignals::release();
  switch (cl.mode) {
    case CommandLine::Mode::help:
      std::cout << helpText(static_cast<bool>(showBar), platform::linuxPlayers());
      return 0;
    case CommandLine::Mode::version:
      std::cout << versionText();
      return 0;
    case CommandLine::Mode::dumpCues:
      return runDumpCues(cl.file, std::cout, std::cerr);
    case CommandLine::Mode::run:
      if (!cl.headless && !cl.demo && !showBar) {
        std::cerr << "lumerix: this build has no window; printing what the bar would show (as --headless)\n";
      }
      if (auto note = missingStartupFileNote(cl.file)) std::cerr << *note << '\n';
      if (!cl.headless && showBar) return showBar(cl);
      return runHeadless({cl.file.empty() ? std::nullopt : std::optional<std::string>(cl.file),
                          cl.second.empty() ? std::nullopt : std::optional<std::string>(cl.second), cl.demo,
                          cl.listen, cl.player, demoSample},
                         std::cout, std::cerr);
    case CommandLine::Mode::doAction: {
      std::string why;
      const platform::Delivery delivery = platform::deliverAction(cl.action, why);
      return deliveryStatus(delivery, cl.action, why, std::cerr);
    }
    case CommandLine::Mode::usageError:
      std::cerr << cl.error << '\n';
      return 2;
  }
  return 2;
}

}  // namespace lumerix
