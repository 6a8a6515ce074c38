#include "extension/timer_tick.h"

#include "bridge/bridge_owner.h"
#include "bridge/report_files.h"
#include "bridge/request_cycle.h"

namespace quillmere {

namespace {

constexpr auto kQueuePollInterval = std::chrono::milliseconds(50);
constexpr auto kHeartbeatInterval = std::chrono::seconds(1);

// Nothing may unwind into the host; a failed job still counts as run, and the other job runs.
template <typename Job>
void runShielded(Job job) noexcept {
  try {
    job();
  } catch (...) {
  }
}

}  // namespace

SteadyTime lastQueuePoll{};
SteadyTime lastHeartbeat{};

DueJobs takeDueJobs(SteadyTime now) {
  DueJobs due;
  if (now - lastQueuePoll >= kQueuePollInterval) {
    lastQueuePoll = now;
    due.poll = true;
  }
  if (now - lastHeartbeat >= kHeartbeatInterval) {
    lastHeartbeat = now;
    due.heartbeat = true;
  }
  return due;
}

void runTick(SteadyTime now) {
  const DueJobs due = takeDueJobs(now);
  // On the heartbeat's schedule a waiting process tries for the bridge and the owner makes sure
  // it still holds it; neither runs anything else without it.
  if (due.heartbeat) runShielded(takeOverBridge);
  if (!ownsBridge()) return;
  if (due.poll) runShielded([now] { processOneRequest(now); });
  if (due.heartbeat) runShielded(writeHeartbeat);
}

void timerCallback() {
  runTick(std::chrono::steady_clock::now());
}

}  // namespace quillmere
