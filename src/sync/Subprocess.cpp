#include "sync/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace lumerix {

namespace {

// Both ends close-on-exec from the start, so a concurrent spawn on another
// thread cannot inherit them.
bool makePipe(int fds[2]) {
#if defined(__APPLE__)
  if (::pipe(fds) != 0) return false;
  // macOS has no pipe2; POSIX_SPAWN_CLOEXEC_DEFAULT below covers the gap.
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
  return true;
#else
  return ::pipe2(fds, O_CLOEXEC) == 0;
#endif
}

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// Reads what is there without blocking. Returns false at end of file.
bool readAvailable(int fd, const Subprocess::Chunk& sink) {
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n > 0) {
      if (sink) sink(std::string_view(buf, static_cast<std::size_t>(n)));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
    return false;  // end of file, or an error that ends the stream just the same
  }
}

// The stdin channel: a socket pair rather than a pipe, so that writing to a
// child that went away fails with EPIPE instead of raising SIGPIPE.
bool makeInputChannel(int fds[2]) {
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) return false;
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#if defined(__APPLE__)
  const int on = 1;
  ::setsockopt(fds[0], SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
  return true;
}

}  // namespace

Result<std::unique_ptr<Subprocess>, std::string> Subprocess::start(const std::vector<std::string>& argv, bool input) {
  using R = Result<std::unique_ptr<Subprocess>, std::string>;
  if (argv.empty() || argv[0].empty()) return R::failure(std::strerror(ENOENT));

  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1}, exitPipe[2] = {-1, -1}, wake[2] = {-1, -1};
  auto closeAll = [&] {
    for (int* p : {in, out, err, exitPipe, wake}) {
      closeFd(p[0]);
      closeFd(p[1]);
    }
  };
  if ((input && !makeInputChannel(in)) || !makePipe(out) || !makePipe(err) || !makePipe(exitPipe) || !makePipe(wake)) {
    const int code = errno;
    closeAll();
    return R::failure(std::strerror(code));
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input) {
    posix_spawn_file_actions_adddup2(&actions, in[1], 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);

  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  // Dispositions we ignore (SIGPIPE, say) must not be inherited as ignored.
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setpgroup(&attr, 0);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
#if defined(__APPLE__)
  flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
  posix_spawnattr_setflags(&attr, flags);

  std::vector<char*> cargv;
  for (const auto& a : argv) cargv.push_back(const_cast<char*>(a.c_str()));
  cargv.push_back(nullptr);

  pid_t pid = -1;
  const int rc = ::posix_spawnp(&pid, argv[0].c_str(), &actions, &attr, cargv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  closeFd(in[1]);
  closeFd(out[1]);
  closeFd(err[1]);
  if (rc != 0) {
    closeAll();
    return R::failure(std::strerror(rc));
  }
  ::fcntl(out[0], F_SETFL, O_NONBLOCK);
  ::fcntl(err[0], F_SETFL, O_NONBLOCK);
  ::fcntl(wake[0], F_SETFL, O_NONBLOCK);
  ::fcntl(wake[1], F_SETFL, O_NONBLOCK);
  return R::success(std::unique_ptr<Subprocess>(
      new Subprocess(pid, in[0], out[0], err[0], exitPipe[0], exitPipe[1], wake[0], wake[1])));
}

Subprocess::Subprocess(pid_t pid, int inFd, int outFd, int errFd, int exitRead, int exitWrite, int wakeRead,
                       int wakeWrite)
    : pid_(pid),
      inFd_(inFd),
      outFd_(outFd),
      errFd_(errFd),
      exitRead_(exitRead),
      exitWrite_(exitWrite),
      wakeRead_(wakeRead),
      wakeWrite_(wakeWrite) {
  waiter_ = std::thread([this] { waitForExit(); });
}

namespace {
std::atomic<bool> waitidFails{false};
}  // namespace

void testhooks::failWaitForExit(bool fail) {
  waitidFails = fail;
}

void Subprocess::waitForExit() {
  // Wait without reaping first: while the zombie exists its pid cannot be
  // reused, so terminate() under the mutex never signals a stranger.
  siginfo_t info{};
  int rc;
  while ((rc = waitidFails ? (errno = EINVAL, -1)
                           : ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT)) != 0 &&
         errno == EINTR) {
  }
  int status = 0;
  std::unique_lock<std::mutex> lock(mutex_);
  if (rc != 0) {
    // No way to wait without reaping: reap blocking, but never with the
    // lock held, or no one could signal the child meanwhile. A signal sent
    // in the moment between reaping and marking it exited could reach a
    // new process with the same pid; that moment is as short as we can make it.
    lock.unlock();
    pid_t reaped;
    while ((reaped = ::waitpid(pid_, &status, 0)) < 0 && errno == EINTR) {
    }
    lock.lock();
    if (reaped < 0) status = 0;
  } else {
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  exited_ = true;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  signalled_ = WIFSIGNALED(status);
  lock.unlock();
  const char byte = 1;
  while (::write(exitWrite_, &byte, 1) < 0 && errno == EINTR) {
  }
}

Subprocess::~Subprocess() {
  // Whatever the child started goes with it.
  signalGroup(SIGKILL);
  waiter_.join();
  ::kill(-pid_, SIGKILL);
  closeFd(inFd_);
  closeFd(outFd_);
  closeFd(errFd_);
  ::close(exitRead_);
  ::close(exitWrite_);
  ::close(wakeRead_);
  ::close(wakeWrite_);
}

bool Subprocess::exited() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return exited_;
}

int Subprocess::exitStatus() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return status_;
}

bool Subprocess::killedBySignal() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return signalled_;
}

void Subprocess::signalGroup(int sig) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!exited_) ::kill(-pid_, sig);
}

void Subprocess::terminate() {
  signalGroup(SIGTERM);
}

void Subprocess::requestStop(std::chrono::milliseconds grace) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (exited_) return;
    const TimePoint at = std::chrono::steady_clock::now() + grace;
    if (!killAt_ || at < *killAt_) killAt_ = at;
    ::kill(-pid_, SIGTERM);
  }
  const char byte = 1;
  while (::write(wakeWrite_, &byte, 1) < 0 && errno == EINTR) {
  }
}

bool Subprocess::pump(const Chunk& onStdout, const Chunk& onStderr, std::optional<TimePoint> deadline) {
  return pumpUntil(onStdout, onStderr, nullptr, deadline) == PumpEnd::exited;
}

bool Subprocess::send(std::string_view text) {
  if (inFd_ < 0) return false;
#if defined(__APPLE__)
  constexpr int flags = 0;  // SO_NOSIGPIPE is set on the socket
#else
  constexpr int flags = MSG_NOSIGNAL;
#endif
  while (!text.empty()) {
    const ssize_t n = ::send(inFd_, text.data(), text.size(), flags);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

Subprocess::PumpEnd Subprocess::pumpUntil(const Chunk& onStdout, const Chunk& onStderr,
                                          const std::function<bool()>& done, std::optional<TimePoint> deadline) {
  using namespace std::chrono;
  auto msUntil = [](TimePoint t) {
    return std::max<long long>(0, ceil<milliseconds>(t - steady_clock::now()).count());
  };
  for (;;) {
    // TimePoint::max() when no stop was asked for. A plain value rather than
    // an optional: GCC 12 cannot see that an empty optional is never read.
    TimePoint killAt = TimePoint::max();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (killAt_) killAt = *killAt_;
    }
    if (killAt != TimePoint::max() && steady_clock::now() >= killAt) {
      signalGroup(SIGKILL);  // asked to stop and still there: no more asking
      std::lock_guard<std::mutex> lock(mutex_);
      killAt_.reset();
      killAt = TimePoint::max();
    }
    pollfd fds[4] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}, {exitRead_, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
    long long timeoutMs = -1;
    if (deadline) {
      timeoutMs = msUntil(*deadline);
      if (timeoutMs == 0) return PumpEnd::deadline;
    }
    if (killAt != TimePoint::max()) timeoutMs = timeoutMs < 0 ? msUntil(killAt) : std::min(timeoutMs, msUntil(killAt));
    const int n = ::poll(fds, 4, static_cast<int>(std::min<long long>(timeoutMs, 1 << 30)));
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) {
      if (deadline && steady_clock::now() >= *deadline) return PumpEnd::deadline;
      continue;  // the stop's grace ran out: the top of the loop kills
    }
    if (fds[3].revents) readAvailable(wakeRead_, nullptr);  // a stop was asked for: the loop sees it
    if (fds[0].revents && !readAvailable(outFd_, onStdout)) closeFd(outFd_);
    if (fds[0].revents && done && done()) return PumpEnd::done;
    if (fds[1].revents && !readAvailable(errFd_, onStderr)) closeFd(errFd_);
    if (fds[2].revents) {
      // Everything the child wrote before exiting is in the pipes now. A
      // grandchild may keep them open, so take what is there and stop.
      if (outFd_ >= 0 && !readAvailable(outFd_, onStdout)) closeFd(outFd_);
      if (errFd_ >= 0 && !readAvailable(errFd_, onStderr)) closeFd(errFd_);
      return PumpEnd::exited;
    }
  }
}

void Subprocess::stop(std::chrono::milliseconds grace) {
  terminate();
  if (pump(nullptr, nullptr, std::chrono::steady_clock::now() + grace)) return;
  signalGroup(SIGKILL);
  pump(nullptr, nullptr);
}

// ---------------------------------------------------------------------------

void ProcessSlot::cancel() {
  std::lock_guard<std::mutex> lock(mutex_);
  cancelled_ = true;
  if (current_) current_->requestStop(std::chrono::seconds(1));
}

bool ProcessSlot::cancelled() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return cancelled_;
}

Result<std::unique_ptr<Subprocess>, std::string> ProcessSlot::attach(const std::vector<std::string>& argv) {
  using R = Result<std::unique_ptr<Subprocess>, std::string>;
  std::lock_guard<std::mutex> lock(mutex_);
  // Starting under the lock closes the gap in which cancel() could miss a child.
  if (cancelled_) return R::failure("cancelled");
  auto child = Subprocess::start(argv);
  if (child) current_ = child.value().get();
  return child;
}

void ProcessSlot::detach() {
  std::lock_guard<std::mutex> lock(mutex_);
  current_ = nullptr;
}

std::optional<CommandOutput> ProcessSlot::run(const std::vector<std::string>& argv,
                                              std::optional<double> timeoutSeconds) {
  auto child = attach(argv);
  if (!child) return std::nullopt;
  Subprocess& p = *child.value();
  CommandOutput output;
  std::optional<Subprocess::TimePoint> deadline;
  if (timeoutSeconds) {
    deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                      std::chrono::duration<double>(*timeoutSeconds));
  }
  // The answers are a line or two; a helper that floods us gets its first
  // bytes kept and the rest read and dropped.
  static constexpr std::size_t keep = 64 << 10;
  auto into = [](std::string& text) {
    return [&text](std::string_view s) { text.append(s.substr(0, keep - std::min(keep, text.size()))); };
  };
  const bool exited = p.pump(into(output.out), into(output.err), deadline);
  if (!exited) p.stop(std::chrono::seconds(1));
  detach();
  if (!exited || cancelled()) return std::nullopt;
  return output;
}

std::optional<std::string> ProcessSlot::ask(const std::vector<std::string>& argv, std::string_view request,
                                            double timeoutSeconds) {
  if (resident_ && (resident_->exited() || argv != residentArgv_)) closeResident();
  if (!resident_) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (cancelled_) return std::nullopt;
    auto child = Subprocess::start(argv, true);
    if (!child) return std::nullopt;
    resident_ = std::move(child.value());
    current_ = resident_.get();
    residentArgv_ = argv;
    residentOut_.clear();
  }
  const auto deadline =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(timeoutSeconds));
  // An answer is a line; a helper that floods us without one is stopped.
  static constexpr std::size_t keep = 64 << 10;
  auto line = [this] { return residentOut_.find('\n') != std::string::npos || residentOut_.size() >= keep; };
  const bool sent = resident_->send(std::string(request) + "\n");
  const auto end =
      sent ? resident_->pumpUntil([this](std::string_view s) { residentOut_.append(s); }, nullptr, line, deadline)
           : Subprocess::PumpEnd::exited;
  const std::size_t at = residentOut_.find('\n');
  if (end == Subprocess::PumpEnd::deadline || at == std::string::npos || cancelled()) {
    // Late, gone or flooding: whatever it says next belongs to no question.
    closeResident();
    return std::nullopt;
  }
  std::string answer = residentOut_.substr(0, at);
  residentOut_.erase(0, at + 1);
  return answer;
}

void ProcessSlot::closeResident() {
  if (!resident_) return;
  resident_->stop(std::chrono::seconds(1));
  {
    std::lock_guard<std::mutex> lock(mutex_);
    current_ = nullptr;
  }
  resident_.reset();
  residentOut_.clear();
}

Result<bool, std::string> ProcessSlot::stream(const std::vector<std::string>& argv, const Subprocess::Chunk& onStdout) {
  auto child = attach(argv);
  if (!child) return Result<bool, std::string>::failure(child.error());
  child.value()->pump(onStdout, nullptr);
  detach();
  return Result<bool, std::string>::success(true);
}

}  // namespace lumerix
