// A bridge made up for one run, and the stand-in host started on it, with or without the crash
// shim: what the crash-point sweep and the power cut share.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kill_soak/soak_queue.h"

namespace crash_points {

struct Programs {
  std::string standin;
  std::string module;
  std::string shim;
};

// HOME, the bridge in it and the placement journal, all under `root` unless `journal` is given;
// the test tone lives outside, in `tone`.
class World {
 public:
  World(std::filesystem::path root, std::string tone,
        std::optional<std::filesystem::path> journal = std::nullopt);

  // Empties the world and queues `queued` requests in "requests".
  void reset(std::size_t queued);
  // Moves the first `count` queued requests into "claimed", as a run that died after its claims
  // leaves them; the first `placed` of those are journaled as placed.
  void claimFirst(std::size_t count, std::size_t placed);

  // Every queued request archived, nothing in "requests" or "claimed".
  bool finished() const;
  // Where a queued request's file is now: "requests", "claimed", "completed", "failed" or
  // "nowhere".
  std::string whereIs(const kill_soak::QueuedRequest& request) const;

  const std::filesystem::path& root() const { return root_; }
  const std::filesystem::path& home() const { return home_; }
  const std::filesystem::path& bridge() const { return bridge_; }
  const std::filesystem::path& journal() const { return journal_; }
  const std::vector<kill_soak::QueuedRequest>& queued() const { return queue_->all(); }

 private:
  std::filesystem::path root_, home_, bridge_, journal_;
  std::string tone_;
  std::unique_ptr<kill_soak::SoakQueue> queue_;
};

// Where the shim ends the process, and what it watches.
struct Shim {
  std::vector<std::filesystem::path> roots;
  std::filesystem::path trace;  // empty: none
  long endAt = 0;               // 0: never
  std::string how = "kill";     // "kill", "stop", "cut:FOLDER"
};

// Starts the stand-in on `world` with its output going to `log` (emptied first); under the shim
// when one is given.
pid_t startStandin(const Programs& programs, const World& world, const std::filesystem::path& log,
                   const std::optional<Shim>& shim);

// How a run under watch came to an end.
struct RunEnd {
  bool crashed = false;   // ended by SIGKILL (the shim's, or one sent by the caller)
  bool finished = false;  // the world reached `finished()` while it ran
  std::string trouble;    // what went wrong otherwise, in words
};

// Watches `child` until it dies or, once its `log` shows the load done, the world is finished; a
// finished run is stopped with SIGTERM and must then exit 0 (or meet the shim on its way out).
RunEnd watch(pid_t child, const World& world, const std::filesystem::path& log,
             std::chrono::steady_clock::duration limit);

// Runs the stand-in without the shim until the world is finished.
RunEnd finishUndisturbed(const Programs& programs, const World& world,
                         const std::filesystem::path& log);

// Waits for `child` to stop (SIGSTOP); false if it ended or the deadline passed first.
bool waitForStop(pid_t child, std::chrono::steady_clock::duration limit);

// Whether `child` has ended, leaving its status to be collected.
bool hasEnded(pid_t child);

// What both proof programs share around their runs: a fresh scratch folder under the temporary
// folder (empty when none can be made), the options naming the programs, and whole seconds since.
std::filesystem::path makeScratchFolder(const std::string& prefix);
bool takeProgramOption(const std::string& flag, const std::string& value, Programs& programs);
long long secondsSince(std::chrono::steady_clock::time_point started);

// Whether an instance waits for the bridge: it holds "bridge.waiting" so that an exclusive
// attempt fails. The attempt, when it succeeds, is released at once.
bool waiterPresent(const std::filesystem::path& bridge);

// One counted call, as the shim traced it.
struct TracedCall {
  long number = 0;
  std::string call;
  std::string path;
  std::string second;  // a rename's or link's target
};
std::vector<TracedCall> readTrace(const std::filesystem::path& trace);

// "rename requests/q1.json -> claimed/q1.json", paths shown from `base`.
std::string describe(const TracedCall& call, const std::filesystem::path& base);

}  // namespace crash_points
