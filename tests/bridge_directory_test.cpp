#include "bridge/bridge_directory.h"

#include <gtest/gtest.h>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace testing_support;

TEST(EnsureDirectories, FailsOnAFileWhereAQueueFolderShouldBe) {
  TempHome home;
  writeAll(home.bridge() / "claimed", "not a folder");
  EXPECT_FALSE(quillmere::ensureDirectories());
}

TEST(EnsureDirectories, MakesEveryQueueUnderHomeOrInTheWorkingFolderWhenHomeIsUnsetOrEmpty) {
  const std::pair<std::optional<std::string>, fs::path> cases[] = {
      {"h", "h/Library/Application Support/Quillmere/reaper-bridge"}, {"", "."}, {{}, "."}};
  for (const auto& [value, root] : cases) {
    SCOPED_TRACE(value.value_or("unset"));
    TempHome home;
    fs::current_path(home.path());
    setHome(value);
    ASSERT_TRUE(quillmere::ensureDirectories());
    for (const char* name :
         {"requests", "claimed", "responses", "completed", "failed", "acknowledged"})
      EXPECT_TRUE(fs::is_directory(root / name)) << name;
  }
}
