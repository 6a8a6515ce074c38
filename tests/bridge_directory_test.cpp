#include "bridge/bridge_directory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using quillmere::bridgeDirectory;
using quillmere::ensureDirectories;
using quillmere::queueDirectory;
using testing_support::TempHome;

namespace {

const std::vector<std::string> kQueues = {"requests",  "claimed", "responses",
                                          "completed", "failed",  "acknowledged"};

TEST(BridgeDirectory, LiesUnderHomeAndIgnoresATrailingSeparator) {
  for (const std::string home : {"/Users/example", "/Users/example/"}) {
    SCOPED_TRACE(home);
    testing_support::setHome(home);
    EXPECT_EQ(bridgeDirectory().string(),
              "/Users/example/Library/Application Support/Quillmere/reaper-bridge");
    EXPECT_EQ(queueDirectory("failed").string(),
              "/Users/example/Library/Application Support/Quillmere/reaper-bridge/failed");
  }
}

TEST(EnsureDirectories, CreatesEveryQueueBelowAHomeThatDoesNotExistYet) {
  TempHome home;
  testing_support::setHome((home.path() / "not" / "yet").string());
  ASSERT_TRUE(ensureDirectories());
  for (const std::string& name : kQueues) {
    EXPECT_TRUE(fs::is_directory(home.path() / "not" / "yet" / "Library" / "Application Support" /
                                 "Quillmere" / "reaper-bridge" / name))
        << name;
  }
}

TEST(EnsureDirectories, WorksInTheWorkingFolderWhenHomeIsUnsetOrEmpty) {
  for (const bool unset : {true, false}) {
    SCOPED_TRACE(unset ? "unset" : "empty");
    TempHome home;
    fs::current_path(home.path());
    testing_support::setHome(unset ? std::nullopt : std::optional<std::string>(""));
    EXPECT_TRUE(bridgeDirectory().empty());
    EXPECT_EQ(queueDirectory("requests"), fs::path("requests"));
    ASSERT_TRUE(ensureDirectories());
    for (const std::string& name : kQueues) EXPECT_TRUE(fs::is_directory(home.path() / name));
  }
}

TEST(EnsureDirectories, StopsAtAFileStandingWhereAQueueShouldBe) {
  TempHome home;
  fs::create_directories(home.bridge());
  testing_support::writeAll(home.bridge() / "claimed", "not a folder");
  EXPECT_FALSE(ensureDirectories());
  EXPECT_TRUE(fs::is_directory(home.bridge() / "requests"));
  for (const char* name : {"responses", "completed", "failed", "acknowledged"}) {
    EXPECT_FALSE(fs::exists(home.bridge() / name)) << name;
  }
}

TEST(EnsureDirectories, SucceedsAgainWithoutChangingAnything) {
  TempHome home;
  ASSERT_TRUE(ensureDirectories());
  testing_support::writeAll(home.bridge() / "requests" / "a.json", "{}");
  EXPECT_TRUE(ensureDirectories());
  EXPECT_EQ(testing_support::readAll(home.bridge() / "requests" / "a.json"), "{}");
}

TEST(EnsureDirectories, FailsWhenHomeRunsThroughASymbolicLinkLoop) {
  TempHome home;
  fs::create_symlink(home.path() / "loop", home.path() / "loop");
  testing_support::setHome((home.path() / "loop").string());
  EXPECT_FALSE(ensureDirectories());
}

}  // namespace
