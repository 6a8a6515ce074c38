#include "extension/timer_tick.h"

#include "support/bridge_fixture.h"

using namespace std::chrono_literals;
using namespace quillmere;

namespace {

const SteadyTime kLoad = SteadyTime{} + 100h;

class TimerTick : public testing_support::BridgeTest {};

TEST_F(TimerTick, PacesEachJobFromTheTickThatLastRanItWithoutCatchingUp) {
  lastQueuePoll = lastHeartbeat = kLoad;
  // Time since load, poll due, heartbeat due. Both edges are inclusive, and the next run is due
  // one interval after the tick that ran the job, however late that tick was.
  const std::tuple<std::chrono::nanoseconds, bool, bool> steps[] = {
      {50ms - 1ns, false, false}, {50ms, true, false},          {1s - 1ns, true, false},
      {1s, false, true},          {1050ms - 2ns, false, false}, {1050ms - 1ns, true, false},
      {10s, true, true},          {10049ms, false, false},      {10050ms, true, false},
  };
  for (const auto& [sinceLoad, poll, heartbeat] : steps) {
    SCOPED_TRACE(sinceLoad.count());
    const DueJobs due = takeDueJobs(kLoad + sinceLoad);
    EXPECT_EQ(std::make_tuple(due.poll, due.heartbeat), std::make_tuple(poll, heartbeat));
  }
}

TEST_F(TimerTick, PollsBeforeTheHeartbeatAndBeatsWhateverThePollMeets) {
  lastQueuePoll = lastHeartbeat = kLoad;
  drop("a.json", requestDocument("a", tone()));
  runTick(kLoad + 1s);
  const auto calls = host().callNames();
  EXPECT_LT(std::find(calls.begin(), calls.end(), "AddMediaItemToTrack"),
            std::find(calls.begin(), calls.end(), "GetProjectPathEx"));

  // A link to itself cannot be classified; the poll passes it over and the beat still comes.
  std::filesystem::remove(home.bridge() / "bridge_state.json");
  if (!testing_support::makeSymlink(queue("requests") / "l.json", queue("requests") / "l.json"))
    GTEST_SKIP() << "no symbolic links on this platform";
  runTick(kLoad + 2s);
  EXPECT_TRUE(std::filesystem::exists(home.bridge() / "bridge_state.json"));
  EXPECT_EQ(lastQueuePoll, kLoad + 2s);
}

TEST_F(TimerTick, StillBeatsAndLetsNothingOutWhenThePollRaises) {
  lastQueuePoll = lastHeartbeat = kLoad;
  host().raising = {"GetSelectedTrack"};  // called by the spot's checks, outside its own catch
  drop("a.json", requestDocument("a", tone()));
  EXPECT_NO_THROW(runTick(kLoad + 1s));
  EXPECT_TRUE(std::filesystem::exists(home.bridge() / "bridge_state.json"));
  // Cut short like a crash: the request waits in "claimed" for the next load to fail it.
  EXPECT_EQ(namesIn("claimed"), testing_support::Names{"a.json"});
}

}  // namespace
