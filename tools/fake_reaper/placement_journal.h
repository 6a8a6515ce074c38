// A record, outside the stand-in's memory, of every placement the extension committed: a process
// killed at any moment leaves in the file exactly the placements it had committed.
#pragma once

#include <string>

#include "fake_reaper/project.h"

namespace fake_reaper {

class PlacementJournal {
 public:
  // Appends to `path`, creating it; `error()` says why when it cannot be opened.
  explicit PlacementJournal(const std::string& path);
  ~PlacementJournal();
  PlacementJournal(const PlacementJournal&) = delete;
  PlacementJournal& operator=(const PlacementJournal&) = delete;

  bool isOpen() const { return fd_ >= 0; }
  const std::string& error() const { return error_; }

  // Writes one line per take of every item of `project` not journaled before, the take's name,
  // and marks the item journaled. Each line reaches the file by its own write, before this returns.
  void recordNewItems(Project& project);

 private:
  int fd_ = -1;
  std::string error_;
};

}  // namespace fake_reaper
