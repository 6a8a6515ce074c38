// A stand-in for the host: serves the 23 host functions over an in-memory project, records every
// call, can be told to fail any call or to lack any name, and notes every host rule an extension
// breaks. Host handles are pointers to the records below, cast to the opaque host types.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/host_api.h"

namespace fake_reaper {

struct Source {
  std::string path;
  double seconds = 0.0;  // the file's true length
};

struct Take {
  PCM_source* source = nullptr;  // owned by the take
  std::string name;
  double startOffset = 0.0;
  double playRate = 1.0;
  double volume = 1.0;
};

struct Track;

struct Item {
  Track* track = nullptr;
  double position = 0.0;
  double length = 0.0;
  bool selected = false;
  std::vector<std::unique_ptr<Take>> takes;
};

struct Track {
  int number = 0;  // 1-based
  bool selected = false;
  std::vector<std::unique_ptr<Item>> items;
};

struct UndoBlock {
  std::string label;
  int flags = 0;
};

struct Call {
  std::string name;  // the host function's name
  std::string args;  // its arguments, rendered for reading ("P_SOURCE", "D_LENGTH=20", ...)
};

// What GetMediaSourceLength reports.
enum class SourceLength { FromFile, QuarterNotes, NotANumber, Zero };

class Host {
 public:
  // The one instance the host functions serve.
  static Host& instance();

  // A new, empty project: no tracks, cursor 0, unsaved, nothing recorded, no knobs set.
  // Frees every source still alive.
  void reset();

  Track& addTrack(bool selected = false);
  Track* trackByNumber(int number);
  std::vector<Item*> allItems() const;

  // The project.
  std::vector<std::unique_ptr<Track>> tracks;
  double cursor = 0.0;
  std::string projectFile;  // what EnumProjects writes; empty for a project never saved
  std::string mediaPath;    // what GetProjectPathEx writes
  bool dirty = false;
  int refreshHolds = 0;  // PreventUIRefresh balance
  int arrangeUpdates = 0;
  int openUndoBlocks = 0;
  std::vector<UndoBlock> undoHistory;  // closed blocks, oldest first

  // Knobs, per test.
  // These functions answer null, false or 0 and change nothing; a void one is only recorded. An
  // entry "Name PARAM" (e.g. "SetMediaItemInfo_Value D_LENGTH") fails that parameter alone.
  std::set<std::string> failing;
  std::set<std::string> missing;  // GetFunc answers null for these names
  SourceLength sourceLength = SourceLength::FromFile;
  bool takesComeWithSource = false;  // AddTakeToMediaItem gives a take that already holds one
  int registerAnswer = 1;            // what Register answers

  // What happened.
  std::vector<Call> calls;
  std::vector<std::string> callNames() const;
  std::vector<std::string> trace() const;  // "Name args" per call, or "Name" when it had none
  std::vector<std::string> violations;     // host rules broken, in words
  std::vector<std::pair<std::string, void*>> registrations;  // every Register call, in order
  void (*timer)() = nullptr;  // the registered "timer", until "-timer" removes it

  // Sources alive now (created or handed to a take, not yet destroyed).
  int liveSources() const;
  // Sources alive now that no take holds: a leak once the extension's call has returned.
  int strayOwnedSources() const;
  // Adds a violation for every rule an ended operation must have kept: refresh balanced, undo
  // blocks closed, no stray source. Returns the violations, all of them.
  const std::vector<std::string>& checkSettled();

  // A host record whose Register and GetFunc reach this instance.
  reaper_plugin_info_t record{0x20E, nullptr, nullptr, nullptr};

  // Tracks the host's own source objects; exposed for the functions' implementation. A destroyed
  // source stays here until reset, so no address is reused and a second destroy is noticed.
  std::vector<std::unique_ptr<Source>> sources;
  std::set<const void*> destroyedSources;

 private:
  Host();
};

// The host's lookup callback: the named function, or null (unknown, or listed in `missing`).
void* getFunc(const char* name);

// A readable account of the project: tracks, items with takes, undo history, counters.
std::string describeProject(const Host& host);

// Writes a 16-bit mono sine tone WAV of exactly `seconds` (rounded to whole frames).
bool writeTestTone(const std::string& path, double seconds, int sampleRate = 48000);

}  // namespace fake_reaper
