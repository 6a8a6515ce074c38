#include "quillmere_bridge/status_report.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <thread>

#include "quillmere_bridge/output.h"

namespace fs = std::filesystem;

namespace bridge_tool {

namespace {

// Several polls of the extension (one per 50 ms at most, paced by a timer of about 30 Hz).
constexpr auto kSecondLookAfter = std::chrono::milliseconds(400);

std::string plural(int count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

void scanFolders(StatusReport& report) {
  for (std::size_t i = 0; i < kQueueFolders.size(); ++i) {
    report.folders[i] = scanFolder(report.bridge / kQueueFolders[i]);
  }
}

std::string ownerName(const StatusReport& report) {
  return report.ownerPid ? "process " + std::to_string(*report.ownerPid) : "a process";
}

void addHeartbeatProblem(StatusReport& report) {
  const Heartbeat& heartbeat = report.heartbeat;
  switch (heartbeat.reading) {
    case Heartbeat::Reading::Missing:
      report.problems.push_back(
          "The extension has never written bridge_state.json here: install reaper_quillmere in "
          "REAPER's UserPlugins folder and start REAPER.");
      return;
    case Heartbeat::Reading::NotAFile:
      report.problems.push_back(
          "bridge_state.json is not a regular file: remove it, and the running extension writes "
          "a new one within a second.");
      return;
    case Heartbeat::Reading::Unreadable:
      report.problems.push_back("bridge_state.json " + heartbeat.problem +
                                ": the extension is not keeping it up to date; restart REAPER.");
      return;
    case Heartbeat::Reading::Read:
      if (report.alive) return;
      if (report.owner == LockProbe::Held) {
        report.problems.push_back(
            "REAPER (" + ownerName(report) + ") holds the bridge, but its last heartbeat was " +
            ageInWords(report.heartbeatAgeMs) +
            ": it is busy (a render, a modal dialog) or hung, and requests wait in \"requests\" "
            "until it answers again; if it stays so, close that REAPER and start it again.");
      } else {
        report.problems.push_back("The extension is not running (last heartbeat " +
                                  ageInWords(report.heartbeatAgeMs) +
                                  "): start REAPER; requests wait in \"requests\" until then.");
      }
      return;
  }
}

void addOwnerProblems(StatusReport& report) {
  if (!report.secondWaiting) return;
  report.problems.push_back(
      "A second REAPER is waiting for this bridge: only the REAPER that holds bridge.lock (" +
      ownerName(report) +
      ") serves requests, and the waiting one takes over about a second after it quits; quit the "
      "REAPER you do not use.");
}

// What a folder that is not there, or not usable, means for the requests, and what to do.
std::string folderProblem(const std::string& name, const FolderScan& scan) {
  const std::string quoted = "\"" + name + "\"";
  if (scan.state == FolderScan::State::Missing) {
    const std::string folder = "The folder " + quoted + " is missing";
    if (name == "requests") {
      return folder +
             ", so no request can be dropped: create it, or restart REAPER, which creates every "
             "folder at load.";
    }
    if (name == "acknowledged") {
      return folder + ": create it again if your producer moves handled responses there.";
    }
    return folder +
           ": the extension creates it again when a request needs it; if it stays missing, the "
           "bridge folder cannot be written, and requests wait in \"requests\".";
  }
  const std::string what =
      scan.state == FolderScan::State::NotAFolder
          ? quoted + " is " + scan.problem + ", not a folder"
          : "The folder " + quoted + " cannot be examined (" + scan.problem + ")";
  if (name == "requests") {
    return what + ": no request can be dropped or taken; replace it with a folder.";
  }
  if (name == "responses") {
    return what +
           ": requests are carried out, but their responses cannot be written and only "
           "delivery.log tells how each ended; replace it with a folder.";
  }
  if (name == "acknowledged") {
    return what + ": only producers use it; replace it with a folder if yours does.";
  }
  return what +
         ": requests wait in \"requests\" until it is a plain folder again, and are then served; "
         "replace it with a folder.";
}

void addFolderProblems(StatusReport& report) {
  const FolderScan& requests = folder(report, "requests");
  for (std::size_t i = 0; i < kQueueFolders.size(); ++i) {
    if (report.folders[i].state != FolderScan::State::Present) {
      report.problems.push_back(folderProblem(kQueueFolders[i], report.folders[i]));
    }
  }
  if (!report.stuckClaims.empty()) {
    const int count = static_cast<int>(report.stuckClaims.size());
    report.problems.push_back(
        report.alive
            ? plural(count, "request is", "requests are") + " stuck in \"claimed\" (first " +
                  report.stuckClaims.front() +
                  "): restart REAPER; it then fails them as interrupted and never places them."
            : plural(count, "request was", "requests were") +
                  " cut short when REAPER stopped: at its next start each is answered \"Previous "
                  "Quillmere delivery was interrupted\"; check in REAPER whether it was placed.");
  }
  if (requests.oversized > 0) {
    report.problems.push_back(plural(requests.oversized, "request is", "requests are") +
                              " larger than 1 MiB, which the extension answers invalid unread: "
                              "write smaller documents.");
  }
  if (report.passedOver > 0) {
    report.problems.push_back(
        plural(report.passedOver, "entry", "entries") +
        " in \"requests\" or \"claimed\" cannot be read as a file (a folder, FIFO, socket, or a "
        "broken or looping link): the extension passes over them; remove them.");
  }
  if (report.staleRequestTemporaries > 0) {
    report.problems.push_back(
        plural(report.staleRequestTemporaries, "unfinished request", "unfinished requests") +
        " in \"requests\" (not renamed to a .json name for over a minute): a producer stopped "
        "half-way, and the extension never takes them; delete them.");
  }
  if (report.staleExtensionTemporaries > 0) {
    report.problems.push_back(
        plural(report.staleExtensionTemporaries, "stale .tmp file", "stale .tmp files") +
        " of the extension's own writes (over a minute old: a write failed, a full disk?): "
        "delete them.");
  }
  if (report.recentLog.reading == LogTail::Reading::NotAFile) {
    report.problems.push_back(
        "delivery.log is not a regular file (a link, a FIFO, a folder), so the extension's log "
        "lines are lost: remove it.");
  }
}

void probeOwner(StatusReport& report) {
  report.owner = probeLock(report.bridge / "bridge.lock");
  report.secondWaiting = probeLock(report.bridge / "bridge.waiting") == LockProbe::Held;
  if (report.owner != LockProbe::Held) return;
  const std::optional<std::string> text = readRegularFile(report.bridge / "bridge.lock", 64);
  if (!text || text->empty()) return;
  long pid = 0;
  std::size_t at = 0;
  for (; at < text->size() && (*text)[at] >= '0' && (*text)[at] <= '9' && at < 18; ++at) {
    pid = pid * 10 + ((*text)[at] - '0');
  }
  if (at > 0 && (at == text->size() || (*text)[at] == '\n')) report.ownerPid = pid;
}

}  // namespace

const FolderScan& folder(const StatusReport& report, const char* name) {
  for (std::size_t i = 0; i < kQueueFolders.size(); ++i) {
    if (std::strcmp(kQueueFolders[i], name) == 0) return report.folders[i];
  }
  return report.folders[0];
}

StatusReport gatherStatus(const fs::path& bridge, std::size_t logLines) {
  StatusReport report;
  report.bridge = bridge;
  std::error_code error;
  report.bridgeExists = bridge.empty() || fs::is_directory(bridge, error);
  if (!report.bridgeExists) {
    report.problems.push_back("There is no bridge folder at " + shownPath(bridge) +
                              ": the extension has not run for this user; install "
                              "reaper_quillmere and start REAPER, or give --bridge.");
    return report;
  }
  probeOwner(report);
  report.heartbeat = readHeartbeat(bridge);
  report.heartbeatAgeMs = nowMs() - report.heartbeat.timestampMs;
  report.alive = isAlive(report.heartbeat, nowMs());
  scanFolders(report);

  std::vector<std::string> claimed = folder(report, "claimed").documents;
  const std::vector<std::string> waiting = folder(report, "requests").documents;
  if (report.alive && (!claimed.empty() || !waiting.empty())) {
    std::this_thread::sleep_for(kSecondLookAfter);
    scanFolders(report);
    const std::vector<std::string>& claimedNow = folder(report, "claimed").documents;
    std::vector<std::string> stillClaimed;
    std::set_intersection(claimed.begin(), claimed.end(), claimedNow.begin(), claimedNow.end(),
                          std::back_inserter(stillClaimed));
    claimed = stillClaimed;
    const std::vector<std::string>& waitingNow = folder(report, "requests").documents;
    const bool foldersUsable = std::all_of(
        report.folders.begin(), report.folders.end(),
        [](const FolderScan& scan) { return scan.state == FolderScan::State::Present; });
    if (!waiting.empty() && !waitingNow.empty() && waiting.front() == waitingNow.front() &&
        foldersUsable) {
      report.problems.push_back("The first request in \"requests\" (" + waiting.front() +
                                ") is not being taken although the extension runs: check that "
                                "the bridge folder is writable, then restart REAPER.");
    }
  }
  report.stuckClaims = claimed;
  report.passedOver = folder(report, "requests").passedOver + folder(report, "claimed").passedOver;
  report.staleRequestTemporaries = folder(report, "requests").staleTemporaries;
  report.staleExtensionTemporaries =
      folder(report, "responses").staleTemporaries + staleTopLevelTemporaries(bridge);
  report.recentLog = readLogTail(bridge, logLines);

  std::vector<std::string> queueProblems;
  std::swap(report.problems, queueProblems);
  addHeartbeatProblem(report);
  addOwnerProblems(report);
  addFolderProblems(report);
  report.problems.insert(report.problems.end(), queueProblems.begin(), queueProblems.end());
  return report;
}

}  // namespace bridge_tool
