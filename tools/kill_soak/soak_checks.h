// What the bridge folder and the placement journal must show once the soak has ended.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "kill_soak/soak_queue.h"

namespace kill_soak {

struct SoakOutcome {
  std::size_t completed = 0;
  std::size_t interrupted = 0;            // failed as interrupted
  std::size_t placedThenInterrupted = 0;  // of those, placed before the kill
  // Failed ones with more than one log line: a success line from the run killed before its
  // archive, or the interrupted answer repeated by a recovery killed before its archive.
  std::size_t loggedMoreThanOnce = 0;
  std::size_t placedTwice = 0;        // takes placed more than once
  std::size_t answeredTwice = 0;      // requests whose answers contradict or repeat a success
  std::vector<std::string> problems;  // every broken guarantee, in words
  // With `answersMayBeLost`: responses and log lines found missing or cut short, which a power cut
  // may take with it when they were never flushed.
  std::vector<std::string> lostAnswers;
};

// Checks, for every queued request: placed at most once; archived exactly once, in "completed"
// or "failed", unchanged; a completed one placed once, answered ok and logged exactly once; a
// failed one answered with the interrupted message, its log lines at most one success followed
// by interrupted answers only (nothing answered after it was given up); nothing left in
// "requests" or "claimed"; every response, every log line and the state file one complete JSON
// line; no ".tmp" file anywhere.
SoakOutcome checkSoak(const std::filesystem::path& bridge, const std::filesystem::path& journal,
                      const std::vector<QueuedRequest>& queued, bool answersMayBeLost = false);

}  // namespace kill_soak
