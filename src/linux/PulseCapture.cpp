#include "linux/PulseCapture.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop.h>
#include <pulse/stream.h>

#include <chrono>
#include <vector>

#include "linux/WebRtcSpeech.h"
#include "util/Thread.h"

namespace lumerix {

// One connection to the server, alive on the capture thread only.
struct PulseSession {
  PulseCapture& owner;
  pa_mainloop* loop;
  pa_context* context = nullptr;
  pa_stream* stream = nullptr;
  bool running = false;  // the stream delivered its first answer
  bool over = false;     // the thread should leave its loop
  WebRtcSpeech detector;
  sound::FrameCutter cutter;
  std::vector<float> samples;
  std::vector<HeardFrame> frames;

  PulseSession(PulseCapture& o, pa_mainloop* l) : owner(o), loop(l) {}

  void fail(const char* what, int error) {
    std::string text = what;
    if (error) text += std::string(": ") + pa_strerror(error);
    owner.settle(running ? CaptureState::lost : CaptureState::noServer, text);
    over = true;
  }

  bool begin() {
    context = pa_context_new(pa_mainloop_get_api(loop), "Lumerix");
    if (!context) return false;
    pa_context_set_state_callback(context, &PulseSession::contextChanged, this);
    // Starting a server is the desktop's business: a user without one hears
    // that there is none, instead of finding one started behind their back.
    return pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
  }

  void end() {
    if (stream) {
      pa_stream_set_state_callback(stream, nullptr, nullptr);
      pa_stream_set_read_callback(stream, nullptr, nullptr);
      pa_stream_disconnect(stream);
      pa_stream_unref(stream);
      stream = nullptr;
    }
    if (context) {
      pa_context_set_state_callback(context, nullptr, nullptr);
      pa_context_disconnect(context);
      pa_context_unref(context);
      context = nullptr;
    }
  }

  static void contextChanged(pa_context* c, void* self) {
    auto& s = *static_cast<PulseSession*>(self);
    switch (pa_context_get_state(c)) {
      case PA_CONTEXT_READY: s.openStream(); break;
      case PA_CONTEXT_FAILED:
      case PA_CONTEXT_TERMINATED: s.fail("the sound server", pa_context_errno(c)); break;
      default: break;
    }
  }

  void openStream() {
    const pa_sample_spec format{PA_SAMPLE_S16NE, uint32_t(sound::sampleRate), 1};
    stream = pa_stream_new(context, "Listening for speech", &format, nullptr);
    if (!stream) return fail("the record stream", pa_context_errno(context));
    pa_stream_set_state_callback(stream, &PulseSession::streamChanged, this);
    pa_stream_set_read_callback(stream, &PulseSession::readable, this);
    // Blocks of 40 ms: few enough wake-ups to stay cheap, and the stamps do
    // not depend on how the sound is cut.
    pa_buffer_attr attr{};
    attr.maxlength = uint32_t(-1);
    attr.tlength = attr.prebuf = attr.minreq = uint32_t(-1);
    attr.fragsize = uint32_t(sound::frameSamples * 4 * sizeof(int16_t));
    const auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE |
                                         PA_STREAM_INTERPOLATE_TIMING);
    if (pa_stream_connect_record(stream, owner.options_.source.c_str(), &attr, flags) < 0)
      fail("the record stream", pa_context_errno(context));
  }

  static void streamChanged(pa_stream* st, void* self) {
    auto& s = *static_cast<PulseSession*>(self);
    switch (pa_stream_get_state(st)) {
      case PA_STREAM_READY:
        if (!s.detector.ready()) return s.fail("the speech detector would not start", 0);
        s.running = true;
        s.owner.settle(CaptureState::running);
        break;
      case PA_STREAM_FAILED:
      case PA_STREAM_TERMINATED: s.fail("the record stream", pa_context_errno(s.context)); break;
      default: break;
    }
  }

  static void readable(pa_stream* st, size_t, void* self) { static_cast<PulseSession*>(self)->read(st); }

  void read(pa_stream* st) {
    frames.clear();
    while (pa_stream_readable_size(st) > 0) {
      const void* data = nullptr;
      size_t bytes = 0;
      if (pa_stream_peek(st, &data, &bytes) < 0 || bytes == 0) break;
      if (!data) {  // a hole: the count of samples starts again after it
        cutter.reset();
        pa_stream_drop(st);
        continue;
      }
      const size_t count = bytes / sizeof(int16_t);
      samples.resize(count);
      const auto* in = static_cast<const int16_t*>(data);
      for (size_t i = 0; i < count; ++i) samples[i] = float(in[i]) / 32768.0f;
      pa_stream_drop(st);
      // Once the block is taken, what the server still holds for us (and
      // the source's own delay) lies between the block's last sample and
      // now. A monitor's delay is negative: the sink shows it the sound
      // before the loudspeaker plays it, and the player's position follows
      // the loudspeaker.
      pa_usec_t latency = 0;
      int negative = 0;
      if (pa_stream_get_latency(st, &latency, &negative) < 0) {
        cutter.reset();  // no timing yet: a frame without a true stamp is worse than none
        continue;
      }
      const double delay = (negative ? -1.0 : 1.0) * double(latency) / 1e6;
      const double end = owner.clock_.uptime() - delay;
      cutter.push(samples.data(), count, end - double(count) / sound::sampleRate, detector, frames);
    }
    if (!frames.empty()) owner.queue_.push(frames);
  }
};

PulseCapture::PulseCapture(const Clock& clock, Options options) : clock_(clock), options_(std::move(options)) {}

PulseCapture::~PulseCapture() {
  stop();
}

void PulseCapture::settle(CaptureState s, const std::string& error) {
  {
    std::lock_guard lock(mutex_);
    answered_ = true;
    if (!error.empty()) error_ = error;
  }
  state_ = s;
  settled_.notify_all();
}

std::string PulseCapture::lastError() const {
  std::lock_guard lock(mutex_);
  return error_;
}

bool PulseCapture::start() noexcept {
  const CaptureState now = state_.load();
  if (thread_.joinable() && now == CaptureState::running) return true;
  stop();  // a thread that ended by itself (lost, no server) is joined first
  {
    std::lock_guard lock(mutex_);
    answered_ = false;
    error_.clear();
  }
  stopping_ = false;
  // Until the server says otherwise the capture counts as running: the
  // caller only ever learns more from state().
  state_ = CaptureState::running;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (...) {
    state_ = CaptureState::noServer;
    return false;
  }
  std::unique_lock lock(mutex_);
  settled_.wait_for(lock, std::chrono::duration<double>(options_.startWait), [this] { return answered_; });
  lock.unlock();
  return state_.load() == CaptureState::running;
}

void PulseCapture::stop() noexcept {
  stopping_ = true;
  {
    std::lock_guard lock(mutex_);
    if (loop_) pa_mainloop_wakeup(loop_);
  }
  if (thread_.joinable()) thread_.join();
  queue_.clear();
  state_ = CaptureState::idle;
}

void PulseCapture::takeFrames(std::vector<HeardFrame>& out) noexcept {
  queue_.takeAll(out);
}

void PulseCapture::run() noexcept {
  nameCurrentThread("lumerix-listen");
  pa_mainloop* loop = pa_mainloop_new();
  if (!loop) return settle(CaptureState::noServer, "no main loop");
  {
    std::lock_guard lock(mutex_);
    loop_ = loop;
  }
  {
    PulseSession session(*this, loop);
    const double deadline = clock_.uptime() + options_.connectTimeout;
    if (!session.begin()) session.fail("the sound server", session.context ? pa_context_errno(session.context) : 0);
    while (!stopping_ && !session.over) {
      // A tenth of a second at most per round, so a server that never
      // answers is given up on in time even if nothing wakes the loop.
      if (pa_mainloop_prepare(loop, 100000) < 0 || pa_mainloop_poll(loop) < 0 || pa_mainloop_dispatch(loop) < 0) {
        session.fail("the sound server's connection", 0);
        break;
      }
      if (!session.running && !session.over && clock_.uptime() > deadline) session.fail("no answer from the sound server", 0);
    }
    session.end();
  }
  std::lock_guard lock(mutex_);
  loop_ = nullptr;
  pa_mainloop_free(loop);
}

}  // namespace lumerix
