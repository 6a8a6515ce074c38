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
      if (!report.alive) {
        report.problems.push_back("The extension is not running (last heartbeat " +
                                  ageInWords(report.heartbeatAgeMs) +
                                  "): start REAPER; requests wait in \"requests\" until then.");
      }
      return;
  }
}

void addFolderProblems(StatusReport& report) {
  const FolderScan& requests = folder(report, "requests");
  for (std::size_t i = 0; i < kQueueFolders.size(); ++i) {
    if (!report.folders[i].exists) {
      report.problems.push_back(std::string("The folder \"") + kQueueFolders[i] +
                                "\" is missing: restart REAPER, which creates it at load.");
      break;
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
                              " larger than 1 MiB, which the extension fails unread: write "
                              "smaller documents.");
  }
  if (report.passedOver > 0) {
    report.problems.push_back(
        plural(report.passedOver, "entry", "entries") +
        " in \"requests\" or \"claimed\" cannot be read as a file (a folder, FIFO, socket, or a "
        "broken or looping link): the extension passes over them; remove them.");
  }
  if (report.staleTemporaries > 0) {
    report.problems.push_back(
        plural(report.staleTemporaries, "temporary file is", "temporary files are") +
        " over a minute old: a writer stopped half-way; delete them.");
  }
  if (report.recentLog.reading == LogTail::Reading::NotAFile) {
    report.problems.push_back(
        "delivery.log is not a regular file, so the extension's log lines are lost: remove it.");
  }
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
    if (!waiting.empty() && !waitingNow.empty() && waiting.front() == waitingNow.front() &&
        folder(report, "claimed").exists) {
      report.problems.push_back("The first request in \"requests\" (" + waiting.front() +
                                ") is not being taken although the extension runs: check that "
                                "the bridge folder is writable, then restart REAPER.");
    }
  }
  report.stuckClaims = claimed;
  report.passedOver = folder(report, "requests").passedOver + folder(report, "claimed").passedOver;
  report.staleTemporaries = folder(report, "requests").staleTemporaries +
                            folder(report, "responses").staleTemporaries +
                            staleTopLevelTemporaries(bridge);
  report.recentLog = readLogTail(bridge, logLines);

  std::vector<std::string> queueProblems;
  std::swap(report.problems, queueProblems);
  addHeartbeatProblem(report);
  addFolderProblems(report);
  report.problems.insert(report.problems.end(), queueProblems.begin(), queueProblems.end());
  return report;
}

}  // namespace bridge_tool
