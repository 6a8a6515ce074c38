#include "bridge/deferred_entries.h"

#include <algorithm>
#include <bitset>
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
  // A poll asks about every name it lists; most are not set aside, and this answers them without
  // a lookup. A set bit only says "perhaps".
  std::bitset<4096> perhaps;
} memo;

std::size_t bitOf(DirectoryListing::Name name) {
  // Queue names mostly differ towards their end, just before the suffix.
  std::size_t hash = name.size();
  const std::size_t tail = std::min<std::size_t>(name.size(), 16);
  for (std::size_t i = name.size() - tail; i < name.size(); ++i)
    hash = hash * 31 + static_cast<std::size_t>(name[i]);
  return hash % memo.perhaps.size();
}

void rebuildBits() {
  memo.perhaps.reset();
  for (const auto& entry : memo.until) memo.perhaps.set(bitOf(entry.first));
}

bool holdsFolder(const fs::path& folder) {
  return memo.folder == folder.native();
}

}  // namespace

bool isDeferred(const fs::path& folder, DirectoryListing::Name name, Clock::time_point now) {
  if (memo.until.empty() || !memo.perhaps.test(bitOf(name)) || !holdsFolder(folder)) return false;
  const auto entry = memo.until.find(name);
  return entry != memo.until.end() && now < entry->second;
}

void deferEntry(const fs::path& folder, DirectoryListing::Name name, Clock::time_point now) {
  if (!holdsFolder(folder)) {
    memo.until.clear();
    memo.perhaps.reset();
    memo.folder = folder.native();
  }
  if (memo.until.size() >= kMostDeferredEntries && memo.until.find(name) == memo.until.end()) {
    for (auto entry = memo.until.begin(); entry != memo.until.end();)
      entry = now < entry->second ? std::next(entry) : memo.until.erase(entry);
    rebuildBits();
    if (memo.until.size() >= kMostDeferredEntries) return;
  }
  memo.until.insert_or_assign(fs::path::string_type(name), now + kDeferral);
  memo.perhaps.set(bitOf(name));
}

void forgetDeferredEntries() {
  memo.until.clear();
  memo.perhaps.reset();
  memo.folder.clear();
}

}  // namespace quillmere
