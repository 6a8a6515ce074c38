#include "bridge/request_cycle.h"

#include <functional>
#include <iterator>
#include <tuple>
#include <vector>

#include "platform/utf8_path.h"
#include "support/bridge_fixture.h"
#ifdef __linux__
#include <unistd.h>

#include "support/folder_events.h"
#endif

namespace fs = std::filesystem;
using namespace testing_support;
using namespace std::chrono_literals;

namespace {

const auto kStart = std::chrono::steady_clock::time_point{} + 100h;

class RequestCycle : public BridgeTest {
 protected:
  // A poll `sinceStart` after the first.
  static void poll(std::chrono::steady_clock::duration sinceStart = {}) {
    quillmere::processOneRequest(kStart + sinceStart);
  }
};

// UTF-8 byte order: U+FF21 (three bytes) before U+1F600 (four), although UTF-16 puts the
// latter's surrogates first.
const char kFullwidthA[] = "\xef\xbc\xa1.json";
const char kEmoji[] = "\xf0\x9f\x98\x80.json";

TEST_F(RequestCycle, TakesOneJsonFilePerCallInByteOrderOfNamesAndLeavesTheRestAlone) {
  // Bytes compare unsigned: the UTF-8 names sort after every ASCII one.
  for (const char* name : {"b.json", kEmoji, "a.json", "Z.json", "\xc3\xa9.json", "9.json",
                           kFullwidthA, "10.json", "..json", "c.JSON", ".json", "notes.txt"})
    drop(name, "{");
  fs::create_directories(queue("requests") / "folder.json");
  const std::vector<std::string> order = {"..json",        "10.json",   "9.json",
                                          "Z.json",        "a.json",    "b.json",
                                          "\xc3\xa9.json", kFullwidthA, kEmoji};
  for (size_t taken = 1; taken <= order.size(); ++taken) {
    poll();
    EXPECT_EQ(namesIn("failed"), Names(order.begin(), order.begin() + taken));
  }
  poll();
  EXPECT_EQ(namesIn("requests"), (Names{".json", "c.JSON", "folder.json", "notes.txt"}));
}

TEST_F(RequestCycle, SilentlyDropsARequestWhoseNameIsAlreadyArchived) {
  for (const char* archive : {"completed", "failed"}) {
    writeAll(queue(archive) / (archive + std::string(".json")), "earlier");
    drop(archive + std::string(".json"), "{");
  }
  poll(), poll();
  EXPECT_EQ(namesIn("requests"), Names{});
  EXPECT_EQ(namesIn("responses"), Names{});
  EXPECT_EQ(
      readAll(queue("completed") / "completed.json") + readAll(queue("failed") / "failed.json"),
      "earlierearlier");
}

TEST_F(RequestCycle, AnswersUnderTheRequestIdOrASafeStemAndArchivesByOutcome) {
  // A folder name over 255 bytes makes the file-system check itself fail.
  const std::string tooLong =
      quillmere::utf8FromPath(home.path() / std::string(300, 'n') / "t.wav");
  const char* const invalid = R"("ok":false,"message":"Invalid Quillmere spot request")";
  const std::string cases[][5] = {
      {"broken.json", "{", "broken", invalid, "failed"},
      {"a.b.json", "{", "invalid-request", invalid, "failed"},
      {"ünï 音.json", "{", "invalid-request", invalid, "failed"},
      {"001.json", requestDocument("abc", tone()), "abc", R"("ok":true,)", "completed"},
      {"002.json", requestDocument("abc", tooLong), "abc",
       R"("ok":false,"message":"Quillmere source file is missing")", "failed"},
#ifndef _WIN32  // where no file can take a device's name
      {"CON.json", "{", "invalid-request", invalid, "failed"},
      {"lpt1.json", requestDocument("aux", tone()), "invalid-request", invalid, "failed"},
#endif
      {"003.json", requestDocument("Nul", tone()), "003", invalid, "failed"},
      {"004.json", requestDocument("gain_db", tone(), R"(,"gain_db":-6)"), "004", invalid,
       "failed"},
  };
  for (const auto& [file, document, id, answer, archive] : cases) {
    SCOPED_TRACE(file);
    fs::remove(queue("responses") / (id + ".json"));
    drop(file, document);
    poll();
    EXPECT_NE(response(id.c_str()).find(answer), std::string::npos);
    EXPECT_EQ(namesIn(archive.c_str()).count(file), 1u);
  }
  EXPECT_EQ(namesIn("responses"),
            (Names{"broken.json", "invalid-request.json", "abc.json", "003.json", "004.json"}));
  EXPECT_EQ(namesIn("completed"), Names{"001.json"});
  EXPECT_EQ(logLines(), static_cast<long>(std::size(cases)));
  EXPECT_EQ(host().allItems().size(), 1u);
}

// A link is read through once it stands in "claimed": an absolute one still reaches its file, a
// relative one is resolved from there and here reaches nothing.
TEST_F(RequestCycle, ServesALinkedRequestFileThatTheLinkStillReachesFromClaimed) {
  const fs::path real = home.path() / "elsewhere" / "real.json";
  writeAll(real, requestDocument("linked", tone()));
  writeAll(queue("requests") / "kept" / "real.json", requestDocument("kept", tone()));
  const char* const invalid = R"("ok":false,"message":"Invalid Quillmere spot request")";
  struct Case {
    const char* file;
    fs::path target;
    const char* id;
    const char* answer;
    const char* archive;
  };
  const Case cases[] = {
      {"a.json", real, "linked", R"("ok":true,)", "completed"},
      {"b.json", "kept/real.json", "b", invalid, "failed"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    if (!makeSymlink(c.target, queue("requests") / c.file))
      GTEST_SKIP() << "no symbolic links here";
    poll();
    EXPECT_NE(response(c.id).find(c.answer), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(queue(c.archive) / c.file));
  }
  EXPECT_EQ(host().allItems().size(), 1u);
  EXPECT_EQ(readAll(real), requestDocument("linked", tone()));
  EXPECT_EQ(namesIn("requests"), Names{"kept"});
}

TEST_F(RequestCycle, MakesAQueueFolderRemovedWhileRunningAgainWhereItIsNeeded) {
  for (const std::string folder : {"claimed", "responses", "completed", "failed"}) {
    SCOPED_TRACE(folder);
    fs::remove_all(queue(folder.c_str()));
    drop(folder + "-ok.json", requestDocument(folder + "-ok", tone()));
    drop(folder + "-bad.json", "{");
    poll(), poll();
    EXPECT_NE(response((folder + "-ok").c_str()).find(R"("ok":true,)"), std::string::npos);
    EXPECT_NE(response((folder + "-bad").c_str()).find(R"("ok":false,)"), std::string::npos);
    EXPECT_EQ(namesIn("completed").count(folder + "-ok.json"), 1u);
    EXPECT_EQ(namesIn("failed").count(folder + "-bad.json"), 1u);
    EXPECT_EQ(namesIn("claimed"), Names{});
  }
}

// Each row makes x.json an entry that cannot be judged, then mends it so that it could be taken.
TEST_F(RequestCycle, SetsAsideForAMinuteAnEntryItCannotJudgeAndServesTheNextInTheSamePoll) {
  const fs::path x = queue("requests") / "x.json";
  const auto dropX = [&] { drop("x.json", requestDocument("x", tone())); };
  const auto linkX = [&](const char* target) {
    return [&, target] { ASSERT_TRUE(makeSymlink(target, x)); };
  };
  const auto relinkX = [&] { fs::remove(x), dropX(); };
  const std::tuple<const char*, std::function<void()>, std::function<void()>> cases[] = {
      {"a link to itself", linkX("x.json"), relinkX},
      {"a dangling link", linkX("nowhere.json"), relinkX},
      {"a link to a folder", linkX("."), relinkX},
      {"an archive entry that cannot be examined",
       [&] {
         ASSERT_TRUE(makeSymlink("x.json", queue("completed") / "x.json"));
         dropX();
       },
       [&] { fs::remove(queue("completed") / "x.json"); }},
  };
  if (!makeSymlink("x", queue("probe"))) GTEST_SKIP() << "no symbolic links on this platform";
  std::chrono::hours row{};
  for (const auto& [name, spoil, mend] : cases) {
    SCOPED_TRACE(name);
    row += 1h;
    for (const char* folder : {"completed", "responses"}) fs::remove_all(queue(folder));
    fs::create_directory(queue("completed"));
    spoil();
    drop("y.json", requestDocument("y", tone()));
    poll(row);
    EXPECT_EQ(namesIn("completed").count("y.json"), 1u);
    mend();
    poll(row + 60s - 1ns);
    EXPECT_EQ(namesIn("requests"), Names{"x.json"});
    poll(row + 60s);
    EXPECT_EQ(namesIn("requests"), Names{});
    EXPECT_NE(response("x").find(R"("ok":true,)"), std::string::npos);
  }
}

TEST_F(RequestCycle, ExaminesFourCandidatesAPollAndCarriesNoneOutWhileTheArchiveCannotBeExamined) {
  fs::remove(queue("completed"));
  if (!makeSymlink("completed", queue("completed")))
    GTEST_SKIP() << "no symbolic links on this platform";
  for (const std::string stem : {"a", "b", "c", "d", "e", "f"})
    drop(stem + ".json", requestDocument(stem, tone()));
#ifdef __linux__
  FolderEvents events(home.bridge());
#endif
  poll();
#ifdef __linux__
  EXPECT_EQ(events.take(), std::vector<std::string>{"requests opened"});  // listed once
#endif
  EXPECT_EQ(namesIn("requests").size(), 6u);
  EXPECT_TRUE(host().allItems().empty());

  fs::remove(queue("completed"));
  fs::create_directory(queue("completed"));
  // a to d were set aside by the first poll, for a minute; the fifth name was never examined.
  const std::pair<std::chrono::seconds, const char*> steps[] = {
      {0s, "e.json"}, {0s, "f.json"}, {59s, ""}, {60s, "a.json"}};
  for (const auto& [sinceStart, taken] : steps) {
    SCOPED_TRACE(sinceStart.count());
    const Names before = namesIn("completed");
    poll(sinceStart);
    Names added;
    for (const std::string& name : namesIn("completed"))
      if (before.count(name) == 0) added.insert(name);
    EXPECT_EQ(added, *taken ? Names{taken} : Names{});
  }
}

// The watcher is inotify.
#ifdef __linux__
TEST_F(RequestCycle, AnswersAndLogsBeforeAWatcherSeesTheClaimedFileLeave) {
  FolderEvents events(home.bridge());
  const std::string cases[][3] = {
      {"ok.json", requestDocument("ok", tone()), "ok"},
      {"bad.json", "{", "bad"},
      {"gone.json", requestDocument("gone", "/nowhere/take.wav"), "gone"},
  };
  for (const auto& [file, document, id] : cases) {
    SCOPED_TRACE(file);
    drop(file, document);
    poll();
    // Listed once, claimed, both folders flushed ("requests" is opened for it), answered.
    EXPECT_EQ(events.take(),
              (std::vector<std::string>{"requests opened", "claimed/" + file + " in",
                                        "requests opened", "responses/" + id + ".json in",
                                        "delivery.log written", "claimed/" + file + " out"}));
  }
}

// Every fsync the test program makes passes through here first (it is linked with
// --wrap=fsync), and the test notes what the bridge had done by then.
std::function<void(const std::string& folder)> onFsync;

}  // namespace

extern "C" int __real_fsync(int descriptor);
extern "C" int __wrap_fsync(int descriptor) {
  if (onFsync) {
    char target[4096];
    const ssize_t length =
        ::readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), target, sizeof target);
    onFsync(length > 0 ? std::string(target, static_cast<size_t>(length)) : "?");
  }
  return __real_fsync(descriptor);
}

namespace {

TEST_F(RequestCycle, FlushesClaimedThenRequestsAfterTheClaimAndBeforeTheHostIsCalled) {
  drop("a.json", requestDocument("a", tone()));
  const size_t callsBefore = host().calls.size();
  std::vector<std::string> seen;
  onFsync = [&](const std::string& folder) {
    const fs::path path(folder);
    seen.push_back(path.filename().string() + ": claimed " +
                   std::to_string(namesIn("claimed").count("a.json")) + ", queued " +
                   std::to_string(namesIn("requests").count("a.json")) + ", host calls " +
                   std::to_string(host().calls.size() - callsBefore));
    EXPECT_EQ(path.parent_path(), fs::canonical(home.bridge()));
  };
  poll();
  onFsync = nullptr;
  EXPECT_EQ(seen, (std::vector<std::string>{"claimed: claimed 1, queued 0, host calls 0",
                                            "requests: claimed 1, queued 0, host calls 0"}));
  EXPECT_EQ(host().allItems().size(), 1u);
}
#endif

}  // namespace
