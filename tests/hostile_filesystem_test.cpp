// Whatever stands in the bridge folder, a load and its ticks finish, and the requests behind a
// bad entry are still served. Each case runs in a forked child, its load and ticks under an alarm,
// so an open that blocks fails the case instead of hanging the run.
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>

#include "extension/plugin_entry.h"
#include "extension/timer_tick.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace quillmere;
using namespace testing_support;

namespace {

constexpr int kCannotMount = 77;
constexpr unsigned kWatchdogSeconds = 20;
const char* const kInvalid = R"("ok":false,"message":"Invalid Quillmere spot request")";
const char* const kInterrupted = R"("ok":false,"message":"Previous Quillmere delivery was )"
                                 R"(interrupted; not retried to avoid a duplicate")";

using Step = std::function<void()>;

// What the bridge folder stands on: the test's own folder, or a tmpfs mounted over it.
enum class Ground { plain, fullDisk, readOnly };

struct Case {
  const char* name;
  Ground ground;
  Step arrange, check;
  Step midway = nullptr;  // between the first tick and the others
};

class HostileFileSystem : public BridgeTest {
 protected:
  fs::path in(const char* folder, const std::string& name) const { return queue(folder) / name; }
  void fifo(const fs::path& path) const { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0) << path; }
  // A valid request that would be carried out if it were read, made huge by a sparse tail.
  void oversized(const fs::path& path) {
    writeAll(path, requestDocument("big", tone()));
    fs::resize_file(path, 17u << 20);
  }
  // A valid request queued behind every bad entry of the table, which are named x.json.
  void queueGood() { drop("y.json", requestDocument("good", tone())); }
  void expectGoodServed() const {
    EXPECT_EQ(namesIn("completed").count("y.json"), 1u);
    EXPECT_NE(response("good").find(R"("ok":true,)"), std::string::npos);
  }
  void claimInterrupted() { writeAll(in("claimed", "c.json"), requestDocument("cut", tone())); }
  void expectAnswered(const char* id, const char* answer, const char* archived) const {
    EXPECT_NE(response(id).find(answer), std::string::npos) << id;
    EXPECT_EQ(namesIn("failed").count(archived), 1u) << archived;
  }
  bool present(const fs::path& path) const { return fs::exists(fs::symlink_status(path)); }
  // Names and the bridge tree open to everyone, then the child gives up root for good.
  void dropPrivileges() const {
    fs::permissions(home.path(), fs::perms::owner_all | fs::perms::group_exec |
                                     fs::perms::others_exec | fs::perms::others_read);
    for (const auto& entry : fs::recursive_directory_iterator(home.path() / "Library"))
      if (entry.is_directory()) fs::permissions(entry.path(), fs::perms::all);
    for (fs::path up = home.bridge(); up != home.path(); up = up.parent_path())
      fs::permissions(up, fs::perms::all);
    ASSERT_EQ(::setgroups(0, nullptr), 0);
    ASSERT_EQ(::setgid(65534), 0);
    ASSERT_EQ(::setuid(65534), 0);
  }

  // Runs every case in its own child; a case whose ground cannot be mounted is skipped.
  void runAll(const std::vector<Case>& cases) {
    std::string skipped;
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      // Every case starts from an empty HOME holding only the bridge's folders.
      for (const auto& entry : fs::directory_iterator(home.path())) fs::remove_all(entry.path());
      ASSERT_TRUE(ensureDirectories());
      std::fflush(stdout);
      const pid_t child = ::fork();
      ASSERT_NE(child, -1);
      if (child == 0) runInChild(c);
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotMount) {
        skipped += std::string(" ") + c.name + ";";
      } else if (WIFSIGNALED(status)) {
        ADD_FAILURE() << (WTERMSIG(status) == SIGALRM ? "blocked: still running after "
                                                      : "crashed: signal ")
                      << (WTERMSIG(status) == SIGALRM ? kWatchdogSeconds : WTERMSIG(status));
      } else {
        EXPECT_EQ(WEXITSTATUS(status), 0) << "the case failed in its child (above)";
      }
    }
    if (!skipped.empty()) GTEST_SKIP() << "cannot mount a tmpfs here, skipped:" << skipped;
  }

 private:
  // In the child: the ground, the case, then a load, four ticks a second apart and an unload, the
  // way the host drives the bridge; the exit status tells the parent what happened.
  [[noreturn]] void runInChild(const Case& c) {
    // The child inherits the failures of earlier cases; only its own count.
    const int earlier = failures();
    const auto failed = [&] { return failures() > earlier; };
    try {
      if (c.ground != Ground::plain) prepareGround(c.ground);
      c.arrange();
      if (c.ground == Ground::fullDisk) fillDisk();
      if (c.ground == Ground::readOnly &&
          ::mount("tmpfs", home.bridge().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        cannotMount("read-only remount");
      // Only the bridge's own work is timed; making ten thousand files may take a while.
      ::alarm(kWatchdogSeconds);
      if (!failed()) {
        ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
        for (int tick = 0; tick < 4; ++tick) {
          if (tick == 1 && c.midway) c.midway();
          runTick(lastQueuePoll + 1s);
        }
        ReaperPluginEntry(nullptr, nullptr);
      }
      ::alarm(0);
      if (!failed()) c.check();
      expectSettled();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "threw: " << error.what();
    }
    std::fflush(stdout);
    ::_exit(failed() ? 1 : 0);
  }
  static int failures() {
    const ::testing::TestResult* result =
        ::testing::UnitTest::GetInstance()->current_test_info()->result();
    int failed = 0;
    for (int part = 0; part < result->total_part_count(); ++part)
      failed += result->GetTestPartResult(part).failed();
    return failed;
  }
  [[noreturn]] static void cannotMount(const char* what) {
    std::cout << "[  SKIPPED ] " << what << ": " << std::strerror(errno) << std::endl;
    ::_exit(kCannotMount);
  }
  // A private mount namespace: the tmpfs goes away with the child, whatever happens to it.
  void prepareGround(Ground ground) {
    if (::unshare(CLONE_NEWNS) != 0) cannotMount("unshare");
    if (::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0)
      cannotMount("private mounts");
    const char* size = ground == Ground::fullDisk ? "size=256k" : "size=4m";
    if (::mount("tmpfs", home.bridge().c_str(), "tmpfs", 0, size) != 0) cannotMount("tmpfs");
    ASSERT_TRUE(ensureDirectories());
  }
  void fillDisk() const {
    std::FILE* filler = std::fopen((home.bridge() / "filler").c_str(), "wb");
    ASSERT_NE(filler, nullptr);
    const std::string block(4096, 'f');
    while (std::fwrite(block.data(), 1, block.size(), filler) == block.size()) {
    }
    std::fclose(filler);
  }
};

TEST_F(HostileFileSystem, NoEntryStallsTheQueueOrTheLoadAndEveryOtherRequestIsServed) {
  const Step leftInRequests = [this] {
    EXPECT_TRUE(present(in("requests", "x.json")));
    EXPECT_EQ(namesIn("failed"), Names{});
    expectGoodServed();
  };
  const Step leftInClaimed = [this] {
    EXPECT_TRUE(present(in("claimed", "x.json")));
    expectAnswered("cut", kInterrupted, "c.json");
    expectGoodServed();
  };
  const auto inRequests = [this](Step make) { return [=] { make(), queueGood(); }; };
  const auto inClaimed = [this](Step make) {
    return [=] { make(), claimInterrupted(), queueGood(); };
  };
  const auto link = [](const fs::path& target, const fs::path& path) {
    return [=] { fs::create_symlink(target, path); };
  };
  const fs::path x = in("requests", "x.json"), claimedX = in("claimed", "x.json");
  const std::vector<Case> cases = {
      {"a FIFO in requests", Ground::plain, inRequests([=] { fifo(x); }), leftInRequests},
      {"a dangling link in requests", Ground::plain, inRequests(link("nowhere.json", x)),
       leftInRequests},
      {"a looping link in requests", Ground::plain, inRequests(link("x.json", x)), leftInRequests},
      {"a link to an over-long name in requests", Ground::plain,
       inRequests(link(std::string(300, 'n'), x)), leftInRequests},
      {"a FIFO in claimed", Ground::plain, inClaimed([=] { fifo(claimedX); }), leftInClaimed},
      {"a looping link in claimed", Ground::plain, inClaimed(link("x.json", claimedX)),
       leftInClaimed},
      {"an archived name that cannot be examined", Ground::plain,
       [=] {
         fs::create_symlink("x.json", in("completed", "x.json"));
         drop("x.json", requestDocument("dup", tone()));
         queueGood();
       },
       [=] {
         EXPECT_TRUE(present(x));
         EXPECT_FALSE(present(in("responses", "dup.json")));
         expectGoodServed();
       }},
      {"a FIFO as the delivery log", Ground::plain,
       inClaimed([=] { fifo(home.bridge() / "delivery.log"); }),
       [=] {
         EXPECT_TRUE(fs::is_fifo(home.bridge() / "delivery.log"));
         expectAnswered("cut", kInterrupted, "c.json");
         expectGoodServed();
       }},
      // Nobody can own this bridge until the FIFO goes, so nothing in it is touched.
      {"a FIFO as the owner's lock", Ground::plain,
       inClaimed([=] { fifo(home.bridge() / "bridge.lock"); }),
       [=] {
         EXPECT_EQ(namesIn("claimed"), Names{"c.json"});
         EXPECT_EQ(namesIn("requests"), Names{"y.json"});
         EXPECT_FALSE(present(home.bridge() / "bridge_state.json"));
       }},
      {"a FIFO as the state file's temporary", Ground::plain,
       inRequests([=] { fifo(home.bridge() / "bridge_state.json.tmp"); }),
       [=] {
         EXPECT_TRUE(fs::is_regular_file(home.bridge() / "bridge_state.json"));
         expectGoodServed();
       }},
      {"a request the process may not read", Ground::plain,
       [=] {
         drop("x.json", requestDocument("secret", tone()));
         fs::permissions(x, fs::perms::none);
         queueGood();
         dropPrivileges();
       },
       [=] {
         expectAnswered("x", kInvalid, "x.json");
         expectGoodServed();
       }},
      {"a 17 MiB request", Ground::plain, inRequests([=] { oversized(x); }),
       [=] {
         expectAnswered("x", kInvalid, "x.json");
         EXPECT_EQ(host().allItems().size(), 1u);
         expectGoodServed();
       }},
      {"a 17 MiB claimed request", Ground::plain, [=] { oversized(claimedX); },
       [=] { expectAnswered("x", kInterrupted, "x.json"); }},
      {"10,000 queued requests", Ground::plain,
       [=] {
         char name[16];
         for (int i = 0; i < 10'000; ++i)
           std::snprintf(name, sizeof name, "r%05d.json", 9'999 - i), drop(name, "{");
       },
       [=] {
         EXPECT_EQ(namesIn("failed"),
                   (Names{"r00000.json", "r00001.json", "r00002.json", "r00003.json"}));
         EXPECT_EQ(namesIn("requests").size(), 9'996u);
         EXPECT_EQ(logLines(), 4);
       }},
      {"600 queued behind an archive folder that cannot be examined", Ground::plain,
       [=] {
         char name[16];
         for (int i = 0; i < 600; ++i)
           std::snprintf(name, sizeof name, "r%03d.json", i), drop(name, "{");
       },
       [=] {
         // The first was answered before; none after is carried out, all wait.
         EXPECT_EQ(namesIn("requests").size(), 599u);
         EXPECT_EQ(namesIn("responses"), Names{"r000.json"});
         EXPECT_EQ(namesIn("claimed"), Names{});
         EXPECT_EQ(logLines(), 1);
       },
       [=] {
         fs::remove_all(home.bridge() / "failed");
         fs::create_symlink("failed", home.bridge() / "failed");
       }},
      {"the bridge folder deleted and re-created while running", Ground::plain, [] {},
       [=] { expectGoodServed(); },
       [=] {
         fs::remove_all(home.bridge());
         runTick(lastQueuePoll + 1s);
         ASSERT_TRUE(ensureDirectories());
         queueGood();
       }},
  };
  runAll(cases);
}

TEST_F(HostileFileSystem, AFullOrReadOnlyDiskLosesAnswersButNeitherBlocksNorBreaksTheBridge) {
  const Step arrange = [this] { claimInterrupted(), queueGood(); };
  const std::vector<Case> cases = {
      {"a full disk", Ground::fullDisk, arrange,
       [=] {
         // Renames need no room: both files are archived, though neither answer was written.
         EXPECT_EQ(namesIn("failed"), Names{"c.json"});
         EXPECT_EQ(namesIn("completed"), Names{"y.json"});
         EXPECT_FALSE(present(in("responses", "good.json")) ||
                      present(in("responses", "cut.json")));
         EXPECT_EQ(host().allItems().size(), 1u);
       }},
      {"a read-only bridge folder", Ground::readOnly, arrange,
       [=] {
         EXPECT_EQ(namesIn("claimed"), Names{"c.json"});
         EXPECT_EQ(namesIn("requests"), Names{"y.json"});
         EXPECT_EQ(namesIn("responses"), Names{});
         EXPECT_TRUE(host().allItems().empty());
       }},
  };
  runAll(cases);
}

}  // namespace
