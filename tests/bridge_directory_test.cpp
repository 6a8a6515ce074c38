#include "bridge/bridge_directory.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace testing_support;

namespace {

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif
const fs::path kUnderHome =
    fs::path("Library") / "Application Support" / "Quillmere" / "reaper-bridge";

TEST(EnsureDirectories, FailsOnAFileWhereAQueueFolderShouldBe) {
  TempHome home;
  writeAll(home.bridge() / "claimed", "not a folder");
  EXPECT_FALSE(quillmere::ensureDirectories());
}

TEST(EnsureDirectories, MakesEveryQueueUnderHomeElseUserProfileOnWindowsElseInTheWorkingFolder) {
  // HOME, USERPROFILE, and whether the queues go under the second rather than the working folder.
  const std::tuple<std::optional<std::string>, std::optional<std::string>, fs::path> cases[] = {
      {"h", "u", "h" / kUnderHome},
      {"", "u", kWindows ? "u" / kUnderHome : "."},
      {{}, "u", kWindows ? "u" / kUnderHome : "."},
      {{}, {}, "."},
  };
  for (const auto& [value, profile, root] : cases) {
    SCOPED_TRACE(value.value_or("unset") + ", " + profile.value_or("unset"));
    TempHome home;
    fs::current_path(home.path());
    setHome(value);
    setVariable("USERPROFILE", profile);
    ASSERT_TRUE(quillmere::ensureDirectories());
    for (const char* name :
         {"requests", "claimed", "responses", "completed", "failed", "acknowledged"})
      EXPECT_TRUE(fs::is_directory(root / name)) << name;
  }
}

TEST(BridgeDirectory, StaysWhereItWasFixedAsAnAbsolutePathUntilReleased) {
  for (const std::optional<std::string>& value : {std::optional<std::string>("h"), {}}) {
    SCOPED_TRACE(value.value_or("unset"));
    TempHome home;
    const fs::path atFix = fs::canonical(home.path()) / "at-fix", later = atFix / "later";
    fs::create_directories(later);
    fs::current_path(atFix);
    setHome(value);
    setVariable("USERPROFILE", {});
    quillmere::fixBridgeDirectory();
    fs::current_path(later);
    setHome("moved");
    EXPECT_EQ(quillmere::bridgeDirectory(), value ? atFix / *value / kUnderHome : atFix);
    quillmere::releaseBridgeDirectory();
    EXPECT_EQ(quillmere::bridgeDirectory(), later / "moved" / kUnderHome);
  }
}

}  // namespace
