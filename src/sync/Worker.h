#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "sync/Subprocess.h"

namespace lumerix {

// A source's background thread that can be told to stop: the body sees
// stopped() at its next check, a pause() ends at once, and any child
// process run through processes() is stopped on the spot. Declare it as the
// owner's last member, so it is stopped and joined before anything the
// body uses goes away.
class Worker {
 public:
  Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    stop();
    if (thread.joinable()) thread.join();
  }

  // Runs body on the thread; later calls do nothing.
  void start(std::function<void()> body) {
    if (!thread.joinable()) thread = std::thread(std::move(body));
  }

  // Any thread, any number of times; does not wait for the body to end.
  void stop() {
    {
      std::lock_guard<std::mutex> guard(mutex);
      stopRequested = true;
    }
    wake.notify_all();
    slot.cancel();
  }

  bool stopped() const {
    std::lock_guard<std::mutex> guard(mutex);
    return stopRequested;
  }

  // Waits up to `seconds`; false when stopped meanwhile (or before).
  bool pause(double seconds) {
    std::unique_lock<std::mutex> guard(mutex);
    wake.wait_for(guard, std::chrono::duration<double>(seconds), [this] { return stopRequested; });
    return !stopRequested;
  }

  ProcessSlot& processes() { return slot; }

 private:
  mutable std::mutex mutex;  // guards stopRequested
  std::condition_variable wake;
  bool stopRequested = false;
  ProcessSlot slot;
  std::thread thread;
};

}  // namespace lumerix
