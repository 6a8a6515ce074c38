#include "bridge/deferred_entries.h"

#include <map>

namespace fs = std::filesystem;

namespace quillmere {

namespace {

using Clock = std::chrono::steady_clock;

struct Memo {
  fs::path::string_type folder;
  // Each name with the moment it may be examined again; ordered, so a lookup takes a name's
  // view without building a string.
  std::map<fs::path::string_type, Clock::time_point, std::less<>> until;
} memo;

bool holdsFolder(const fs::path& folder) {
  return memo.folder == folder.native();
}

}  // namespace

bool isDeferred(const fs::path& folder, DirectoryListing::Name name, Clock::time_point now) {
  if (memo.until.empty() || !holdsFolder(folder)) return false;
  const auto entry = memo.until.find(name);
  return entry != memo.until.end() && now < entry->second;
}

void deferEntry(const fs::path& folder, DirectoryListing::Name name, Clock::time_point now) {
  if (!holdsFolder(folder)) {
    memo.until.clear();
    memo.folder = folder.native();
  }
  if (memo.until.size() >= kMostDeferredEntries && memo.until.find(name) == memo.until.end()) {
    for (auto entry = memo.until.begin(); entry != memo.until.end();)
      entry = now < entry->second ? std::next(entry) : memo.until.erase(entry);
    if (memo.until.size() >= kMostDeferredEntries) return;
  }
  memo.until.insert_or_assign(fs::path::string_type(name), now + kDeferral);
}

void forgetDeferredEntries() {
  memo.until.clear();
  memo.folder.clear();
}

}  // namespace quillmere
