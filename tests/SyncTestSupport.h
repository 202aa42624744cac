#pragma once

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace lumerix::test {

inline std::string helper(const std::string& name) {
  return std::string(LUMERIX_HELPERS) + "/" + name;
}

// A fresh directory removed with everything in it.
class TempDir {
 public:
  TempDir() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/lumerix-test-XXXXXX";
    root_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() { std::filesystem::remove_all(root_); }
  std::string path(const std::string& name) const { return root_ + "/" + name; }
  static std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    const std::string tmp = path(name) + ".new";
    std::ofstream(tmp) << text;
    std::filesystem::rename(tmp, path(name));  // readers never see half a file
  }

 private:
  std::string root_;
};

// Polls cond every 10 ms for up to `limit`; real threads and processes
// need real time, but never more than they take.
inline bool waitFor(const std::function<bool()>& cond, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!cond()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

inline int lineCount(const std::string& path) {
  std::ifstream in(path);
  int n = 0;
  for (std::string line; std::getline(in, line);) ++n;
  return n;
}

inline pid_t firstPid(const std::string& path) {
  std::ifstream in(path);
  pid_t pid = 0;
  in >> pid;
  return pid;
}

// No process is left in the group the helper led (itself, as a zombie or
// not, and anything it started).
inline bool processGroupGone(pid_t leader) {
  return waitFor([&] { return ::kill(-leader, 0) != 0 && ::kill(leader, 0) != 0; }, std::chrono::seconds(3));
}

}  // namespace lumerix::test

namespace lumerix::test {

// Threads of this process right now. Sanitizer runtimes start a helper
// thread of their own with the first thread; start one first so that it is
// counted on both sides of a comparison.
// -1 where the system does not list a process's threads as files (macOS):
// callers skip the comparison there.
inline int threadCount() {
  static const bool warmed = [] {
    std::thread([] {}).join();
    return true;
  }();
  (void)warmed;
  std::error_code missing;
  std::filesystem::directory_iterator tasks("/proc/self/task", missing);
  if (missing) return -1;
  int n = 0;
  for ([[maybe_unused]] const auto& e : tasks) ++n;
  return n;
}

// True where /proc describes processes (Linux); tests that read it skip
// elsewhere.
inline bool haveProc() {
  return std::filesystem::exists("/proc/self/status");
}

}  // namespace lumerix::test
