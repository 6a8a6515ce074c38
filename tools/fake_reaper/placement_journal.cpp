#include "fake_reaper/placement_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fake_reaper {

PlacementJournal::PlacementJournal(const std::string& path) {
  // Unbuffered on purpose: nothing may wait in this process's memory for a kill to lose.
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (fd_ < 0) error_ = "cannot open " + path + ": " + std::strerror(errno);
}

PlacementJournal::~PlacementJournal() {
  if (fd_ >= 0) ::close(fd_);
}

void PlacementJournal::recordNewItems(Project& project) {
  if (fd_ < 0) return;
  // A flag on the item, not its address: a rolled-back item's memory may hold the next one.
  for (Item* item : project.allItems()) {
    if (item->journaled) continue;
    item->journaled = true;
    for (const auto& take : item->takes) {
      const std::string line = take->name + "\n";
      ssize_t written = 0;
      do {
        written = ::write(fd_, line.data(), line.size());
      } while (written < 0 && errno == EINTR);
    }
  }
}

}  // namespace fake_reaper
