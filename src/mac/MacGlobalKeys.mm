#include "mac/MacGlobalKeys.h"

#include <Carbon/Carbon.h>

#include <string_view>

namespace lumerix::mac {

namespace {

// The keys' virtual key codes: where the key sits on an ANSI keyboard,
// which is how hot keys are registered whatever the layout.
struct KeyCode {
  std::string_view keysym;
  UInt32 code;
};
constexpr KeyCode kKeyCodes[] = {
    {"Right", kVK_RightArrow}, {"Left", kVK_LeftArrow}, {"period", kVK_ANSI_Period}, {"comma", kVK_ANSI_Comma},
    {"f", kVK_ANSI_F},         {"1", kVK_ANSI_1},       {"2", kVK_ANSI_2},           {"h", kVK_ANSI_H},
    {"l", kVK_ANSI_L},
    {"s", kVK_ANSI_S},
};

constexpr OSType kSignature = 'LmrX';
MacGlobalKeys* running = nullptr;

UInt32 carbonModifiers(Chord chord) {
  UInt32 mods = 0;
  if (chord.mods & Chord::ctrl) mods |= controlKey;
  if (chord.mods & Chord::alt) mods |= optionKey;
  if (chord.mods & Chord::shift) mods |= shiftKey;
  if (chord.mods & Chord::super) mods |= cmdKey;
  return mods;
}

}  // namespace

struct MacGlobalKeys::Impl {
  Fired fired;
  Refused refusedKeys;
  EventHandlerRef handler = nullptr;
  bool enabled = false;
  std::vector<EventHotKeyRef> registered;
  std::vector<const GlobalAction*> refusedNow;

  void release() {
    for (EventHotKeyRef ref : registered) UnregisterEventHotKey(ref);
    registered.clear();
    refusedNow.clear();
  }

  static OSStatus onHotKey(EventHandlerCallRef, EventRef event, void* self) {
    EventHotKeyID id{};
    if (GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr, sizeof id, nullptr, &id) !=
            noErr ||
        id.signature != kSignature) {
      return eventNotHandledErr;
    }
    const auto actions = globalActions();
    if (id.id >= actions.size()) return eventNotHandledErr;
    static_cast<Impl*>(self)->fired(actions[id.id]);
    return noErr;
  }
};

MacGlobalKeys::MacGlobalKeys(Fired fired, Refused refused) : impl(std::make_unique<Impl>()) {
  impl->fired = std::move(fired);
  impl->refusedKeys = std::move(refused);
  const EventTypeSpec pressed{kEventClassKeyboard, kEventHotKeyPressed};
  InstallApplicationEventHandler(&Impl::onHotKey, 1, &pressed, impl.get(), &impl->handler);
  running = this;
}

MacGlobalKeys* MacGlobalKeys::current() {
  return running;
}

MacGlobalKeys::~MacGlobalKeys() {
  if (running == this) running = nullptr;
  impl->release();
  if (impl->handler) RemoveEventHandler(impl->handler);
}

void MacGlobalKeys::apply(const GlobalKeySettings& settings) {
  impl->release();
  impl->enabled = settings.enabled && impl->handler;
  if (!impl->enabled) return;
  const auto actions = globalActions();
  for (UInt32 i = 0; i < actions.size(); ++i) {
    const KeyCode* key = nullptr;
    for (const KeyCode& k : kKeyCodes) {
      if (k.keysym == actions[i].keysym) key = &k;
    }
    EventHotKeyRef ref = nullptr;
    // Another application's hot key on the same keys is refused here, at once.
    if (!key || RegisterEventHotKey(key->code, carbonModifiers(settings.chord), EventHotKeyID{kSignature, i},
                                    GetApplicationEventTarget(), 0, &ref) != noErr) {
      impl->refusedNow.push_back(&actions[i]);
      continue;
    }
    impl->registered.push_back(ref);
  }
  if (!impl->refusedNow.empty() && impl->refusedKeys) impl->refusedKeys(impl->refusedNow, settings.chord);
}

GlobalKeysState MacGlobalKeys::state() const {
  if (!impl->handler) return GlobalKeysState::unavailable;
  return impl->enabled ? GlobalKeysState::active : GlobalKeysState::off;
}

const std::vector<const GlobalAction*>& MacGlobalKeys::refused() const {
  return impl->refusedNow;
}

}  // namespace lumerix::mac
