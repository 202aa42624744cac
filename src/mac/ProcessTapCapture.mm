#include "mac/ProcessTapCapture.h"

#import <Foundation/Foundation.h>
#import <CoreAudio/AudioHardware.h>
#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

#include "platform/PortableSpeech.h"
#include "util/Thread.h"

namespace lumerix {

// Blocks of sound from the IO callback, lock-free: one writer (the
// real-time callback), one reader (the capture thread). A full ring drops
// the newest block rather than make the callback wait.
struct ProcessTapCapture::Ring {
  static constexpr std::size_t slots = 64;
  static constexpr std::size_t slotSamples = 4096;
  struct Slot {
    uint64_t hostTime = 0;  // of the block's first sample
    uint32_t count = 0;
    std::array<float, slotSamples> samples{};
  };
  std::array<Slot, slots> slot{};
  std::atomic<std::size_t> written{0};
  std::atomic<std::size_t> read{0};
  std::atomic<uint64_t> lastCall{0};  // host time of the last callback
};

namespace {

constexpr double liveTimeout = 2.0;  // a device that stops calling back is gone
const AudioObjectPropertyElement mainElement = kAudioObjectPropertyElementMain;

AudioObjectPropertyAddress address(AudioObjectPropertySelector selector,
                                   AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal) {
  return AudioObjectPropertyAddress{selector, scope, mainElement};
}

template <class T>
bool property(AudioObjectID object, AudioObjectPropertySelector selector, T& value,
              AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal) {
  const AudioObjectPropertyAddress a = address(selector, scope);
  UInt32 size = sizeof(T);
  return AudioObjectGetPropertyData(object, &a, 0, nullptr, &size, &value) == noErr && size == sizeof(T);
}

template <class T>
std::vector<T> listProperty(AudioObjectID object, AudioObjectPropertySelector selector,
                            AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal) {
  const AudioObjectPropertyAddress a = address(selector, scope);
  UInt32 size = 0;
  if (AudioObjectGetPropertyDataSize(object, &a, 0, nullptr, &size) != noErr || size < sizeof(T)) return {};
  std::vector<T> out(size / sizeof(T));
  if (AudioObjectGetPropertyData(object, &a, 0, nullptr, &size, out.data()) != noErr) return {};
  out.resize(size / sizeof(T));
  return out;
}

// nil when the object has no such string.
NSString* stringProperty(AudioObjectID object, AudioObjectPropertySelector selector) {
  CFStringRef value = nullptr;
  if (!property(object, selector, value) || !value) return nil;
  return (__bridge_transfer NSString*)value;
}

// The TV app's processes: those playing sound if any does (its sound may
// come from a helper with a bundle identifier of its own, so the whole
// family counts), else all of them, as when playback is paused. Empty when
// the app has no process the audio system knows.
NSArray<NSNumber*>* tvProcesses() {
  NSMutableArray<NSNumber*>* family = [NSMutableArray array];
  NSMutableArray<NSNumber*>* playing = [NSMutableArray array];
  for (AudioObjectID process : listProperty<AudioObjectID>(kAudioObjectSystemObject,
                                                           kAudioHardwarePropertyProcessObjectList)) {
    NSString* bundle = stringProperty(process, kAudioProcessPropertyBundleID);
    if (!bundle || !([bundle isEqualToString:@"com.apple.TV"] || [bundle hasPrefix:@"com.apple.TV."])) continue;
    [family addObject:@(process)];
    UInt32 running = 0;
    if (property(process, kAudioProcessPropertyIsRunningOutput, running) && running) [playing addObject:@(process)];
  }
  return playing.count ? playing : family;
}

// What the output device adds after the tap: the player's position follows
// the loudspeaker, the tap hears the sound before it gets there.
double outputLatency(AudioObjectID device) {
  Float64 rate = 0;
  if (!property(device, kAudioDevicePropertyNominalSampleRate, rate) || rate <= 0) return 0;
  UInt32 latency = 0, safety = 0, buffer = 0, stream = 0;
  property(device, kAudioDevicePropertyLatency, latency, kAudioObjectPropertyScopeOutput);
  property(device, kAudioDevicePropertySafetyOffset, safety, kAudioObjectPropertyScopeOutput);
  property(device, kAudioDevicePropertyBufferFrameSize, buffer, kAudioObjectPropertyScopeOutput);
  const auto streams = listProperty<AudioStreamID>(device, kAudioDevicePropertyStreams, kAudioObjectPropertyScopeOutput);
  if (!streams.empty()) property(streams.front(), kAudioStreamPropertyLatency, stream);
  return double(latency + safety + buffer + stream) / rate;
}

double secondsPerTick() {
  mach_timebase_info_data_t base{};
  mach_timebase_info(&base);
  return base.denom ? double(base.numer) / double(base.denom) / 1e9 : 1e-9;
}

// The real-time side: mix the tap's channels to one and copy them out.
// Nothing here locks, allocates or logs.
OSStatus heard(AudioObjectID, const AudioTimeStamp* now, const AudioBufferList* input, const AudioTimeStamp* inputTime,
               AudioBufferList*, const AudioTimeStamp*, void* context) {
  auto* ring = static_cast<ProcessTapCapture::Ring*>(context);
  if (!ring) return noErr;
  ring->lastCall.store(now ? now->mHostTime : mach_absolute_time(), std::memory_order_relaxed);
  if (!input || input->mNumberBuffers == 0) return noErr;
  const std::size_t w = ring->written.load(std::memory_order_relaxed);
  if (w - ring->read.load(std::memory_order_acquire) >= ProcessTapCapture::Ring::slots) return noErr;
  auto& slot = ring->slot[w % ProcessTapCapture::Ring::slots];
  // The tap is the aggregate's last input stream; any before it belong to
  // the output device (a headset's microphone, say), which is not ours to hear.
  const AudioBuffer& buf = input->mBuffers[input->mNumberBuffers - 1];
  if (!buf.mData || buf.mNumberChannels == 0) return noErr;
  const UInt32 channels = buf.mNumberChannels;
  const UInt32 frames = std::min<UInt32>(buf.mDataByteSize / (sizeof(float) * channels),
                                         UInt32(ProcessTapCapture::Ring::slotSamples));
  if (frames == 0) return noErr;
  const auto* data = static_cast<const float*>(buf.mData);
  for (UInt32 i = 0; i < frames; ++i) {
    float sum = 0;
    for (UInt32 c = 0; c < channels; ++c) sum += data[i * channels + c];
    slot.samples[i] = sum / float(channels);
  }
  const bool timed = inputTime && (inputTime->mFlags & kAudioTimeStampHostTimeValid);
  slot.hostTime = timed ? inputTime->mHostTime : (now ? now->mHostTime : mach_absolute_time());
  slot.count = frames;
  ring->written.store(w + 1, std::memory_order_release);
  return noErr;
}

// The tap, its aggregate device and the IO callback, made and undone on
// the capture thread.
struct Tap {
  AudioObjectID tap = kAudioObjectUnknown;
  AudioObjectID device = kAudioObjectUnknown;
  AudioDeviceIOProcID proc = nullptr;
  double rate = 0;
  double latency = 0;

  bool open(ProcessTapCapture::Ring& ring) API_AVAILABLE(macos(14.2)) {
    AudioObjectID output = kAudioObjectUnknown;
    if (!property(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice, output) ||
        output == kAudioObjectUnknown)
      return false;
    NSString* outputUID = stringProperty(output, kAudioDevicePropertyDeviceUID);
    if (!outputUID) return false;
    latency = outputLatency(output);

    NSArray<NSNumber*>* processes = tvProcesses();
    CATapDescription* description =
        processes.count ? [[CATapDescription alloc] initMonoMixdownOfProcesses:processes]
                        : [[CATapDescription alloc] initMonoGlobalTapButExcludeProcesses:@[]];
    description.name = @"Lumerix listening";
    description.privateTap = YES;
    description.muteBehavior = CATapUnmuted;
    if (AudioHardwareCreateProcessTap(description, &tap) != noErr || tap == kAudioObjectUnknown) return false;
    NSString* tapUID = stringProperty(tap, kAudioTapPropertyUID);
    AudioStreamBasicDescription format{};
    if (!tapUID || !property(tap, kAudioTapPropertyFormat, format) || format.mSampleRate <= 0 ||
        format.mFormatID != kAudioFormatLinearPCM || !(format.mFormatFlags & kAudioFormatFlagIsFloat) ||
        format.mBitsPerChannel != 32)
      return false;
    rate = format.mSampleRate;

    // The output device clocks the aggregate; the tap is its only input.
    NSDictionary* aggregate = @{
      @kAudioAggregateDeviceNameKey : @"Lumerix listening",
      @kAudioAggregateDeviceUIDKey : [NSUUID UUID].UUIDString,
      @kAudioAggregateDeviceIsPrivateKey : @YES,
      @kAudioAggregateDeviceMainSubDeviceKey : outputUID,
      @kAudioAggregateDeviceSubDeviceListKey : @[ @{@kAudioSubDeviceUIDKey : outputUID} ],
      @kAudioAggregateDeviceTapAutoStartKey : @YES,
      @kAudioAggregateDeviceTapListKey : @[ @{@kAudioSubTapUIDKey : tapUID, @kAudioSubTapDriftCompensationKey : @YES} ],
    };
    if (AudioHardwareCreateAggregateDevice((__bridge CFDictionaryRef)aggregate, &device) != noErr ||
        device == kAudioObjectUnknown)
      return false;
    if (AudioDeviceCreateIOProcID(device, &heard, &ring, &proc) != noErr || !proc) return false;
    return AudioDeviceStart(device, proc) == noErr;
  }

  void close() API_AVAILABLE(macos(14.2)) {
    if (device != kAudioObjectUnknown && proc) {
      AudioDeviceStop(device, proc);
      AudioDeviceDestroyIOProcID(device, proc);
    }
    if (device != kAudioObjectUnknown) AudioHardwareDestroyAggregateDevice(device);
    if (tap != kAudioObjectUnknown) AudioHardwareDestroyProcessTap(tap);
    *this = Tap{};
  }
};

}  // namespace

ProcessTapCapture::ProcessTapCapture(const Clock& clock) : clock_(clock), ring_(std::make_unique<Ring>()) {}

ProcessTapCapture::~ProcessTapCapture() {
  stop();
}

void ProcessTapCapture::settle(CaptureState s) {
  {
    std::lock_guard lock(mutex_);
    answered_ = true;
  }
  state_ = s;
  settled_.notify_all();
}

bool ProcessTapCapture::start() noexcept {
  if (@available(macOS 14.2, *)) {
  } else {
    state_ = CaptureState::unsupported;
    return false;
  }
  if (thread_.joinable() && state_.load() == CaptureState::running) return true;
  stop();
  {
    std::lock_guard lock(mutex_);
    answered_ = false;
  }
  stopping_ = false;
  state_ = CaptureState::running;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (...) {
    state_ = CaptureState::noServer;
    return false;
  }
  // Making a tap takes the system a moment; the first use also asks the
  // user, and that answer is not waited for (a refused tap plays silence).
  std::unique_lock lock(mutex_);
  settled_.wait_for(lock, std::chrono::milliseconds(300), [this] { return answered_; });
  lock.unlock();
  return state_.load() == CaptureState::running;
}

void ProcessTapCapture::stop() noexcept {
  stopping_ = true;
  if (thread_.joinable()) thread_.join();
  queue_.clear();
  state_ = CaptureState::idle;
}

void ProcessTapCapture::takeFrames(std::vector<HeardFrame>& out) noexcept {
  queue_.takeAll(out);
}

void ProcessTapCapture::run() noexcept {
  nameCurrentThread("lumerix-listen");
  if (@available(macOS 14.2, *)) {
    @autoreleasepool {
      Ring& ring = *ring_;
      ring.written = 0;
      ring.read = 0;
      ring.lastCall = mach_absolute_time();
      Tap tap;
      if (!tap.open(ring)) {
        tap.close();
        settle(CaptureState::noServer);
        return;
      }
      settle(CaptureState::running);
      const double tick = secondsPerTick();
      sound::Resampler resampler(tap.rate);
      sound::PortableSpeech detector;
      sound::FrameCutter cutter;
      std::vector<float> samples;
      std::vector<HeardFrame> frames;
      while (!stopping_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        for (std::size_t r = ring.read.load(); r != ring.written.load(std::memory_order_acquire); ++r) {
          const Ring::Slot& slot = ring.slot[r % Ring::slots];
          const uint64_t nowTicks = mach_absolute_time();
          const double age = nowTicks > slot.hostTime ? double(nowTicks - slot.hostTime) * tick
                                                      : -double(slot.hostTime - nowTicks) * tick;
          samples.clear();
          resampler.push(slot.samples.data(), slot.count, samples);
          cutter.push(samples.data(), samples.size(), clock_.uptime() - age + tap.latency, detector, frames);
          ring.read.store(r + 1, std::memory_order_release);
        }
        if (!frames.empty()) {
          try {
            queue_.push(frames);
          } catch (...) {  // out of memory: these frames are lost, the next ones are not
          }
          frames.clear();
        }
        const uint64_t last = ring.lastCall.load(std::memory_order_relaxed);
        const uint64_t nowTicks = mach_absolute_time();
        if (nowTicks > last && double(nowTicks - last) * tick > liveTimeout) {
          settle(CaptureState::lost);
          break;
        }
      }
      tap.close();
    }
  }
}

}  // namespace lumerix
