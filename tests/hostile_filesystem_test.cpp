// Whatever stands in the bridge folder, a load and its ticks finish, and the requests behind a
// bad entry are still served. Each case runs in a forked child, its load and ticks under an alarm,
// so an open that blocks fails the case instead of hanging the run.
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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

class HostileFileSystem;
using Step = std::function<void(HostileFileSystem&)>;

// What the bridge folder stands on: the test's own folder, or a tmpfs mounted over it.
enum class Ground { plain, fullDisk, readOnly };

struct Case {
  const char* name;
  Ground ground;
  Step arrange;
  Step check;
  Step midway = nullptr;  // between the first tick and the others
};

class HostileFileSystem : public BridgeTest {
 public:
  // The cases reach the fixture through a reference, so its helpers are opened to them.
  using BridgeTest::drop;
  using BridgeTest::logLines;
  using BridgeTest::namesIn;
  using BridgeTest::requestDocument;
  using BridgeTest::response;
  using BridgeTest::tone;
  using HostTest::home;
  using HostTest::host;

  fs::path in(const char* folder, const std::string& name) const { return queue(folder) / name; }
  void fifo(const fs::path& path) const { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0) << path; }
  void socket(const fs::path& path) const {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // Bound by its bare name, as the whole path may be longer than a socket address holds.
    fs::current_path(path.parent_path());
    std::strncpy(address.sun_path, path.filename().c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  void link(const fs::path& target, const fs::path& path) const {
    fs::create_symlink(target, path);
  }
  // A valid request that would be carried out if it were read, made huge by a sparse tail.
  void oversized(const fs::path& path, std::uintmax_t size) {
    writeAll(path, requestDocument("big", tone()));
    fs::resize_file(path, size);
  }
  // A valid request queued behind every bad entry of the table, which are named x.json.
  void queueGood() { drop("y.json", requestDocument("good", tone())); }
  void expectGoodServed() const {
    EXPECT_EQ(namesIn("completed").count("y.json"), 1u);
    EXPECT_NE(response("good").find(R"("ok":true,)"), std::string::npos);
  }
  void claimInterrupted() { writeAll(in("claimed", "c.json"), requestDocument("cut", tone())); }
  void expectInterruptedFailed() const {
    EXPECT_EQ(namesIn("failed").count("c.json"), 1u);
    EXPECT_NE(response("cut").find(kInterrupted), std::string::npos);
  }
  void expectAnswered(const char* id, const char* answer, const char* archived) const {
    EXPECT_NE(response(id).find(answer), std::string::npos) << id;
    EXPECT_EQ(namesIn("failed").count(archived), 1u) << archived;
  }
  bool present(const fs::path& path) const { return fs::exists(fs::symlink_status(path)); }

  // A load, four ticks a second apart, an unload: the way the host drives the bridge.
  void drive(const Case& c) {
    ASSERT_EQ(ReaperPluginEntry(nullptr, &host().record), 1);
    for (int tick = 0; tick < 4; ++tick) {
      if (tick == 1 && c.midway) c.midway(*this);
      runTick(lastQueuePoll + 1s);
    }
    ReaperPluginEntry(nullptr, nullptr);
  }

  // In the child: the ground, the case, and an exit status that tells the parent what happened.
  [[noreturn]] void runInChild(const Case& c) {
    // The child inherits the failures of earlier cases; only its own count.
    const int earlier = failures();
    const auto failed = [&] { return failures() > earlier; };
    try {
      if (c.ground != Ground::plain) prepareGround(c.ground);
      c.arrange(*this);
      if (c.ground == Ground::fullDisk) fillDisk();
      if (c.ground == Ground::readOnly) makeReadOnly();
      // Only the bridge's own work is timed; making ten thousand files may take a while.
      ::alarm(kWatchdogSeconds);
      if (!failed()) drive(c);
      ::alarm(0);
      if (!failed()) c.check(*this);
      expectSettled();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "threw: " << error.what();
    }
    std::fflush(stdout);
    ::_exit(failed() ? 1 : 0);
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
        continue;
      }
      if (WIFSIGNALED(status)) {
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
  void makeReadOnly() const {
    if (::mount("tmpfs", home.bridge().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0)
      cannotMount("read-only remount");
  }
};

// Names and the bridge tree open to everyone, then the child gives up root for good.
void dropPrivileges(HostileFileSystem& t) {
  fs::permissions(t.home.path(), fs::perms::owner_all | fs::perms::group_exec |
                                     fs::perms::others_exec | fs::perms::others_read);
  for (const auto& entry : fs::recursive_directory_iterator(t.home.path() / "Library"))
    if (entry.is_directory()) fs::permissions(entry.path(), fs::perms::all);
  for (fs::path up = t.home.bridge(); up != t.home.path(); up = up.parent_path())
    fs::permissions(up, fs::perms::all);
  ASSERT_EQ(::setgroups(0, nullptr), 0);
  ASSERT_EQ(::setgid(65534), 0);
  ASSERT_EQ(::setuid(65534), 0);
}

TEST_F(HostileFileSystem, NoEntryStallsTheQueueOrTheLoadAndEveryOtherRequestIsServed) {
  const Step leftInRequests = [](HostileFileSystem& t) {
    EXPECT_TRUE(t.present(t.in("requests", "x.json")));
    EXPECT_EQ(t.namesIn("failed"), Names{});
    t.expectGoodServed();
  };
  const Step leftInClaimed = [](HostileFileSystem& t) {
    EXPECT_TRUE(t.present(t.in("claimed", "x.json")));
    t.expectInterruptedFailed();
    t.expectGoodServed();
  };
  const Step oversized = [](HostileFileSystem& t) {
    t.expectAnswered("x", kInvalid, "x.json");
    EXPECT_EQ(t.host().allItems().size(), 1u);
    t.expectGoodServed();
  };
  const auto inRequests = [](Step make) {
    return [make](HostileFileSystem& t) { make(t), t.queueGood(); };
  };
  const auto inClaimed = [](Step make) {
    return [make](HostileFileSystem& t) { make(t), t.claimInterrupted(), t.queueGood(); };
  };
  const std::vector<Case> cases = {
      {"a FIFO in requests", Ground::plain,
       inRequests([](auto& t) { t.fifo(t.in("requests", "x.json")); }), leftInRequests},
      {"a socket in requests", Ground::plain,
       inRequests([](auto& t) { t.socket(t.in("requests", "x.json")); }), leftInRequests},
      {"a dangling link in requests", Ground::plain,
       inRequests([](auto& t) { t.link("nowhere.json", t.in("requests", "x.json")); }),
       leftInRequests},
      {"a looping link in requests", Ground::plain,
       inRequests([](auto& t) { t.link("x.json", t.in("requests", "x.json")); }), leftInRequests},
      {"a link to an over-long name in requests", Ground::plain,
       inRequests([](auto& t) { t.link(std::string(300, 'n'), t.in("requests", "x.json")); }),
       leftInRequests},
      {"a FIFO in claimed", Ground::plain,
       inClaimed([](auto& t) { t.fifo(t.in("claimed", "x.json")); }), leftInClaimed},
      {"a socket in claimed", Ground::plain,
       inClaimed([](auto& t) { t.socket(t.in("claimed", "x.json")); }), leftInClaimed},
      {"a dangling link in claimed", Ground::plain,
       inClaimed([](auto& t) { t.link("nowhere.json", t.in("claimed", "x.json")); }),
       leftInClaimed},
      {"a looping link in claimed", Ground::plain,
       inClaimed([](auto& t) { t.link("x.json", t.in("claimed", "x.json")); }), leftInClaimed},
      {"an archived name that cannot be examined", Ground::plain,
       [](auto& t) {
         t.link("x.json", t.in("completed", "x.json"));
         t.drop("x.json", t.requestDocument("dup", t.tone()));
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_TRUE(t.present(t.in("requests", "x.json")));
         EXPECT_FALSE(t.present(t.in("responses", "dup.json")));
         t.expectGoodServed();
       }},
      {"a FIFO as the delivery log", Ground::plain,
       [](auto& t) {
         t.fifo(t.home.bridge() / "delivery.log");
         t.claimInterrupted();
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_TRUE(fs::is_fifo(t.home.bridge() / "delivery.log"));
         t.expectInterruptedFailed();
         t.expectGoodServed();
       }},
      {"a dangling link as the delivery log", Ground::plain,
       [](auto& t) {
         t.link("nowhere.log", t.home.bridge() / "delivery.log");
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_TRUE(fs::is_symlink(t.home.bridge() / "delivery.log"));
         EXPECT_FALSE(t.present(t.home.bridge() / "nowhere.log"));
         t.expectGoodServed();
       }},
      // Nobody can own this bridge until the FIFO goes, so nothing in it is touched.
      {"a FIFO as the owner's lock", Ground::plain,
       [](auto& t) {
         t.fifo(t.home.bridge() / "bridge.lock");
         t.claimInterrupted();
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_EQ(t.namesIn("claimed"), Names{"c.json"});
         EXPECT_EQ(t.namesIn("requests"), Names{"y.json"});
         EXPECT_FALSE(t.present(t.home.bridge() / "bridge_state.json"));
       }},
      {"a FIFO as a response's temporary", Ground::plain,
       [](auto& t) {
         t.fifo(t.in("responses", "good.json.tmp"));
         t.queueGood();
       },
       [](auto& t) {
         t.expectGoodServed();
         EXPECT_FALSE(t.present(t.in("responses", "good.json.tmp")));
       }},
      {"a FIFO as the state file's temporary", Ground::plain,
       [](auto& t) {
         t.fifo(t.home.bridge() / "bridge_state.json.tmp");
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_TRUE(fs::is_regular_file(t.home.bridge() / "bridge_state.json"));
         t.expectGoodServed();
       }},
      {"a request the process may not read", Ground::plain,
       [](auto& t) {
         t.drop("x.json", t.requestDocument("secret", t.tone()));
         fs::permissions(t.in("requests", "x.json"), fs::perms::none);
         t.queueGood();
         dropPrivileges(t);
       },
       [](auto& t) {
         t.expectAnswered("x", kInvalid, "x.json");
         t.expectGoodServed();
       }},
      {"a 50 MB request", Ground::plain,
       inRequests([](auto& t) { t.oversized(t.in("requests", "x.json"), 50'000'000); }), oversized},
      {"a 17 MiB request", Ground::plain,
       inRequests([](auto& t) { t.oversized(t.in("requests", "x.json"), 17u << 20); }), oversized},
      {"a 17 MiB claimed request", Ground::plain,
       [](auto& t) { t.oversized(t.in("claimed", "x.json"), 17u << 20); },
       [](auto& t) { t.expectAnswered("x", kInterrupted, "x.json"); }},
      {"10,000 queued requests", Ground::plain,
       [](auto& t) {
         char name[16];
         for (int i = 0; i < 10'000; ++i)
           std::snprintf(name, sizeof name, "r%05d.json", 9'999 - i), t.drop(name, "{");
       },
       [](auto& t) {
         EXPECT_EQ(t.namesIn("failed"),
                   (Names{"r00000.json", "r00001.json", "r00002.json", "r00003.json"}));
         EXPECT_EQ(t.namesIn("requests").size(), 9'996u);
         EXPECT_EQ(t.logLines(), 4);
       }},
      {"600 queued behind an archive folder that cannot be examined", Ground::plain,
       [](auto& t) {
         char name[16];
         for (int i = 0; i < 600; ++i)
           std::snprintf(name, sizeof name, "r%03d.json", i), t.drop(name, "{");
       },
       [](auto& t) {
         // The first was answered before; none after is carried out, all wait.
         EXPECT_EQ(t.namesIn("requests").size(), 599u);
         EXPECT_EQ(t.namesIn("responses"), Names{"r000.json"});
         EXPECT_EQ(t.namesIn("claimed"), Names{});
         EXPECT_EQ(t.logLines(), 1);
       },
       [](auto& t) {
         fs::remove_all(t.home.bridge() / "failed");
         t.link("failed", t.home.bridge() / "failed");
       }},
      {"the bridge folder deleted and re-created while running", Ground::plain, [](auto&) {},
       [](auto& t) { t.expectGoodServed(); },
       [](auto& t) {
         fs::remove_all(t.home.bridge());
         runTick(lastQueuePoll + 1s);
         ASSERT_TRUE(ensureDirectories());
         t.queueGood();
       }},
  };
  runAll(cases);
}

TEST_F(HostileFileSystem, AFullOrReadOnlyDiskLosesAnswersButNeitherBlocksNorBreaksTheBridge) {
  const std::vector<Case> cases = {
      {"a full disk", Ground::fullDisk,
       [](auto& t) {
         t.claimInterrupted();
         t.queueGood();
       },
       [](auto& t) {
         // Renames need no room: both files are archived, though neither answer was written.
         EXPECT_EQ(t.namesIn("failed"), Names{"c.json"});
         EXPECT_EQ(t.namesIn("completed"), Names{"y.json"});
         EXPECT_FALSE(t.present(t.in("responses", "good.json")));
         EXPECT_FALSE(t.present(t.in("responses", "cut.json")));
         EXPECT_EQ(t.host().allItems().size(), 1u);
       }},
      {"a read-only bridge folder", Ground::readOnly,
       [](auto& t) {
         t.claimInterrupted();
         t.queueGood();
       },
       [](auto& t) {
         EXPECT_EQ(t.namesIn("claimed"), Names{"c.json"});
         EXPECT_EQ(t.namesIn("requests"), Names{"y.json"});
         EXPECT_EQ(t.namesIn("responses"), Names{});
         EXPECT_TRUE(t.host().allItems().empty());
       }},
  };
  runAll(cases);
}

}  // namespace
