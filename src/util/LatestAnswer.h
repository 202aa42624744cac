#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "util/Thread.h"

namespace lumerix {

// Asks a question that may block (a window server that froze, a bus that
// hangs) on a thread of its own, so that the asker never waits: latest()
// returns the last answer at once and has the question asked again. The
// answer is thus as old as one question's round trip, plus the time since
// the asker last asked.
//
// Thread contract: latest() and the destructor from one thread (the
// asker's); `ask` runs only on the answering thread, one call at a time, so
// whatever it keeps (connections) needs no lock.
template <class Answer>
class LatestAnswer {
 public:
  // name: the answering thread's name. ask: the question; it may block.
  LatestAnswer(const char* name, std::function<Answer()> ask) : shared(std::make_shared<Shared>()) {
    shared->ask = std::move(ask);
    std::thread([state = shared, name] { state->run(name); }).detach();
  }

  // Lets the thread finish; if the question is stuck, it is left to finish
  // on its own (it keeps what it uses alive), so that quitting never hangs.
  ~LatestAnswer() {
    std::unique_lock<std::mutex> guard(shared->mutex);
    shared->stopping = true;
    shared->wake.notify_all();
    shared->wake.wait_for(guard, std::chrono::seconds(1), [this] { return shared->finished; });
  }

  LatestAnswer(const LatestAnswer&) = delete;
  LatestAnswer& operator=(const LatestAnswer&) = delete;

  // The last answer (absent before the first), and a new question asked.
  std::optional<Answer> latest() {
    std::lock_guard<std::mutex> guard(shared->mutex);
    shared->wanted = true;
    shared->wake.notify_all();
    return shared->answer;
  }

  // Waits until an answer newer than this call exists, or the time passes.
  // For tests and start-up.
  bool waitForFresh(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> guard(shared->mutex);
    // A question already under way was asked before this call: wait for the next.
    const unsigned long needed = shared->answers + (shared->asking ? 2 : 1);
    shared->wanted = true;
    shared->wake.notify_all();
    return shared->wake.wait_for(guard, limit, [&] { return shared->answers >= needed; });
  }

 private:
  struct Shared {
    std::function<Answer()> ask;
    std::mutex mutex;  // guards everything below
    std::condition_variable wake;
    bool wanted = true;  // the first answer is fetched at once
    bool asking = false;
    bool stopping = false;
    bool finished = false;
    unsigned long answers = 0;
    std::optional<Answer> answer;

    void run(const char* name) {
      nameCurrentThread(name);
      std::unique_lock<std::mutex> guard(mutex);
      for (;;) {
        wake.wait(guard, [&] { return wanted || stopping; });
        if (stopping) break;
        wanted = false;
        asking = true;
        guard.unlock();
        Answer fresh = ask();
        guard.lock();
        asking = false;
        answer = std::move(fresh);
        ++answers;
        wake.notify_all();
      }
      ask = nullptr;  // what the question kept (connections) goes now, on this thread
      finished = true;
      wake.notify_all();
    }
  };

  std::shared_ptr<Shared> shared;
};

}  // namespace lumerix
