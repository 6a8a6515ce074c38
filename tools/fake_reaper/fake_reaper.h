// A stand-in for the host: serves the 23 host functions over an in-memory project, records every
// call, can be told to fail any call or to lack any name, and notes every host rule an extension
// breaks. Host handles are pointers to the project's records, cast to the opaque host types.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fake_reaper/audio_sources.h"
#include "fake_reaper/call_record.h"
#include "fake_reaper/project.h"
#include "host/host_api.h"

namespace fake_reaper {

class Host : public Project, public Faults, public CallRecord, public AudioSources {
 public:
  // The one instance the host functions serve.
  static Host& instance();

  // A new, empty project: no tracks, cursor 0, unsaved, nothing recorded, no knobs set.
  // Frees every source still alive.
  void reset();

  // Sources alive now (created or handed to a take, not yet destroyed).
  int liveSources() const;
  // Sources alive now that no take holds: a leak once the extension's call has returned.
  int strayOwnedSources() const;
  // Adds a violation for every rule an ended operation must have kept: refresh balanced, undo
  // blocks closed, no stray source. Returns the violations, all of them.
  const std::vector<std::string>& checkSettled();

  // Called by Undo_EndBlock2 once a block has closed, before that call returns to the extension.
  std::function<void(const UndoBlock&)> undoBlockClosed;

  // A host record whose Register and GetFunc reach this instance.
  reaper_plugin_info_t record{0x20E, nullptr, nullptr, nullptr};

 private:
  Host();
};

// The host's lookup callback: the named function, or null (unknown, or listed in `missing`).
void* getFunc(const char* name);

// The host's registration callback.
int registerFacility(const char* name, void* infostruct);

// A readable account of the project: tracks, items with takes, undo history, counters.
std::string describeProject(const Host& host);

// Shortest decimal text that reads back as the same double, in the classic locale.
std::string number(double value);

}  // namespace fake_reaper
