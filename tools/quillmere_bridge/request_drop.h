#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "quillmere_bridge/bridge_reader.h"

namespace bridge_tool {

// A file-name stem that sorts after the names this machine's clock gave before, is a safe request
// id, and stands nowhere in the bridge yet: UTC time to the microsecond, then the process id.
std::string freshStem(const std::filesystem::path& bridge);

struct Drop {
  bool dropped = false;
  std::string problem;
  std::chrono::steady_clock::time_point at;  // when the request appeared under its ".json" name
};

// Writes the document whole under a name the extension passes over, flushes it to disk, then
// renames it to "<stem>.json" in "requests".
Drop dropRequest(const std::filesystem::path& bridge, const std::string& stem,
                 const std::string& document);

struct Wait {
  enum class End { Answered, TimedOut, Stopped } end = End::TimedOut;
  std::string archive;   // "completed" or "failed": where the request file stands, once answered
  std::string response;  // the response document; empty when none could be read
  std::optional<LogEntry> logged;  // the request's log line, when no response could be read
  std::chrono::steady_clock::duration roundTrip{};
  bool withdrawn = false;  // taken back out of "requests" unclaimed
  bool claimed = false;    // stands in "claimed"
};

// Where a request stands while it waits, for a progress display.
using Progress = std::function<void(const char* stage, std::chrono::steady_clock::duration)>;

// Waits until the request dropped as "<stem>.json" is archived, which makes its answer final (the
// response is written before the archive, and may be replaced until then), and reads the answer
// under `responseId` (or the stem, under which an unreadable request is answered). Gives up after
// `timeout`, or when the heartbeat stops while no REAPER holds the bridge's lock; then takes the
// request back if it is still unclaimed.
Wait awaitAnswer(const std::filesystem::path& bridge, const std::string& stem,
                 const std::string& responseId, const Drop& drop,
                 std::chrono::steady_clock::duration timeout, const Progress& progress);

}  // namespace bridge_tool
