#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "quillmere_bridge/bridge_reader.h"
#include "quillmere_bridge/platform.h"

namespace bridge_tool {

constexpr std::array<const char*, 6> kQueueFolders = {"requests",  "claimed", "responses",
                                                      "completed", "failed",  "acknowledged"};

struct StatusReport {
  std::filesystem::path bridge;
  bool bridgeExists = false;
  Heartbeat heartbeat;
  std::int64_t heartbeatAgeMs = 0;
  bool alive = false;
  LockProbe owner = LockProbe::Absent;  // bridge.lock, held by the REAPER that serves the bridge
  std::optional<long> ownerPid;         // as the owner wrote it into bridge.lock
  bool secondWaiting = false;           // another REAPER holds bridge.waiting while it waits
  std::array<FolderScan, kQueueFolders.size()> folders;
  int staleRequestTemporaries = 0;    // left in "requests" by producers
  int staleExtensionTemporaries = 0;  // ".tmp" files of the extension's own writes
  int passedOver = 0;
  std::vector<std::string> stuckClaims;
  LogTail recentLog;
  std::vector<std::string> problems;  // most pressing first, each a sentence saying what to do
};

// Looks at the bridge folder; when the extension is alive and something waits, looks a second time
// a few polls later to tell a request in progress from a stuck one.
StatusReport gatherStatus(const std::filesystem::path& bridge, std::size_t logLines);

const FolderScan& folder(const StatusReport& report, const char* name);

}  // namespace bridge_tool
