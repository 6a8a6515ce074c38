#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

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
  std::string response;  // the response document, when answered
  std::chrono::steady_clock::duration roundTrip{};
  bool withdrawn = false;  // taken back out of "requests" unclaimed
  bool claimed = false;    // stands in "claimed"
};

// Where a request stands while it waits, for a progress display.
using Progress = std::function<void(const char* stage, std::chrono::steady_clock::duration)>;

// Waits for the response to the request dropped as "<stem>.json" and answered under `responseId`.
// `previous` is what that response file held before the drop (a reused id). Gives up after
// `timeout`, or when the heartbeat stops; then takes the request back if it is still unclaimed.
Wait awaitResponse(const std::filesystem::path& bridge, const std::string& stem,
                   const std::string& responseId, const std::optional<std::string>& previous,
                   const Drop& drop, std::chrono::steady_clock::duration timeout,
                   const Progress& progress);

}  // namespace bridge_tool
