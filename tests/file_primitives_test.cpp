#include "bridge/file_primitives.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

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
      {"stale.json", true},
      {"dir.json", true},
      {"old.json", true},
      {"empty.json", true},
      {"a/b/c", true},
      {"loop-a/a", false},
      {"full.json/inside/a", false},
      {"full.json", false},
      {std::string(250, 'n') + ".json", false}};  // no room in the name for ".tmp"
  for (const auto& [target, written] : cases) {
    SCOPED_TRACE(target);
    if (!links && target.rfind("loop-", 0) == 0) continue;  // no symbolic links on this platform
    EXPECT_EQ(writeAtomic(target, bytes), written);
    EXPECT_EQ(readFile(target), written ? bytes : "");  // a folder reads as nothing, too
    EXPECT_EQ(readFile(target + ".tmp"), "");           // no temporary left behind
  }
  EXPECT_EQ(readAll("full.json/inside"), "kept");
}

TEST(WriteAtomic, KeepsTheOldTargetWhenTheTemporaryCannotBeMadeOrFilled) {
  TempHome home;
  fs::current_path(home.path());
  writeAll("state.json", "old");
  writeAll("state.json.tmp/inside", "a full folder holds the temporary's place");
  EXPECT_FALSE(writeAtomic("state.json", "new"));
  EXPECT_EQ(readAll("state.json"), "old");
  fs::remove_all("state.json.tmp");

#ifdef _WIN32
  GTEST_SKIP() << "a write that fails part-way is made with a file-size limit, which Windows lacks";
#else
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // Should a write cross this size anyway, it fails (EFBIG) rather than killing the process.
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4, 4};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::_exit(writeAtomic("state.json", "longer than four bytes") ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the write did not fail";
  EXPECT_EQ(readAll("state.json"), "old");
  EXPECT_EQ(readAll("state.json.tmp"), "");  // left behind; no byte of a write past the limit
  EXPECT_TRUE(writeAtomic("state.json", "new"));
  EXPECT_EQ(readAll("state.json"), "new");
  EXPECT_FALSE(fs::exists("state.json.tmp"));
#endif
}

#ifdef _WIN32
// Readers share reading, writing and deleting: the target may be replaced under them (where the
// system allows it), but it must never be removed and so vanish once they close it.
TEST(WriteAtomic, ReplacesOrKeepsAFileAReaderHoldsOpenButNeverRemovesIt) {
  TempHome home;
  fs::current_path(home.path());
  writeAll("state.json", "old");
  const HANDLE reader = ::CreateFileW(L"state.json", GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  const bool written = writeAtomic("state.json", "new");
  ::CloseHandle(reader);
  EXPECT_EQ(readAll("state.json"), written ? "new" : "old");
}
#endif

TEST(ReadFile, ReadsUpToOneMebibyteAndNothingOfALargerFile) {
  TempHome home;
  fs::current_path(home.path());
  std::string contents(std::size_t{1} << 20, ' ');
  contents.front() = '{';
  writeAll("limit.json", contents);
  EXPECT_EQ(readFile("limit.json"), contents);
  writeAll("over.json", contents + " ");
  EXPECT_EQ(readFile("over.json"), "");
}

#ifndef _WIN32
TEST(ReadFile, RefusesAFifoAtOnceAndLeavesADocumentWaitingInItUnread) {
  TempHome home;
  fs::current_path(home.path());
  ASSERT_EQ(::mkfifo("pipe.json", 0666), 0);
  ::alarm(10);  // a blocking open ends the test run rather than hanging it
  EXPECT_EQ(readFile("pipe.json"), "");
  // Open for reading and writing, the FIFO needs no other end; what it holds is offered to anyone.
  const int writer = ::open("pipe.json", O_RDWR | O_NONBLOCK);
  ASSERT_GE(writer, 0);
  const std::string document = R"({"version":1,"command":"spot"})";
  ASSERT_EQ(::write(writer, document.data(), document.size()), ssize_t(document.size()));
  EXPECT_EQ(readFile("pipe.json"), "");
  std::string left(2 * document.size(), '\0');
  EXPECT_EQ(::read(writer, &left[0], left.size()), ssize_t(document.size()));
  ::close(writer);
  ::alarm(0);
}
#endif

}  // namespace
