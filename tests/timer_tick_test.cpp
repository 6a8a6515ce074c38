#include "extension/timer_tick.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "bridge/bridge_directory.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using quillmere::DueJobs;
using quillmere::SteadyTime;

namespace {

const SteadyTime kLoad = SteadyTime{} + 100h;

void loadedAt(SteadyTime t) {
  quillmere::lastQueuePoll = t;
  quillmere::lastHeartbeat = t;
}

TEST(TakeDueJobs, PacesPollsAndHeartbeatsFromTheirOwnLastRun) {
  struct Step {
    std::chrono::nanoseconds sinceLoad;
    bool poll;
    bool heartbeat;
  };
  // Ticks 10 ms apart, then a tick exactly at each interval's edge and one just short of it.
  const std::vector<Step> steps = {
      {10ms, false, false},  {40ms, false, false},         {50ms, true, false},
      {60ms, false, false},  {99'999'999ns, false, false}, {100ms, true, false},
      {999ms, true, false},  {1000ms, false, true},        {1048ms, false, false},
      {1049ms, true, false}, {1999ms, true, false},        {2000ms, false, true},
  };
  loadedAt(kLoad);
  for (const Step& step : steps) {
    SCOPED_TRACE(step.sinceLoad.count());
    const DueJobs due = quillmere::takeDueJobs(kLoad + step.sinceLoad);
    EXPECT_EQ(due.poll, step.poll);
    EXPECT_EQ(due.heartbeat, step.heartbeat);
  }
}

TEST(TakeDueJobs, RunsEachJobOnceAfterALongPauseWithoutCatchingUp) {
  loadedAt(kLoad);
  const DueJobs late = quillmere::takeDueJobs(kLoad + 10s);
  EXPECT_TRUE(late.poll);
  EXPECT_TRUE(late.heartbeat);
  EXPECT_EQ(quillmere::lastQueuePoll, kLoad + 10s);
  EXPECT_EQ(quillmere::lastHeartbeat, kLoad + 10s);
  EXPECT_FALSE(quillmere::takeDueJobs(kLoad + 10s + 49ms).poll);
  EXPECT_TRUE(quillmere::takeDueJobs(kLoad + 10s + 50ms).poll);
}

class RunTick : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    ASSERT_TRUE(quillmere::ensureDirectories());
    host().addTrack(true);
    loadedAt(kLoad);
  }

  // Index of the first recorded call of that name, or -1.
  long firstCall(const char* name) const {
    const auto names = host().callNames();
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? -1 : found - names.begin();
  }
};

TEST_F(RunTick, RunsThePollBeforeTheHeartbeat) {
  drop("a.json", requestDocument("a", tone()));
  quillmere::runTick(kLoad + 1s);
  ASSERT_GE(firstCall("AddMediaItemToTrack"), 0);
  ASSERT_GE(firstCall("GetProjectPathEx"), 0);
  EXPECT_LT(firstCall("AddMediaItemToTrack"), firstCall("GetProjectPathEx"));
}

TEST_F(RunTick, StillWritesTheHeartbeatWhenThePollThrows) {
  // A link loop cannot be classified, so listing the queue raises a file-system error.
  fs::create_symlink(queue("requests") / "loop.json", queue("requests") / "loop.json");
  quillmere::runTick(kLoad + 1s);
  EXPECT_TRUE(fs::exists(home.bridge() / "bridge_state.json"));
  EXPECT_EQ(quillmere::lastQueuePoll, kLoad + 1s);
}

}  // namespace
