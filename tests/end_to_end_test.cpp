// Through the built library, loaded the way the host loads it. Its timer reads the real clock,
// so these tests wait in real time, each wait bounded.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing_support::readAll;
using testing_support::writeAll;
using Names = std::vector<std::string>;

namespace {

class EndToEnd : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    host().addTrack(false);
    host().addTrack(true);
    host().addTrack(false);
    host().cursor = 12.5;
    module_ = dlopen(QUILLMERE_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module_, nullptr) << dlerror();
    entry_ = reinterpret_cast<Entry>(dlsym(module_, "ReaperPluginEntry"));
    ASSERT_NE(entry_, nullptr);
  }
  void TearDown() override {
    if (entry_ != nullptr) entry_(module_, nullptr);
    if (module_ != nullptr) dlclose(module_);
    BridgeTest::TearDown();
  }

  int load() { return entry_(module_, &host().record); }
  void unload() { entry_(module_, nullptr); }

  // Runs the host's timer about every 10 ms until `done` holds or five seconds have passed.
  template <typename Done>
  bool runUntil(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      if (host().timer != nullptr) host().timer();
      std::this_thread::sleep_for(10ms);
    }
    return true;
  }

  Names loggedIds() const {
    Names ids;
    const std::string log = readAll(home.bridge() / "delivery.log");
    const std::string key = R"("request_id":")";
    for (size_t at = log.find(key); at != std::string::npos; at = log.find(key, at + 1)) {
      const size_t begin = at + key.size();
      ids.push_back(log.substr(begin, log.find('"', begin) - begin));
    }
    return ids;
  }

 private:
  using Entry = int (*)(void*, reaper_plugin_info_t*);
  void* module_ = nullptr;
  Entry entry_ = nullptr;
};

TEST_F(EndToEnd, FailsInterruptedClaimsAtLoadAndLeavesCompletedAlone) {
  writeAll(queue("claimed") / "r1.json", requestDocument("abc", tone()));
  writeAll(queue("claimed") / "x y.json", "{");
  writeAll(queue("claimed") / "notes.txt", "not a request");
  writeAll(queue("completed") / "r1.json", "placed before the crash");
  ASSERT_EQ(load(), 1);
  EXPECT_EQ(namesIn("failed"), (Names{"r1.json", "x y.json"}));
  EXPECT_EQ(namesIn("claimed"), Names{"notes.txt"});
  EXPECT_EQ(readAll(queue("completed") / "r1.json"), "placed before the crash");
  EXPECT_EQ(namesIn("responses"), (Names{"abc.json", "interrupted-request.json"}));
  EXPECT_TRUE(host().allItems().empty());
  EXPECT_TRUE(fs::exists(home.bridge() / "bridge_state.json"));
}

TEST_F(EndToEnd, DrainsTheQueueInNameOrderAndAnswersEveryRequest) {
  ASSERT_EQ(load(), 1);
  writeAll(queue("completed") / "dup.json", "already done");
  drop("dup.json", requestDocument("dup", tone()));
  drop("a.json", requestDocument("second", tone(), R"(,"display_name":"Second")"));
  drop("Z.json", requestDocument("first", tone(), R"(,"display_name":"First")"));
  drop("10.json", "{");
  drop("b.json", requestDocument("missing", (home.path() / "nowhere.wav").string()));
  drop("a.JSON", "{");
  fs::create_directories(queue("requests") / "sub.json");

  ASSERT_TRUE(runUntil([&] { return namesIn("requests") == Names{"a.JSON", "sub.json"}; }));
  EXPECT_EQ(loggedIds(), (Names{"10", "first", "second", "missing"}));
  EXPECT_EQ(namesIn("completed"), (Names{"Z.json", "a.json", "dup.json"}));
  EXPECT_EQ(readAll(queue("completed") / "dup.json"), "already done");
  EXPECT_EQ(namesIn("failed"), (Names{"10.json", "b.json"}));
  EXPECT_EQ(namesIn("responses"), (Names{"10.json", "first.json", "missing.json", "second.json"}));
  EXPECT_NE(readAll(queue("responses") / "missing.json").find("Quillmere source file is missing"),
            std::string::npos);
  ASSERT_EQ(host().undoHistory.size(), 2u);
  EXPECT_EQ(host().undoHistory[0].label, "Quillmere: Spot First");
  EXPECT_EQ(host().undoHistory[1].label, "Quillmere: Spot Second");
  for (const fake_reaper::Item* item : host().allItems()) EXPECT_EQ(item->track->number, 2);
}

TEST_F(EndToEnd, WaitsForTheNextLoadWhenClaimedDisappears) {
  ASSERT_EQ(load(), 1);
  fs::remove(queue("claimed"));
  drop("a.json", "{");
  const auto until = std::chrono::steady_clock::now() + 300ms;
  runUntil([&] { return std::chrono::steady_clock::now() > until; });
  EXPECT_EQ(namesIn("requests"), Names{"a.json"});

  unload();
  ASSERT_EQ(load(), 1);
  ASSERT_TRUE(runUntil([&] { return namesIn("failed") == Names{"a.json"}; }));
  EXPECT_TRUE(namesIn("requests").empty());
}

TEST_F(EndToEnd, KeepsTheHeartbeatFresh) {
  ASSERT_EQ(load(), 1);
  const std::string first = readAll(home.bridge() / "bridge_state.json");
  ASSERT_FALSE(first.empty());
  ASSERT_TRUE(runUntil([&] { return readAll(home.bridge() / "bridge_state.json") != first; }));
  EXPECT_NE(readAll(home.bridge() / "bridge_state.json").find(R"("cursor":12.500000000)"),
            std::string::npos);
}

}  // namespace
