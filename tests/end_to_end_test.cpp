// Through the built library, loaded the way the host loads it. Its timer reads the real clock,
// so these tests wait in real time, each wait bounded; a slow runner such as valgrind stretches
// every bound by the whole factor in QUILLMERE_TEST_WAIT_SCALE.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <memory>

#include "fake_reaper/module_loader.h"
#include "platform/utf8_path.h"
#include "support/bridge_fixture.h"
#ifndef _WIN32
#include <signal.h>

#include "support/child_process.h"
#endif

using namespace std::chrono_literals;
using namespace testing_support;

namespace {

std::chrono::milliseconds scaled(std::chrono::milliseconds wait) {
  const char* scale = std::getenv("QUILLMERE_TEST_WAIT_SCALE");
  return wait * std::max(1, scale != nullptr ? std::atoi(scale) : 1);
}

class EndToEnd : public BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    module_ = std::make_unique<fake_reaper::LoadedModule>(QUILLMERE_MODULE_PATH);
    ASSERT_NE(entry_ = module_->entry(), nullptr) << module_->error();
  }
  void TearDown() override {
    if (entry_ != nullptr) entry_(module_->handle(), nullptr);
    module_.reset();
    BridgeTest::TearDown();
  }

  int load() { return entry_(module_->handle(), &host().record); }

  // Runs the host's timer about every 10 ms until `done` holds or `limit` has passed.
  template <typename Done>
  bool runUntil(Done done, std::chrono::milliseconds limit = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + scaled(limit);
    while (!done() && std::chrono::steady_clock::now() < deadline)
      host().timer(), std::this_thread::sleep_for(10ms);
    return done();
  }

  std::unique_ptr<fake_reaper::LoadedModule> module_;
  fake_reaper::PluginEntry entry_ = nullptr;
};

TEST_F(EndToEnd, ServesTheBridgeFolderFixedAtLoadAfterHomeAndTheWorkingFolderChange) {
  ASSERT_EQ(load(), 1);
  const std::filesystem::path moved = home.path() / "moved";
  std::filesystem::create_directories(moved);
  setHome(quillmere::utf8FromPath(moved));
  std::filesystem::current_path(moved);
  drop("a.json", requestDocument("a", tone()));
  EXPECT_TRUE(runUntil([&] { return namesIn("completed") == Names{"a.json"}; }));
  EXPECT_TRUE(std::filesystem::is_empty(moved));
}

TEST_F(EndToEnd, PlacesASourceWithNonAsciiLettersDroppedThroughAHomeWithNonAsciiLetters) {
  const std::filesystem::path letters = home.path() / quillmere::pathFromUtf8("Hömé 家");
  setHome(quillmere::utf8FromPath(letters));
  const std::filesystem::path bridge =
      letters / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
  const std::string source = HostTest::tone("Ünïcödé 音.wav", 2.0);
  const std::filesystem::path name = quillmere::pathFromUtf8("ü 音.json");
  ASSERT_EQ(load(), 1);
  writeAll(bridge / "requests" / name, requestDocument("letters", source));
  ASSERT_TRUE(runUntil([&] { return std::filesystem::exists(bridge / "completed" / name); }));
  EXPECT_NE(readAll(bridge / "responses" / "letters.json").find(R"("ok":true)"), std::string::npos);
  ASSERT_EQ(host().allItems().size(), 1u);
  EXPECT_EQ(host().nameOf(host().allItems()[0]->takes.at(0)->source), source);
}

#ifndef _WIN32
// A value of bridge_state.json as written, or "" while there is none.
std::string stateValue(const std::filesystem::path& bridge, const std::string& key) {
  const std::string state = readAll(bridge / "bridge_state.json");
  const std::size_t at = state.find("\"" + key + "\":");
  if (at == std::string::npos) return "";
  const std::size_t from = at + key.size() + 3;
  return state.substr(from, state.find(',', from) - from);
}

// Written whole under another name first, since a process beside the test polls the queue.
void dropLive(const std::filesystem::path& bridge, const std::string& name,
              const std::string& document) {
  writeAll(bridge / "requests" / (name + ".partial"), document);
  std::filesystem::rename(bridge / "requests" / (name + ".partial"), bridge / "requests" / name);
}

long undoPoints(const std::filesystem::path& output) {
  const std::string text = readAll(output);
  long count = 0;
  for (std::size_t at = text.find("undo point:"); at != std::string::npos;
       at = text.find("undo point:", at + 1))
    ++count;
  return count;
}

// Two stand-in hosts, each loading the built library in a process of its own, on one bridge.
TEST_F(EndToEnd, ASecondProcessWaitsTouchingNothingAndTakesOverWhenTheOwnerUnloadsOrIsKilled) {
  for (const auto& [how, signal] : {std::pair{"an unload", SIGINT}, {"a SIGKILL", SIGKILL}}) {
    SCOPED_TRACE(how);
    TempHome row;
    const std::filesystem::path bridge = row.bridge(), firstOut = row.path() / "first.out",
                                secondOut = row.path() / "second.out";
    const auto standin = [](const char* cursor) {
      return std::vector<std::string>{QUILLMERE_STANDIN_PATH, "--module", QUILLMERE_MODULE_PATH,
                                      "--cursor", cursor};
    };
    Background first(standin("1"), firstOut);
    ASSERT_TRUE(
        eventually([&] { return stateValue(bridge, "cursor") == "1.000000000"; }, scaled(10s)))
        << readAll(firstOut);
    // A request the first process is carrying out, as far as anyone else can tell.
    writeAll(bridge / "claimed" / "c.json", requestDocument("cut", tone()));
    Background second(standin("2"), secondOut);
    ASSERT_TRUE(eventually([&] { return lockedElsewhere(bridge / "bridge.waiting"); }, scaled(10s)))
        << readAll(secondOut);

    // Until the owner beats more than a second after the waiter was seen, time enough for the
    // waiter to have tried again, the bridge is the first's alone.
    const auto waitingSince = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::system_clock::now().time_since_epoch())
                                  .count();
    dropLive(bridge, "a.json", requestDocument("a", tone()));
    bool secondBeat = false;
    EXPECT_TRUE(eventually(
        [&] {
          secondBeat |= stateValue(bridge, "cursor") == "2.000000000";
          const std::string stamp = stateValue(bridge, "timestamp_ms");
          return !stamp.empty() && std::stoll(stamp) > waitingSince + 1200 &&
                 undoPoints(firstOut) == 1;
        },
        scaled(10s)));
    EXPECT_FALSE(secondBeat);
    EXPECT_TRUE(std::filesystem::exists(bridge / "completed" / "a.json"));
    EXPECT_EQ(undoPoints(secondOut), 0);
    EXPECT_TRUE(std::filesystem::exists(bridge / "claimed" / "c.json"));
    EXPECT_EQ(readAll(bridge / "bridge.lock"), std::to_string(first.pid()) + "\n");

    first.stop(signal);
    EXPECT_TRUE(eventually(
        [&] {
          return readAll(bridge / "bridge.lock") == std::to_string(second.pid()) + "\n" &&
                 stateValue(bridge, "cursor") == "2.000000000" &&
                 std::filesystem::exists(bridge / "failed" / "c.json");
        },
        scaled(10s)))
        << readAll(secondOut);
    EXPECT_FALSE(lockedElsewhere(bridge / "bridge.waiting"));
    dropLive(bridge, "b.json", requestDocument("b", tone()));
    EXPECT_TRUE(eventually([&] { return undoPoints(secondOut) == 1; }, scaled(10s)));
    EXPECT_TRUE(std::filesystem::exists(bridge / "completed" / "b.json"));
    EXPECT_EQ(second.stop(), 0);
    EXPECT_NE(readAll(secondOut).find("violations: 0"), std::string::npos) << readAll(secondOut);
  }
}
#endif

}  // namespace
