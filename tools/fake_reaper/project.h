// The stand-in's in-memory project: tracks, items, takes and the undo history.
#pragma once

#include <memory>
#include <string>
#include <vector>

class PCM_source;

namespace fake_reaper {

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
  bool journaled = false;  // written to the placement journal, when there is one
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

struct Project {
  std::vector<std::unique_ptr<Track>> tracks;
  double cursor = 0.0;
  std::string projectFile;  // what EnumProjects writes; empty for a project never saved
  std::string mediaPath;    // what GetProjectPathEx writes
  bool dirty = false;
  int refreshHolds = 0;  // PreventUIRefresh balance
  int arrangeUpdates = 0;
  int openUndoBlocks = 0;
  std::vector<UndoBlock> undoHistory;  // closed blocks, oldest first

  Track& addTrack(bool selected = false);
  Track* trackByNumber(int number);
  std::vector<Item*> allItems() const;
  // The take that holds `source`, or null.
  Take* holderOf(const PCM_source* source) const;
};

}  // namespace fake_reaper
