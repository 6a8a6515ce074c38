#include "extension/timer_tick.h"

#include "bridge/bridge_owner.h"
#include "platform/file_lock.h"
#include "support/bridge_fixture.h"

using namespace std::chrono_literals;
using namespace quillmere;

namespace {

const SteadyTime kLoad = SteadyTime{} + 100h;

// A process that owns its bridge, loaded at kLoad.
class TimerTick : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    ASSERT_TRUE(takeOverBridge());
    lastQueuePoll = lastHeartbeat = kLoad;
  }
  bool beaten() const { return std::filesystem::exists(home.bridge() / "bridge_state.json"); }
};

TEST_F(TimerTick, PacesEachJobFromTheTickThatLastRanItWithoutCatchingUp) {
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

TEST_F(TimerTick, RunsTheJobThatIsDueAndOnlyThatOne) {
  // How long before the tick each job last ran, and whether it runs now.
  const std::tuple<const char*, std::chrono::milliseconds, std::chrono::milliseconds> cases[] = {
      {"poll", 50ms, 999ms},
      {"heartbeat", 49ms, 1000ms},
  };
  SteadyTime now = kLoad;
  for (const auto& [id, sincePoll, sinceBeat] : cases) {
    SCOPED_TRACE(id);
    const std::string name = std::string(id) + ".json";
    now += 1h;
    lastQueuePoll = now - sincePoll;
    lastHeartbeat = now - sinceBeat;
    std::filesystem::remove(home.bridge() / "bridge_state.json");
    drop(name, requestDocument(id, tone()));
    runTick(now);
    EXPECT_EQ(namesIn("completed").count(name), sincePoll >= 50ms ? 1u : 0u);
    EXPECT_EQ(beaten(), sinceBeat >= 1s);
  }
}

TEST_F(TimerTick, PollsBeforeTheHeartbeatAndBeatsWhateverThePollMeets) {
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
  EXPECT_TRUE(beaten());
  EXPECT_EQ(lastQueuePoll, kLoad + 2s);
}

TEST_F(TimerTick, LetsNothingOutAndStillRunsTheOtherJobWhicheverRaises) {
  // The host function that raises: one the spot's checks call outside its own catch, one that
  // only the heartbeat calls.
  for (const char* raising : {"GetSelectedTrack", "GetProjectPathEx"}) {
    SCOPED_TRACE(raising);
    const bool pollRaises = raising == std::string("GetSelectedTrack");
    host().raising = {raising};
    std::filesystem::remove(home.bridge() / "bridge_state.json");
    drop("a.json", requestDocument("a", tone()));
    EXPECT_NO_THROW(runTick(lastHeartbeat + 1s));
    EXPECT_EQ(beaten(), pollRaises);
    // A poll cut short like a crash leaves the request in "claimed" for the next load to fail.
    EXPECT_EQ(namesIn(pollRaises ? "claimed" : "completed"), testing_support::Names{"a.json"});
    std::filesystem::remove(queue("claimed") / "a.json");
    host().raising.clear();
  }
}

TEST_F(TimerTick, YieldsToTheOwnerOfANewLockAndTakesOverOnTheHeartbeatsScheduleOnceItIsGone) {
  std::error_code error;
  // A lock file replaced under its owner guards nothing; where a held one cannot be removed
  // (Windows), the bridge is given up instead.
  if (!std::filesystem::remove(home.bridge() / "bridge.lock", error)) leaveBridge();
  FileLock owner;
  ASSERT_EQ(owner.tryTake(home.bridge() / "bridge.lock", FileLock::Kind::exclusive),
            FileLock::Attempt::taken);
  testing_support::writeAll(queue("claimed") / "c.json", requestDocument("cut", tone()));
  drop("a.json", requestDocument("a", tone()));
  // Held, then released: nothing is done before the next heartbeat falls due.
  for (const auto sinceLoad : {1000ms, 1500ms, 1950ms}) {
    SCOPED_TRACE(sinceLoad.count());
    if (sinceLoad > 1s) owner.release();
    runTick(kLoad + sinceLoad);
    EXPECT_FALSE(ownsBridge());
    EXPECT_TRUE(testing_support::lockedElsewhere(home.bridge() / "bridge.waiting"));
    EXPECT_EQ(namesIn("claimed"), testing_support::Names{"c.json"});
    EXPECT_EQ(namesIn("requests"), testing_support::Names{"a.json"});
    EXPECT_FALSE(beaten());
  }
  runTick(kLoad + 2s);
  EXPECT_TRUE(ownsBridge());
  EXPECT_EQ(namesIn("failed"), testing_support::Names{"c.json"});
  EXPECT_EQ(namesIn("completed"), testing_support::Names{"a.json"});
  EXPECT_TRUE(beaten());
  EXPECT_FALSE(testing_support::lockedElsewhere(home.bridge() / "bridge.waiting"));
}

}  // namespace
