// Through the built library, loaded the way the host loads it. Its timer reads the real clock,
// so these tests wait in real time, each wait bounded.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace testing_support;

namespace {

class EndToEnd : public BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    module_ = dlopen(QUILLMERE_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module_, nullptr) << dlerror();
    entry_ = reinterpret_cast<decltype(entry_)>(dlsym(module_, "ReaperPluginEntry"));
    ASSERT_NE(entry_, nullptr);
  }
  void TearDown() override {
    if (entry_ != nullptr) unload();
    if (module_ != nullptr) dlclose(module_);
    BridgeTest::TearDown();
  }

  int load() { return entry_(module_, &host().record); }
  void unload() { entry_(module_, nullptr); }

  // Runs the host's timer about every 10 ms until `done` holds or `limit` has passed.
  template <typename Done>
  bool runUntil(Done done, std::chrono::milliseconds limit = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (; !done(); std::this_thread::sleep_for(10ms)) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      if (host().timer != nullptr) host().timer();
    }
    return true;
  }

  void* module_ = nullptr;
  int (*entry_)(void*, reaper_plugin_info_t*) = nullptr;
};

TEST_F(EndToEnd, FailsInterruptedClaimsAtLoadThenAnswersTheQueueInNameOrder) {
  writeAll(queue("claimed") / "r1.json", requestDocument("abc", tone()));
  writeAll(queue("completed") / "r1.json", "placed before the crash");
  writeAll(queue("completed") / "dup.json", "already done");
  ASSERT_EQ(load(), 1);
  const std::string firstBeat = readAll(home.bridge() / "bridge_state.json");
  drop("dup.json", "{");
  drop("a.json", requestDocument("second", tone(), R"(,"display_name":"Second")"));
  drop("Z.json", requestDocument("first", tone(), R"(,"display_name":"First")"));
  drop("b.json", requestDocument("missing", (home.path() / "nowhere.wav").string()));

  ASSERT_TRUE(runUntil([&] {
    return namesIn("requests").empty() && readAll(home.bridge() / "bridge_state.json") != firstBeat;
  }));
  EXPECT_EQ(namesIn("completed"), (Names{"Z.json", "a.json", "dup.json", "r1.json"}));
  EXPECT_EQ(namesIn("failed"), (Names{"b.json", "r1.json"}));
  EXPECT_EQ(namesIn("responses"), (Names{"abc.json", "first.json", "missing.json", "second.json"}));
  ASSERT_EQ(host().undoHistory.size(), 2u);
  EXPECT_EQ(host().undoHistory[0].label, "Quillmere: Spot First");
  EXPECT_EQ(host().undoHistory[1].label, "Quillmere: Spot Second");
}

TEST_F(EndToEnd, WaitsForTheNextLoadWhenClaimedDisappears) {
  ASSERT_EQ(load(), 1);
  fs::remove(queue("claimed"));
  drop("a.json", "{");
  runUntil([] { return false; }, 300ms);
  EXPECT_EQ(namesIn("requests"), Names{"a.json"});

  unload();
  ASSERT_EQ(load(), 1);
  EXPECT_TRUE(runUntil([&] { return namesIn("failed") == Names{"a.json"}; }));
}

}  // namespace
