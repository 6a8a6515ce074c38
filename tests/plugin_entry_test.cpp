#include "extension/plugin_entry.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "extension/timer_tick.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;

namespace {

void* timerAddress() {
  return reinterpret_cast<void*>(&quillmere::timerCallback);
}

class PluginEntry : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    quillmere::pluginInfo = nullptr;
  }
  void TearDown() override {
    ReaperPluginEntry(nullptr, nullptr);
    BridgeTest::TearDown();
  }

  bool touchedTheBridge() const { return fs::exists(home.bridge()); }
};

TEST_F(PluginEntry, RefusesABadRecordBeforeLookingUpAnything) {
  struct Case {
    const char* name;
    void (*spoil)(reaper_plugin_info_t&);
  };
  const std::vector<Case> cases = {
      {"version 0x20D", [](reaper_plugin_info_t& r) { r.caller_version = 0x20D; }},
      {"version 0x20F", [](reaper_plugin_info_t& r) { r.caller_version = 0x20F; }},
      {"no Register", [](reaper_plugin_info_t& r) { r.Register = nullptr; }},
      {"no GetFunc", [](reaper_plugin_info_t& r) { r.GetFunc = nullptr; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    reaper_plugin_info_t record = host().record;
    c.spoil(record);
    host().calls.clear();
    EXPECT_EQ(ReaperPluginEntry(nullptr, &record), 0);
    EXPECT_EQ(quillmere::pluginInfo, nullptr);
    EXPECT_TRUE(host().registrations.empty());
    EXPECT_TRUE(host().calls.empty());
    EXPECT_FALSE(touchedTheBridge());
  }
}

TEST_F(PluginEntry, RefusesAHostLackingAnyOneFunctionButBindsAllTheOthers) {
  host().missing = {"UpdateArrange"};
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(quillmere::pluginInfo, nullptr);
  EXPECT_FALSE(touchedTheBridge());
  EXPECT_EQ(quillmere::UpdateArrange, nullptr);
  EXPECT_NE(quillmere::UpdateItemInProject, nullptr);
  EXPECT_NE(quillmere::AddMediaItemToTrack, nullptr);
}

TEST_F(PluginEntry, RefusesWhenTheBridgeCannotBeCreatedAndRunsNoRecovery) {
  fs::create_directories(home.bridge());
  testing_support::writeAll(home.bridge() / "requests", "a file, not a folder");
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(quillmere::pluginInfo, nullptr);
  EXPECT_FALSE(fs::exists(home.bridge() / "bridge_state.json"));
  EXPECT_TRUE(host().registrations.empty());
}

TEST_F(PluginEntry, LoadsRecoversBeatsOnceAndRegistersTheTimer) {
  testing_support::writeAll(queue("claimed") / "r1.json", requestDocument("abc", tone()));
  ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
  EXPECT_EQ(quillmere::pluginInfo, &host().record);
  EXPECT_EQ(quillmere::lastQueuePoll, quillmere::lastHeartbeat);
  ASSERT_EQ(host().registrations.size(), 1u);
  EXPECT_EQ(host().registrations[0].first, "timer");
  EXPECT_EQ(host().registrations[0].second, timerAddress());
  EXPECT_TRUE(fs::exists(queue("failed") / "r1.json"));
  EXPECT_TRUE(fs::exists(home.bridge() / "bridge_state.json"));
}

TEST_F(PluginEntry, UnloadsByUnregisteringTheSameTimerOnce) {
  ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);
  ASSERT_EQ(host().registrations.size(), 2u);
  EXPECT_EQ(host().registrations[1].first, "-timer");
  EXPECT_EQ(host().registrations[1].second, timerAddress());
  EXPECT_EQ(host().timer, nullptr);
  EXPECT_EQ(quillmere::pluginInfo, nullptr);
}

TEST_F(PluginEntry, ATimerTheHostRefusedIsNeverUnregistered) {
  host().registerAnswer = 0;
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(quillmere::pluginInfo, nullptr);
  // Recovery and the first heartbeat have already run by then; that is accepted.
  EXPECT_TRUE(fs::exists(home.bridge() / "bridge_state.json"));
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);
  EXPECT_EQ(host().registrations.size(), 1u);
}

TEST_F(PluginEntry, TreatsARecoveryThatThrowsAsARefusedLoad) {
  fs::create_directories(queue("claimed"));
  fs::create_symlink(queue("claimed") / "loop.json", queue("claimed") / "loop.json");
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(quillmere::pluginInfo, nullptr);
  EXPECT_TRUE(host().registrations.empty());
}

TEST(BuiltLibrary, ExportsOnlyTheEntryPoint) {
  const std::string command =
      std::string("nm -D --defined-only '") + QUILLMERE_MODULE_PATH + "' 2>/dev/null";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  ASSERT_NE(pipe, nullptr);
  std::vector<std::string> symbols;
  char line[1024];
  while (std::fgets(line, sizeof line, pipe.get()) != nullptr) {
    std::string text(line);
    text.erase(text.find_last_not_of("\r\n") + 1);
    symbols.push_back(text.substr(text.rfind(' ') + 1));
  }
  EXPECT_EQ(symbols, std::vector<std::string>{"ReaperPluginEntry"});
}

}  // namespace
