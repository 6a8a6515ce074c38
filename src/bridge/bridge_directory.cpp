#include "bridge/bridge_directory.h"

#include <optional>
#include <system_error>

#include "platform/utf8_path.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

constexpr const char* kQueueNames[] = {"requests",  "claimed", "responses",
                                       "completed", "failed",  "acknowledged"};

std::optional<fs::path> fixedDirectory;

}  // namespace

fs::path locateBridgeDirectory() {
  std::error_code error;
  const fs::path home = homeDirectory();
  fs::path folder =
      home.empty()
          ? fs::current_path(error)
          : fs::absolute(home / "Library" / "Application Support" / "Quillmere" / "reaper-bridge",
                         error);
  if (error) return {};
  return folder;
}

void fixBridgeDirectory() {
  fixedDirectory = locateBridgeDirectory();
}

void releaseBridgeDirectory() {
  fixedDirectory.reset();
}

fs::path bridgeDirectory() {
  return fixedDirectory ? *fixedDirectory : locateBridgeDirectory();
}

fs::path queueDirectory(const char* name) {
  return bridgeDirectory() / name;
}

bool ensureDirectories() {
  const fs::path bridge = bridgeDirectory();
  if (bridge.empty()) return false;
  std::error_code error;
  for (const char* name : kQueueNames) {
    fs::create_directories(bridge / name, error);
    if (error) return false;
  }
  return true;
}

}  // namespace quillmere
