#include "extension/plugin_entry.h"

#include <chrono>

#include "bridge/bridge_directory.h"
#include "bridge/bridge_owner.h"
#include "bridge/deferred_entries.h"
#include "bridge/report_files.h"
#include "extension/timer_tick.h"

namespace quillmere {

reaper_plugin_info_t* pluginInfo = nullptr;

namespace {

void* timerFacility() {
  return reinterpret_cast<void*>(&timerCallback);
}

int load(reaper_plugin_info_t* record) {
  if (record->caller_version != kPluginInterfaceVersion || record->Register == nullptr ||
      record->GetFunc == nullptr) {
    return 0;
  }
  if (REAPERAPI_LoadAPI(record->GetFunc) != 0) return 0;
  fixBridgeDirectory();
  forgetDeferredEntries();
  if (!ensureDirectories()) {
    releaseBridgeDirectory();
    return 0;
  }

  pluginInfo = record;
  // While another process serves this bridge, this one touches nothing in it and leaves the
  // heartbeat to the owner; its timer tries again every second.
  if (takeOverBridge()) writeHeartbeat();
  const SteadyTime now = std::chrono::steady_clock::now();
  lastQueuePoll = now;
  lastHeartbeat = now;
  if (record->Register("timer", timerFacility()) != 0) return 1;
  leaveBridge();
  pluginInfo = nullptr;
  releaseBridgeDirectory();
  return 0;
}

void unload() {
  if (pluginInfo != nullptr) pluginInfo->Register("-timer", timerFacility());
  leaveBridge();
  pluginInfo = nullptr;
  releaseBridgeDirectory();
}

}  // namespace

}  // namespace quillmere

extern "C" int ReaperPluginEntry(void* /*hInstance*/, reaper_plugin_info_t* rec) {
  try {
    if (rec != nullptr) return quillmere::load(rec);
    quillmere::unload();
  } catch (...) {
    // Nothing may unwind into the host: a load that throws is a refused load.
    quillmere::leaveBridge();
    quillmere::pluginInfo = nullptr;
  }
  return 0;
}
