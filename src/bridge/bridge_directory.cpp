#include "bridge/bridge_directory.h"

#include <cstdlib>
#include <system_error>

namespace fs = std::filesystem;

namespace quillmere {

namespace {

constexpr const char* kQueueNames[] = {"requests",  "claimed", "responses",
                                       "completed", "failed",  "acknowledged"};

}  // namespace

fs::path bridgeDirectory() {
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return {};
  return fs::path(home) / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
}

fs::path queueDirectory(const char* name) {
  return bridgeDirectory() / name;
}

bool ensureDirectories() {
  std::error_code error;
  for (const char* name : kQueueNames) {
    fs::create_directories(queueDirectory(name), error);
    if (error) return false;
  }
  return true;
}

}  // namespace quillmere
