#include "bridge/file_primitives.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

// Bare names in the working folder, where the parent path is empty.
TEST(WriteAtomic, ReplacesWhateverStandsAtTheTargetUnlessItsParentOrAFullFolderBlocksIt) {
  const std::string bytes("\xef\xbb\xbf{\r\n\0\xff", 7);
  TempHome home;
  fs::current_path(home.path());
  writeAll("stale.json.tmp", "left over from a failed run, longer than the new text");
  writeAll("old.json", "an earlier text, longer than the new one");
  writeAll("full.json/inside", "kept");
  fs::create_directory("empty.json");
  fs::create_directory("dir.json.tmp");
  const bool links = makeSymlink("loop-b", "loop-a") && makeSymlink("loop-a", "loop-b");
  const std::pair<std::string, bool> cases[] = {
      {"stale.json", true},          {"dir.json", true},  {"old.json", true},
      {"empty.json", true},          {"a/b/c", true},     {"loop-a/a", false},
      {"full.json/inside/a", false}, {"full.json", false}};
  for (const auto& [target, written] : cases) {
    SCOPED_TRACE(target);
    if (!links && target.rfind("loop-", 0) == 0) continue;  // no symbolic links on this platform
    EXPECT_EQ(writeAtomic(target, bytes), written);
    EXPECT_EQ(readFile(target), written ? bytes : "");  // a folder reads as nothing, too
    EXPECT_EQ(readFile(target + ".tmp"), "");           // no temporary left behind
  }
  EXPECT_EQ(readAll("full.json/inside"), "kept");
}

}  // namespace
