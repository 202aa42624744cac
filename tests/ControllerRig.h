#pragma once

#include <memory>

#include "ControllerFakes.h"
#include "FakeSystem.h"
#include "SyncTestSupport.h"
#include "app/Controller.h"

namespace lumerix::test {

// The world a controller runs in, for a test: a clock that moves when told,
// settings in memory, a host and dialogs that record what they were asked,
// a source that says what it is told, and a folder for files.
struct ControllerRig {
  FakeSystem clock;
  MemorySettingsStore settings;
  RecordingHost host;
  RecordingDialogs dialogs;
  std::unique_ptr<ScriptedSource> owned = std::make_unique<ScriptedSource>();
  ScriptedSource* source = owned.get();
  std::unique_ptr<Controller> c;
  TempDir dir;

  ControllerServices services() { return {clock, settings, host, dialogs, dialogs}; }
};

}  // namespace lumerix::test
