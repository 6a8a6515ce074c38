#include "bridge/bridge_directory.h"

#include <system_error>

#include "platform/utf8_path.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

constexpr const char* kQueueNames[] = {"requests",  "claimed", "responses",
                                       "completed", "failed",  "acknowledged"};

}  // namespace

fs::path bridgeDirectory() {
  const fs::path home = homeDirectory();
  if (home.empty()) return {};
  return home / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
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
