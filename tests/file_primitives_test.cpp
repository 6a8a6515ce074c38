#include "bridge/file_primitives.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using quillmere::readFile;
using quillmere::writeAtomic;
using testing_support::readAll;
using testing_support::TempHome;
using testing_support::writeAll;

namespace {

TEST(ReadFile, ReturnsEveryByteAsStoredAndNothingForAMissingFile) {
  const struct {
    const char* name;
    std::optional<std::string> stored;
  } cases[] = {
      {"missing", std::nullopt},
      {"empty", std::string()},
      {"CR LF line ends", std::string("{\r\n\"a\":1\r\n}\r\n")},
      {"NUL and 0xFF bytes", std::string("\xef\xbb\xbf\0x\xff\0", 7)},
  };
  TempHome home;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const fs::path path = home.path() / test.name;
    if (test.stored) writeAll(path, *test.stored);
    EXPECT_EQ(readFile(path), test.stored.value_or(""));
  }
}

TEST(WriteAtomic, StoresExactContentsAndLeavesNoTemporary) {
  const struct {
    const char* name;
    fs::path target;  // below HOME
    std::optional<std::string> previous;
    std::string contents;
  } cases[] = {
      {"empty contents", "empty.json", std::nullopt, ""},
      {"missing parent folders", fs::path("a") / "b" / "c" / "abc.json", std::nullopt, "{}\n"},
      {"existing target replaced", "old.json", std::string("a much longer earlier text\n"), "new"},
      {"binary bytes", "bytes", std::nullopt, std::string("\0\r\n\xff", 4)},
  };
  TempHome home;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const fs::path target = home.path() / test.target;
    if (test.previous) writeAll(target, *test.previous);
    EXPECT_TRUE(writeAtomic(target, test.contents));
    EXPECT_TRUE(fs::is_regular_file(target));
    EXPECT_EQ(readAll(target), test.contents);
    EXPECT_FALSE(fs::exists(target.string() + ".tmp"));
  }
}

TEST(WriteAtomic, ReplacesAStaleTemporaryRatherThanAppendingToIt) {
  TempHome home;
  const fs::path target = home.path() / "abc.json";
  writeAll(home.path() / "abc.json.tmp", "left over from a failed run, longer than the new text");
  ASSERT_TRUE(writeAtomic(target, "fresh"));
  EXPECT_EQ(readAll(target), "fresh");
  EXPECT_FALSE(fs::exists(home.path() / "abc.json.tmp"));
}

TEST(WriteAtomic, WritesABareNameIntoTheWorkingFolder) {
  TempHome home;
  fs::current_path(home.path());
  ASSERT_TRUE(writeAtomic("bridge_state.json", "{}\n"));
  EXPECT_EQ(readAll(home.path() / "bridge_state.json"), "{}\n");
  EXPECT_FALSE(fs::exists(home.path() / "bridge_state.json.tmp"));
}

TEST(WriteAtomic, ReplacesAnEmptyFolderAtTheTargetButNotAFullOne) {
  TempHome home;
  const fs::path empty = home.path() / "empty.json";
  fs::create_directory(empty);
  EXPECT_TRUE(writeAtomic(empty, "data"));
  EXPECT_EQ(readAll(empty), "data");

  const fs::path full = home.path() / "full.json";
  writeAll(full / "inside", "kept");
  EXPECT_FALSE(writeAtomic(full, "data"));
  EXPECT_EQ(readAll(full / "inside"), "kept");
  EXPECT_FALSE(fs::exists(home.path() / "full.json.tmp"));
}

TEST(WriteAtomic, FailsWithoutWritingWhenTheParentOrTemporaryCannotBeMade) {
  TempHome home;
  fs::create_symlink(home.path() / "loop-b", home.path() / "loop-a");
  fs::create_symlink(home.path() / "loop-a", home.path() / "loop-b");
  writeAll(home.path() / "blocked.json.tmp" / "inside", "a folder that cannot be removed");
  const struct {
    const char* name;
    fs::path target;
  } cases[] = {
      {"over-long folder name", home.path() / std::string(300, 'x') / "a.json"},
      {"looping symbolic link", home.path() / "loop-a" / "sub" / "a.json"},
      {"regular file as parent", home.path() / "blocked.json.tmp" / "inside" / "a.json"},
      {"temporary is a full folder", home.path() / "blocked.json"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_FALSE(writeAtomic(test.target, "data"));
    std::error_code unreachable;
    EXPECT_FALSE(fs::exists(test.target, unreachable));
  }
  EXPECT_EQ(readAll(home.path() / "blocked.json.tmp" / "inside"),
            "a folder that cannot be removed");
}

}  // namespace
