#include "extension/plugin_entry.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "bridge/bridge_directory.h"
#include "extension/timer_tick.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

class PluginEntry : public BridgeTest {};

TEST_F(PluginEntry, RefusesABadLoadWithoutTouchingPluginInfoOrWritingAnything) {
  const std::pair<const char*, void (*)(reaper_plugin_info_t&)> cases[] = {
      {"version 0x20D", [](reaper_plugin_info_t& r) { r.caller_version = 0x20D; }},
      {"version 0x20F", [](reaper_plugin_info_t& r) { r.caller_version = 0x20F; }},
      {"no Register", [](reaper_plugin_info_t& r) { r.Register = nullptr; }},
      {"no GetFunc", [](reaper_plugin_info_t& r) { r.GetFunc = nullptr; }},
      {"an unknown name",
       [](reaper_plugin_info_t&) {
         host().missing = {"AddMediaItemToTrack"};
         UpdateItemInProject = nullptr;  // bound again only if the lookups go on after a miss
       }},
      {"a blocked queue", [](reaper_plugin_info_t&) { writeAll(queueDirectory("requests"), ""); }},
  };
  for (const auto& [name, spoil] : cases) {
    SCOPED_TRACE(name);
    reaper_plugin_info_t record = host().record, earlier = host().record;
    spoil(record);
    pluginInfo = &earlier;  // a refused load must leave whatever was there
    EXPECT_EQ(ReaperPluginEntry(nullptr, &record), 0);
    EXPECT_EQ(pluginInfo, &earlier);
    EXPECT_NE(UpdateItemInProject, nullptr);
    EXPECT_FALSE(fs::exists(home.bridge() / "bridge_state.json"));
    host().missing.clear();
  }
  pluginInfo = nullptr;
}

TEST_F(PluginEntry, UnregistersAnAcceptedTimerOnceAndARefusedOneNever) {
  writeAll(queue("claimed") / "r1.json", "{");
  ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
  EXPECT_EQ(namesIn("failed"), Names{"r1.json"});
  EXPECT_TRUE(fs::exists(home.bridge() / "bridge_state.json"));
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);

  host().registerAnswer = 0;
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(ReaperPluginEntry(nullptr, nullptr), 0);
  void* const timer = reinterpret_cast<void*>(&timerCallback);
  const decltype(host().registrations) expected = {
      {"timer", timer}, {"-timer", timer}, {"timer", timer}};
  EXPECT_EQ(host().registrations, expected);
}

TEST_F(PluginEntry, RefusesALoadWhoseRecoveryThrows) {
  // A link to itself cannot be classified, so the recovery's scan raises a file-system error.
  fs::create_directories(queue("claimed"));
  fs::create_symlink(queue("claimed") / "loop.json", queue("claimed") / "loop.json");
  EXPECT_EQ(ReaperPluginEntry(nullptr, &host().record), 0);
  EXPECT_EQ(pluginInfo, nullptr);
}

TEST_F(PluginEntry, TheBuiltLibraryExportsOnlyTheEntryPoint) {
  fs::current_path(home.path());
  ASSERT_EQ(
      std::system("nm -D --defined-only '" QUILLMERE_MODULE_PATH "' | awk '{print $NF}' >out"), 0);
  EXPECT_EQ(readAll("out"), "ReaperPluginEntry\n");
}

}  // namespace
