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
// hangs) on a thread of its own, so that the asker waits at most a moment it
// chooses: latest() waits that long for a fresh answer, and a question that
// has been under way for longer (stuck) is never waited on again, so a
// frozen server costs the asker one short wait, not one per call.
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

  // The last answer (absent before the first). An answer younger than
  // `fresh` is returned as it is; otherwise a new question is asked (unless
  // one is under way) and its answer waited for until `patience` after that
  // question began. With no patience, the answer is the previous question's.
  std::optional<Answer> latest(std::chrono::milliseconds patience = std::chrono::milliseconds(0),
                               std::chrono::milliseconds fresh = std::chrono::milliseconds(0)) {
    std::unique_lock<std::mutex> guard(shared->mutex);
    const auto now = std::chrono::steady_clock::now();
    if (shared->answer && fresh.count() > 0 && now - shared->answeredAt < fresh) return shared->answer;
    const unsigned long needed = shared->answers + 1;
    const auto deadline = (shared->asking ? shared->askedAt : now) + patience;
    if (!shared->asking) {
      shared->wanted = true;
      shared->wake.notify_all();
    }
    if (patience.count() > 0) shared->wake.wait_until(guard, deadline, [&] { return shared->answers >= needed; });
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
    std::chrono::steady_clock::time_point askedAt;     // when the question under way began
    std::chrono::steady_clock::time_point answeredAt;  // when `answer` came

    void run(const char* name) {
      nameCurrentThread(name);
      std::unique_lock<std::mutex> guard(mutex);
      for (;;) {
        wake.wait(guard, [&] { return wanted || stopping; });
        if (stopping) break;
        wanted = false;
        asking = true;
        askedAt = std::chrono::steady_clock::now();
        guard.unlock();
        Answer fresh = ask();
        guard.lock();
        asking = false;
        answer = std::move(fresh);
        answeredAt = std::chrono::steady_clock::now();
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
