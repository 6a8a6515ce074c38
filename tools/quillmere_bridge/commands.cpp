#include "quillmere_bridge/commands.h"

#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>

#include "quillmere_bridge/bridge_reader.h"
#include "quillmere_bridge/output.h"
#include "quillmere_bridge/platform.h"
#include "quillmere_bridge/request_builder.h"
#include "quillmere_bridge/request_drop.h"
#include "quillmere_bridge/status_report.h"
#include "request/spot_request.h"

namespace fs = std::filesystem;

namespace bridge_tool {

namespace {

constexpr std::size_t kStatusLogLines = 5;
constexpr auto kFollowEvery = std::chrono::milliseconds(200);

int fail(int code, const std::string& what) {
  std::cerr << "quillmere-bridge: " << what << "\n";
  return code;
}

// The bridge folder, when it is there; otherwise says so.
bool bridgeThere(const fs::path& bridge) {
  std::error_code error;
  if (bridge.empty() || fs::is_directory(bridge, error)) return true;
  fail(kNoAnswer, "no bridge folder at " + shownPath(bridge) +
                      ": the extension has not run for this user (install reaper_quillmere and "
                      "start REAPER, or give --bridge)");
  return false;
}

// Says why a request cannot be answered now, or returns true.
bool extensionAnswers(const fs::path& bridge) {
  const Heartbeat heartbeat = readHeartbeat(bridge);
  const std::int64_t now = nowMs();
  if (isAlive(heartbeat, now)) return true;
  std::string why;
  switch (heartbeat.reading) {
    case Heartbeat::Reading::Missing:
      why = "it has never written bridge_state.json";
      break;
    case Heartbeat::Reading::NotAFile:
      why = "bridge_state.json is not a regular file";
      break;
    case Heartbeat::Reading::Unreadable:
      why = "bridge_state.json " + heartbeat.problem;
      break;
    case Heartbeat::Reading::Read:
      why = "its last heartbeat was " + ageInWords(now - heartbeat.timestampMs);
      break;
  }
  if (probeLock(bridge / "bridge.lock") == LockProbe::Held) {
    fail(kNoAnswer, "REAPER holds the bridge but does not answer (" + why +
                        "): it is busy (a render, a modal dialog) or hung; nothing was sent. Try "
                        "again when it answers.");
    return false;
  }
  fail(kNoAnswer, "REAPER with the extension is not running (" + why +
                      "); nothing was sent. Start REAPER and try again.");
  return false;
}

class ProgressLine {
 public:
  explicit ProgressLine(bool shown) : shown_(shown) {}
  ~ProgressLine() { clear(); }

  void show(const char* stage, std::chrono::steady_clock::duration waited) {
    if (!shown_) return;
    static const char kSpinner[] = "|/-\\";
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(waited).count();
    std::ostringstream line;
    line << kSpinner[(ms / 100) % 4] << " waiting for REAPER: " << stage << ", " << ms / 1000 << "."
         << (ms / 100) % 10 << " s";
    if (line.str() == last_) return;  // redrawn a tenth of a second at a time
    last_ = line.str();
    std::cerr << "\r" << last_ << " \x1b[K" << std::flush;
  }
  void clear() {
    if (!last_.empty()) std::cerr << "\r\x1b[K" << std::flush;
    last_.clear();
  }

 private:
  bool shown_;
  std::string last_;
};

// Prints a final answer; the exit code.
int report(const Invocation& invocation, const Wait& wait, const fs::path& bridge,
           const std::string& responseId) {
  if (!wait.response.empty()) {
    if (invocation.json) {
      printResponseJson(std::cout, wait.response, wait.roundTrip, responseId, wait.archive);
    } else if (!printResponse(std::cout, wait.response, wait.roundTrip, responseId)) {
      return fail(kFailed, "the response to request " + responseId + " cannot be read");
    }
    return responseOk(wait.response) ? kDone : kFailed;
  }
  if (wait.logged) {
    if (invocation.json) {
      printLoggedJson(std::cout, *wait.logged, wait.roundTrip, wait.archive);
    } else {
      printLogged(std::cout, *wait.logged, wait.roundTrip);
    }
    return wait.logged->ok ? kDone : kFailed;
  }
  return fail(wait.archive == "completed" ? kDone : kFailed,
              "request " + responseId + " stands in \"" + wait.archive +
                  "\", but neither its response nor its line in delivery.log can be read in " +
                  shownPath(bridge));
}

// Drops the document, waits for its answer to be final and reports it; the exit code.
int deliver(const Invocation& invocation, const fs::path& bridge, const std::string& stem,
            const std::string& document, const std::string& responseId) {
  const Drop drop = dropRequest(bridge, stem, document);
  if (!drop.dropped) return fail(kNoAnswer, drop.problem);

  ProgressLine progress(stderrIsTerminal());
  const auto timeout = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(invocation.timeoutSeconds));
  const Wait wait = awaitAnswer(bridge, stem, responseId, drop, timeout,
                                [&](const char* stage, std::chrono::steady_clock::duration waited) {
                                  progress.show(stage, waited);
                                });
  progress.clear();
  if (wait.end == Wait::End::Answered) return report(invocation, wait, bridge, responseId);

  std::string what =
      wait.end == Wait::End::TimedOut
          ? "no answer within " +
                std::to_string(static_cast<long long>(invocation.timeoutSeconds * 1000)) + " ms"
          : "REAPER stopped answering (its heartbeat stopped and it no longer holds the bridge)";
  if (wait.withdrawn) {
    what += "; the request was taken back unclaimed, so nothing will be placed";
  } else if (wait.claimed) {
    what += "; the request was claimed, and its answer is final once " + stem +
            ".json stands in \"completed\" or \"failed\"" +
            (wait.end == Wait::End::Stopped ? " (at REAPER's next start)" : "");
  } else {
    what += "; see quillmere-bridge log for request " + responseId;
  }
  return fail(kNoAnswer, what);
}

}  // namespace

int runStatus(const Invocation& invocation) {
  const StatusReport report = gatherStatus(locateBridge(invocation.bridge), kStatusLogLines);
  if (invocation.json)
    printStatusJson(std::cout, report);
  else
    printStatus(std::cout, report);
  return report.alive ? kDone : kNoAnswer;
}

int runSpot(const Invocation& invocation) {
  const fs::path bridge = locateBridge(invocation.bridge);
  if (!bridgeThere(bridge) || !extensionAnswers(bridge)) return kNoAnswer;

  const SpotOptions& options = invocation.spot;
  quillmere::SpotRequest settings;
  std::error_code error;
  // The extension resolves a relative path against REAPER's working folder, not ours.
  settings.source_path = fs::absolute(options.file, error).string();
  if (options.project)
    settings.expected_project_path = fs::absolute(*options.project, error).string();
  if (error) return fail(kBadUsage, "cannot make the paths absolute: " + error.message());
  settings.display_name = options.name.value_or(fs::path(options.file).stem().string());
  settings.project_item_id = options.itemId;
  settings.gain_db = options.gainDb;
  settings.playback_rate = options.rate;
  settings.full_handles = options.offset.has_value();
  settings.source_offset_seconds = options.offset.value_or(0.0);
  settings.visible_length_seconds = options.length.value_or(0.0);

  const std::string stem = freshStem(bridge);
  settings.request_id = stem;
  const BuiltRequest built = buildSpotRequest(settings);
  if (built.document.empty()) return fail(kBadUsage, "cannot send this request: " + built.problem);
  return deliver(invocation, bridge, stem, built.document, stem);
}

int runSend(const Invocation& invocation) {
  const fs::path bridge = locateBridge(invocation.bridge);
  std::error_code error;
  const std::uintmax_t size = fs::file_size(invocation.document, error);
  if (!error && size > kMaxDocumentBytes) {
    return fail(kBadUsage, invocation.document +
                               " is larger than 1 MiB, which the extension answers invalid unread");
  }
  const std::optional<std::string> document =
      readRegularFile(invocation.document, kMaxDocumentBytes);
  if (!document) return fail(kBadUsage, "cannot read " + invocation.document + " as a file");
  if (!bridgeThere(bridge) || !extensionAnswers(bridge)) return kNoAnswer;

  const std::string stem = freshStem(bridge);
  std::string responseId = stem;
  if (const std::optional<quillmere::SpotRequest> request = quillmere::parseRequest(*document)) {
    responseId = request->request_id;
  } else {
    std::cerr << "quillmere-bridge: warning: the extension's reader refuses this document; it "
                 "will be answered \"Invalid Quillmere spot request\"\n";
  }
  return deliver(invocation, bridge, stem, *document, responseId);
}

int runLog(const Invocation& invocation) {
  const fs::path bridge = locateBridge(invocation.bridge);
  if (!bridgeThere(bridge)) return kNoAnswer;
  const LogTail tail = readLogTail(bridge, invocation.last);
  if (tail.reading == LogTail::Reading::NotAFile) {
    return fail(kFailed, "delivery.log in " + shownPath(bridge) +
                             " is not a regular file, so the extension's log lines are lost: "
                             "remove it");
  }
  if (tail.reading == LogTail::Reading::Unreadable) {
    return fail(kFailed, "cannot read delivery.log in " + shownPath(bridge));
  }
  if (tail.reading == LogTail::Reading::Missing && !invocation.follow && !invocation.json) {
    std::cout << "No deliveries yet (no delivery.log in " << shownPath(bridge) << ").\n";
    return kDone;
  }
  if (invocation.json)
    printLogJson(std::cout, tail.entries);
  else
    printLogTable(std::cout, tail.entries, true);
  std::cout.flush();
  if (!invocation.follow) return kDone;

  LogFollower follower(bridge, tail.endOffset);
  while (true) {
    const std::vector<LogEntry> entries = follower.newEntries();
    if (!entries.empty()) {
      if (invocation.json)
        printLogJson(std::cout, entries);
      else
        printLogTable(std::cout, entries, false);
      std::cout.flush();
    }
    std::this_thread::sleep_for(kFollowEvery);
  }
}

}  // namespace bridge_tool
