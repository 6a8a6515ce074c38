#include "bridge/bridge_directory.h"

#include <gtest/gtest.h>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

const char* const kQueues[] = {"requests",  "claimed", "responses",
                               "completed", "failed",  "acknowledged"};

TEST(EnsureDirectories, StopsAtAFileWhereAQueueShouldBeAndKeepsExistingQueuesWhenRunAgain) {
  TempHome home;
  writeAll(home.bridge() / "claimed", "not a folder");
  EXPECT_FALSE(ensureDirectories());
  EXPECT_TRUE(fs::is_directory(home.bridge() / "requests"));
  for (int i = 2; i < 6; ++i) EXPECT_FALSE(fs::exists(home.bridge() / kQueues[i])) << kQueues[i];

  fs::remove(home.bridge() / "claimed");
  writeAll(home.bridge() / "requests" / "a.json", "{}");
  EXPECT_TRUE(ensureDirectories());
  for (const char* name : kQueues) EXPECT_TRUE(fs::is_directory(home.bridge() / name)) << name;
  EXPECT_EQ(readAll(home.bridge() / "requests" / "a.json"), "{}");
}

TEST(EnsureDirectories, UsesTheWorkingFolderWhenHomeIsUnsetOrEmpty) {
  for (const std::optional<std::string>& value : {std::optional<std::string>(), {""}}) {
    SCOPED_TRACE(value ? "empty" : "unset");
    TempHome home;
    fs::current_path(home.path());
    setHome(value);
    ASSERT_TRUE(ensureDirectories());
    for (const char* name : kQueues) EXPECT_TRUE(fs::is_directory(home.path() / name)) << name;
  }
}

}  // namespace
