#include "platform/file_lock.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace quillmere;
using namespace testing_support;

namespace {

using Kind = FileLock::Kind;
using Attempt = FileLock::Attempt;

TEST(FileLock, ConflictsAsReadersAndWritersDoAndLeavesWhatTheFileSaysReadable) {
  TempHome home;
  fs::current_path(home.path());
  writeAll("bridge.lock", "an older owner's longer text\n");
  // What one object holds, what a second object then tries, and what it gets.
  const std::tuple<const char*, Kind, Kind, Attempt> cases[] = {
      {"two writers", Kind::exclusive, Kind::exclusive, Attempt::heldElsewhere},
      {"a reader after a writer", Kind::exclusive, Kind::shared, Attempt::heldElsewhere},
      {"a writer after a reader", Kind::shared, Kind::exclusive, Attempt::heldElsewhere},
      {"two readers", Kind::shared, Kind::shared, Attempt::taken},
  };
  for (const auto& [name, held, tried, attempt] : cases) {
    SCOPED_TRACE(name);
    FileLock first, second;
    ASSERT_EQ(first.tryTake("bridge.lock", held), Attempt::taken);
    EXPECT_EQ(second.tryTake("bridge.lock", tried), attempt);
    EXPECT_EQ(second.held(), attempt == Attempt::taken);
    first.release();
    EXPECT_EQ(FileLock().tryTake("bridge.lock", Kind::exclusive),
              second.held() ? Attempt::heldElsewhere : Attempt::taken);
  }
  FileLock owner;
  ASSERT_EQ(owner.tryTake("bridge.lock", Kind::exclusive), Attempt::taken);
  EXPECT_TRUE(owner.replaceContents("4242\n"));
  EXPECT_EQ(readAll("bridge.lock"), "4242\n");
}

}  // namespace
