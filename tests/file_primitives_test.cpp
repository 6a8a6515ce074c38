#include "bridge/file_primitives.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

const std::string bytes("\xef\xbb\xbf{\r\n\0\xff", 7);

TEST(ReadFile, KeepsEveryByteAndGivesNothingForAMissingFile) {
  TempHome home;
  writeAll(home.path() / "f", bytes);
  EXPECT_EQ(readFile(home.path() / "f"), bytes);
  EXPECT_EQ(readFile(home.path() / "missing"), "");
}

// Bare names in the working folder, where the parent path is empty.
TEST(WriteAtomic, ReplacesWhateverStandsAtTheTargetAndLeavesNoTemporary) {
  TempHome home;
  fs::current_path(home.path());
  writeAll("stale.json.tmp", "left over from a failed run, longer than the new text");
  writeAll("old.json", "an earlier text, longer than the new one");
  fs::create_directory("empty.json");
  fs::create_directory("dir.json.tmp");
  for (const std::string target : {"stale.json", "dir.json", "old.json", "empty.json", "a/b/c"}) {
    SCOPED_TRACE(target);
    EXPECT_TRUE(writeAtomic(target, bytes));
    EXPECT_EQ(readAll(target), bytes);
    EXPECT_FALSE(fs::exists(target + ".tmp"));
  }
}

TEST(WriteAtomic, FailsWhenTheParentCannotBeMadeOrAFullFolderStandsAtTheTarget) {
  TempHome home;
  fs::current_path(home.path());
  fs::create_symlink("loop-b", "loop-a");
  fs::create_symlink("loop-a", "loop-b");
  writeAll("full.json/inside", "kept");
  for (const std::string target : {"loop-a/a", "full.json/inside/a", "full.json"}) {
    SCOPED_TRACE(target);
    EXPECT_FALSE(writeAtomic(target, "data"));
  }
  EXPECT_EQ(readAll("full.json/inside"), "kept");
  EXPECT_FALSE(fs::exists("full.json.tmp"));
}

}  // namespace
