#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "util/Result.h"

namespace lumerix {

// A child process with stdout and stderr on pipes and stdin on /dev/null.
// Every descriptor we open is close-on-exec, so no child inherits another
// child's pipes. The child leads a process group of its own, so that
// stopping it also stops whatever it started. A waiter thread reaps it the
// moment it exits (no zombies) and wakes the thread pumping its output.
class Subprocess {
 public:
  using Chunk = std::function<void(std::string_view)>;
  using TimePoint = std::chrono::steady_clock::time_point;

  // Starts argv[0] (looked up in PATH when it has no slash) with the
  // environment inherited. With input, the child's stdin is a channel that
  // send() writes to (else /dev/null). The error is the system's own text.
  static Result<std::unique_ptr<Subprocess>, std::string> start(const std::vector<std::string>& argv,
                                                                bool input = false);

  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;
  // Kills the child and its group if still there, and reaps it.
  ~Subprocess();

  pid_t pid() const { return pid_; }
  bool exited() const;
  // The exit status once exited (128 + signal number when killed); -1 before.
  int exitStatus() const;
  // Whether a signal ended it (rather than its own exit, whatever the status).
  bool killedBySignal() const;
  // SIGTERM to the child's group, unless the child has already been reaped.
  // Any thread.
  void terminate();

  // terminate(), and SIGKILL to the group if it is still there after grace:
  // a helper that ignores SIGTERM must not keep us from quitting. The
  // thread pumping the child's output carries the escalation out, so it
  // returns within about grace. Any thread, any number of times.
  void requestStop(std::chrono::milliseconds grace);

  // Hands output to the callbacks (either may be empty) as it arrives,
  // until the child has exited and what it wrote is read, or until the
  // deadline. Returns whether the child exited. One pumping thread at a time.
  bool pump(const Chunk& onStdout, const Chunk& onStderr, std::optional<TimePoint> deadline = std::nullopt);

  // The same, but also returning as soon as done() says so after some
  // output arrived. Says why it returned.
  enum class PumpEnd { done, exited, deadline };
  PumpEnd pumpUntil(const Chunk& onStdout, const Chunk& onStderr, const std::function<bool()>& done,
                    std::optional<TimePoint> deadline);

  // Writes all of text to the child's stdin (started with input). False when
  // the child no longer reads it; never raises SIGPIPE. The pumping thread.
  bool send(std::string_view text);

  // terminate(), then SIGKILL if the child is still there after grace;
  // returns once it has been reaped.
  void stop(std::chrono::milliseconds grace);

 private:
  Subprocess(pid_t pid, int inFd, int outFd, int errFd, int exitRead, int exitWrite, int wakeRead, int wakeWrite);
  void signalGroup(int sig);
  void waitForExit();

  const pid_t pid_;
  int inFd_, outFd_, errFd_;
  const int exitRead_, exitWrite_;  // the waiter writes one byte when the child exits
  const int wakeRead_, wakeWrite_;  // requestStop writes one byte to wake the pump
  std::thread waiter_;

  mutable std::mutex mutex_;  // guards exited_, status_ and killAt_; makes signalling and reaping exclusive
  bool exited_ = false;
  int status_ = -1;
  bool signalled_ = false;
  std::optional<TimePoint> killAt_;  // when a requested stop turns into SIGKILL
};

namespace testhooks {
// Makes the reaper's wait for the child fail, as it can on some systems,
// so that the fallback is exercised. Tests only.
void failWaitForExit(bool fail);
}  // namespace testhooks

struct CommandOutput {
  std::string out;
  std::string err;
};

// Lets one thread stop the child another thread is running now, and any
// it would start later. The sources' cancel() goes through this.
class ProcessSlot {
 public:
  void cancel();
  bool cancelled() const;

  // Runs argv to completion, collecting its output (the first 64 KiB of
  // each stream). Absent when it cannot be launched, when it outlives the
  // timeout (it is then stopped), or when the slot is cancelled.
  std::optional<CommandOutput> run(const std::vector<std::string>& argv, std::optional<double> timeoutSeconds);

  // Runs argv until it exits, handing its stdout to onStdout as it arrives
  // (stderr is read and dropped). The error, when it cannot be launched, is
  // the system's text.
  Result<bool, std::string> stream(const std::vector<std::string>& argv, const Subprocess::Chunk& onStdout);

  // A resident helper: argv is started once and kept; each ask writes
  // request and a line feed to its stdin and returns the one line it answers
  // (without the line feed). Absent when it cannot be launched, when it
  // exits or does not answer within the timeout (it is then stopped, group
  // and all, and started afresh by the next ask), or when the slot is
  // cancelled. One asking thread.
  std::optional<std::string> ask(const std::vector<std::string>& argv, std::string_view request, double timeoutSeconds);
  // Stops the resident helper, if any, and waits for it. The asking thread.
  void closeResident();

 private:
  Result<std::unique_ptr<Subprocess>, std::string> attach(const std::vector<std::string>& argv);
  void detach();

  mutable std::mutex mutex_;  // guards current_ and cancelled_
  Subprocess* current_ = nullptr;
  bool cancelled_ = false;
  // The asking thread only (current_ points at it while it lives).
  std::unique_ptr<Subprocess> resident_;
  std::vector<std::string> residentArgv_;
  std::string residentOut_;  // what it wrote past the last answer
};

}  // namespace lumerix
