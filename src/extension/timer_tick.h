#pragma once

#include <chrono>

namespace quillmere {

using SteadyTime = std::chrono::steady_clock::time_point;

extern SteadyTime lastQueuePoll;
extern SteadyTime lastHeartbeat;

struct DueJobs {
  bool poll = false;
  bool heartbeat = false;
};

// Decides which jobs run at `now` and moves their stamps to `now` (no catching up).
DueJobs takeDueJobs(SteadyTime now);

// One tick at `now`: the poll, then the heartbeat, each shielded from the other's failure.
void runTick(SteadyTime now);

void timerCallback();

}  // namespace quillmere
