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

// One tick at `now`: the poll, then the heartbeat, each shielded from the other's failure. A
// process that does not own the bridge runs neither; when the heartbeat is due it tries to take
// the bridge over (and the owner checks that it still has it), then runs both as due.
void runTick(SteadyTime now);

void timerCallback();

}  // namespace quillmere
