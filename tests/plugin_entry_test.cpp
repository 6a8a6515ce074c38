#include "extension/plugin_entry.h"

#include <chrono>
#include <cstdlib>

#include "extension/timer_tick.h"
#include "platform/file_lock.h"
#include "platform/process_id.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

class PluginEntry : public BridgeTest {};

TEST_F(PluginEntry, RefusesABadLoadWithoutTouchingPluginInfo) {
  const std::pair<const char*, reaper_plugin_info_t (*)(reaper_plugin_info_t)> cases[] = {
      {"version 0x20D", [](auto r) { return r.caller_version = 0x20D, r; }},
      {"version 0x20F", [](auto r) { return r.caller_version = 0x20F, r; }},
      {"no Register", [](auto r) { return r.Register = nullptr, r; }},
      {"no GetFunc", [](auto r) { return r.GetFunc = nullptr, r; }},
      // A path component over 255 bytes makes the bridge folder impossible to create.
      {"an unmakeable bridge", [](auto r) { return setHome(std::string(300, 'h')), r; }},
      // UpdateItemInProject is bound again only if the lookups go on after a miss.
      {"an unknown name",
       [](auto r) { return host().missing = {"EnumProjects"}, UpdateItemInProject = {}, r; }},
  };
  for (const auto& [name, spoil] : cases) {
    SCOPED_TRACE(name);
    // Each row spoils one thing alone, so that it is refused for that thing.
    setHome(utf8FromPath(home.path()));
    host().missing.clear();
    auto record = spoil(host().record);
    pluginInfo = &host().record;  // a refused load must leave whatever was there
    EXPECT_EQ(ReaperPluginEntry(nullptr, &record), 0);
    EXPECT_EQ(pluginInfo, &host().record);
    EXPECT_NE(UpdateItemInProject, nullptr);
    setHome(utf8FromPath(home.path()));  // and no bridge folder fixed
    EXPECT_EQ(bridgeDirectory(), home.bridge());
  }
  pluginInfo = nullptr;
}

TEST_F(PluginEntry, UnregistersAnAcceptedTimerOnceAndARefusedOneNever) {
  ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
  for (int unload = 0; unload < 2; ++unload) ReaperPluginEntry(nullptr, nullptr);
  host().registerAnswer = 0;
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  ReaperPluginEntry(nullptr, nullptr);
  const std::pair<std::string, void*> on{"timer", reinterpret_cast<void*>(&timerCallback)};
  EXPECT_EQ(host().registrations, (decltype(host().registrations){on, {"-timer", on.second}, on}));
}

TEST_F(PluginEntry, OwnsTheBridgeUnderItsIdUntilUnloadedOrRefusedATimer) {
  for (const int registerAnswer : {1, 0}) {
    SCOPED_TRACE(registerAnswer);
    host().registerAnswer = registerAnswer;
    EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), registerAnswer);
    EXPECT_EQ(lockedElsewhere(home.bridge() / "bridge.lock"), registerAnswer == 1);
    EXPECT_EQ(readAll(home.bridge() / "bridge.lock"), std::to_string(currentProcessId()) + "\n");
    ReaperPluginEntry(nullptr, nullptr);
    EXPECT_FALSE(lockedElsewhere(home.bridge() / "bridge.lock"));
  }
}

TEST_F(PluginEntry, LoadsAsAWaiterThatTouchesNothingWhileItCannotOwnTheBridge) {
  const std::pair<const char*, void (*)(const fs::path&, FileLock&)> cases[] = {
      {"another owner",
       [](const fs::path& bridge, FileLock& other) {
         ASSERT_EQ(other.tryTake(bridge / "bridge.lock", FileLock::Kind::exclusive),
                   FileLock::Attempt::taken);
       }},
      // A lock that cannot be had for any other reason is no licence to serve unguarded either.
      {"a folder in the lock's place",
       [](const fs::path& bridge, FileLock&) { fs::create_directory(bridge / "bridge.lock"); }},
  };
  writeAll(queue("claimed") / "c.json", requestDocument("cut", tone()));
  for (const auto& [name, arrange] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(home.bridge() / "bridge.lock");
    FileLock other;
    arrange(home.bridge(), other);
    ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
    EXPECT_NE(host().timer, nullptr);
    EXPECT_TRUE(lockedElsewhere(home.bridge() / "bridge.waiting"));
    EXPECT_EQ(namesIn("claimed"), Names{"c.json"});
    EXPECT_FALSE(fs::exists(home.bridge() / "bridge_state.json"));
    ReaperPluginEntry(nullptr, nullptr);
    EXPECT_FALSE(lockedElsewhere(home.bridge() / "bridge.waiting"));
  }
}

// What the host saw when the extension registered its timer.
struct AtRegistration {
  fs::path stateFile;
  SteadyTime when, poll, heartbeat;
  bool stateWritten = false;
} atRegistration;

int registerNoting(const char* name, void* facility) {
  atRegistration.when = std::chrono::steady_clock::now();
  atRegistration.poll = lastQueuePoll;
  atRegistration.heartbeat = lastHeartbeat;
  atRegistration.stateWritten = fs::exists(atRegistration.stateFile);
  return fake_reaper::registerFacility(name, facility);
}

TEST_F(PluginEntry, StampsBothJobsWithOneReadingTakenAfterTheHeartbeatAndBeforeRegistering) {
  lastQueuePoll = lastHeartbeat = SteadyTime{};
  atRegistration.stateFile = home.bridge() / "bridge_state.json";
  auto record = host().record;
  record.Register = registerNoting;
  ASSERT_EQ(ReaperPluginEntry(nullptr, &record), 1);
  ReaperPluginEntry(nullptr, nullptr);

  EXPECT_TRUE(atRegistration.stateWritten);
  EXPECT_EQ(atRegistration.poll, atRegistration.heartbeat);
  EXPECT_EQ(atRegistration.heartbeat, lastHeartbeat);
  ASSERT_FALSE(host().calls.empty());
  EXPECT_EQ(host().calls.back().name, "GetCursorPositionEx");  // the heartbeat's last call
  EXPECT_LE(host().calls.back().at, lastHeartbeat);
  EXPECT_LE(lastHeartbeat, atRegistration.when);
}

TEST_F(PluginEntry, TheBuiltLibraryExportsOnlyTheEntryPoint) {
#if defined(_WIN32)
  GTEST_SKIP() << "the Windows build's check reads the DLL's export table with objdump";
#endif
  fs::current_path(home.path());
  ASSERT_EQ(std::system("nm -D --defined-only '" QUILLMERE_MODULE_PATH
                        "' | awk '{print $3}' > exports.txt"),
            0);
  EXPECT_EQ(readAll("exports.txt"), "ReaperPluginEntry\n");
}

}  // namespace
