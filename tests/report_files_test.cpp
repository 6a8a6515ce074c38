#include "bridge/report_files.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "report/delivery_log.h"
#include "support/comma_locale.h"
#include "support/host_fixture.h"

namespace fs = std::filesystem;

namespace {

using namespace std::chrono;
using Heartbeat = testing_support::HostTest;

TEST_F(Heartbeat, DescribesTheProjectInOneLineInAFolderItRecreatesWhateverTheGlobalLocale) {
  testing_support::CommaLocale comma;
  host().mediaPath = "\\\xc3\xa9\"";
  host().cursor = 1234.5678901234;
  for (const bool selected : {true, false, true}) host().addTrack(selected);
  quillmere::writeHeartbeat();
  std::filesystem::remove_all(home.bridge());
  const auto before = system_clock::now().time_since_epoch() / 1ms;
  quillmere::writeHeartbeat();
  std::string text = testing_support::readAll(home.bridge() / "bridge_state.json");
  const auto at = text.find("\"timestamp_ms\":") + 15;
  const auto stamp = std::stoll(text.substr(at));
  EXPECT_TRUE(before <= stamp && stamp <= system_clock::now().time_since_epoch() / 1ms) << text;
  EXPECT_EQ(text.replace(at, text.find(',', at) - at, "T"),
            "{\"version\":2,\"mode\":\"native_extension\",\"extension_version\":\"1.2.0\","
            "\"timestamp_ms\":T,\"selected_tracks\":2,\"cursor\":1234.567890123,"
            "\"project_media_path\":\"\\\\\xc3\xa9\\\"\"}\n");
}

TEST_F(Heartbeat, TakesAMediaPathThatFillsTheWholeBufferWithoutATerminatorToItsLastByte) {
  host().unterminatedStrings = true;
  const std::string path4096 = "/" + std::string(4094, 'm') + "Z";
  for (const std::string& reported : {path4096, path4096 + "beyond the buffer"}) {
    SCOPED_TRACE(reported.size());
    host().mediaPath = reported;
    quillmere::writeHeartbeat();
    const std::string text = testing_support::readAll(home.bridge() / "bridge_state.json");
    const auto at = text.find("\"project_media_path\":\"") + 22;
    const std::string written = text.substr(at, text.size() - at - 3);  // before "}\n
    EXPECT_EQ(written.size(), 4096u);
    EXPECT_TRUE(written == path4096) << written.substr(0, 20) << "..." << written.substr(4080);
  }
}

// Every time stamp of a log as T, so that texts written at different moments compare.
std::string stampsMasked(std::string text) {
  const std::string key = "\"timestamp_ms\":";
  for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at)) {
    at += key.size();
    std::size_t end = at;
    while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
    text.replace(at, end - at, "T");
  }
  return text;
}

const quillmere::SpotRequest kRequest{0, "d1f0", 0, "", "", "", 0, 0, 0, 0, 0};
const quillmere::SpotResult kResult{false, "No", 0, 0, ""};

TEST(DeliveryLog, WritesNothingWithoutTheBridgeFolderAndThenAppendsOneStampedLinePerCall) {
  testing_support::CommaLocale comma;
  testing_support::TempHome home;
  quillmere::appendDeliveryLog({}, {});
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  std::filesystem::create_directories(home.bridge());
  const auto before = system_clock::now().time_since_epoch() / 1ms;
  quillmere::appendDeliveryLog(kRequest, kResult);
  quillmere::appendDeliveryLog({}, {true, "a\n\"b\"", 0, 0, ""});
  const std::string log = testing_support::readAll(home.bridge() / "delivery.log");
  const auto stamp = std::stoll(log.substr(16));  // after {"timestamp_ms":
  EXPECT_TRUE(before <= stamp && stamp <= system_clock::now().time_since_epoch() / 1ms) << log;
  EXPECT_EQ(stampsMasked(log),
            "{\"timestamp_ms\":T,\"request_id\":\"d1f0\",\"ok\":false,\"message\":\"No\"}\n"
            "{\"timestamp_ms\":T,\"request_id\":\"\",\"ok\":true,\"message\":\"a\\n\\\"b\\\"\"}\n");
}

TEST(DeliveryLog, EndsALineCutShortAndPutsTheLogAsideBeforeALineWouldTakeItPastEightMebibytes) {
  testing_support::TempHome home;
  const fs::path log = home.bridge() / "delivery.log", aside = home.bridge() / "delivery.log.1";
  const std::string line = stampsMasked(quillmere::deliveryLogLine(kRequest, kResult));
  const std::size_t room = quillmere::deliveryLogLine(kRequest, kResult).size();
  // The log and the one put aside, before the append and after it (time stamps masked).
  struct Case {
    const char* name;
    std::string log;
    std::optional<std::string> aside;
    std::string logAfter;
    std::optional<std::string> asideAfter;
  };
  const Case cases[] = {
      {"a line cut short", "{\"timestamp_ms\":1,\"req", "older",
       "{\"timestamp_ms\":T,\"req\n" + line, "older"},
      {"room for the line to the last byte", std::string((8 << 20) - room - 1, 'x') + "\n",
       std::nullopt, std::string((8 << 20) - room - 1, 'x') + "\n" + line, std::nullopt},
      // The line feed that ends the cut line needs one byte more than there is.
      {"room for the line but not the line feed", std::string((8 << 20) - room, 'x'), "older", line,
       std::string((8 << 20) - room, 'x')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(home.bridge());
    fs::create_directories(home.bridge());
    testing_support::writeAll(log, c.log);
    if (c.aside) testing_support::writeAll(aside, *c.aside);
    quillmere::appendDeliveryLog(kRequest, kResult);
    const std::string after = stampsMasked(testing_support::readAll(log));
    EXPECT_EQ(after.size(), c.logAfter.size());
    EXPECT_TRUE(after == c.logAfter) << after.substr(after.size() > 100 ? after.size() - 100 : 0);
    EXPECT_EQ(fs::exists(aside), c.asideAfter.has_value());
    if (c.asideAfter) {
      EXPECT_TRUE(testing_support::readAll(aside) == *c.asideAfter);
    }
  }
}

TEST(DeliveryLog, LosesTheLineRatherThanFollowAnyLinkInTheLogsPlace) {
  testing_support::TempHome home;
  fs::create_directories(home.bridge());
  const fs::path log = home.bridge() / "delivery.log";
  testing_support::writeAll(home.path() / "elsewhere", "kept\n");
  for (const char* target : {"elsewhere", "nowhere"}) {
    SCOPED_TRACE(target);
    fs::remove(log);
    if (!testing_support::makeSymlink(home.path() / target, log))
      GTEST_SKIP() << "no symbolic links on this platform";
    quillmere::appendDeliveryLog(kRequest, kResult);
    EXPECT_TRUE(fs::is_symlink(log));
  }
  EXPECT_EQ(testing_support::readAll(home.path() / "elsewhere"), "kept\n");
  EXPECT_FALSE(fs::exists(home.path() / "nowhere"));
}

#ifndef _WIN32
TEST(DeliveryLog, SkipsALineThatWouldCrossTheFileSizeLimitInsteadOfEndingTheProcess) {
  testing_support::TempHome home;
  const fs::path log = home.bridge() / "delivery.log";
  testing_support::writeAll(log, "{}\n");
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // Crossing the limit would raise SIGXFSZ, whose default ends the process.
    const rlimit limit{10, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    quillmere::appendDeliveryLog(kRequest, kResult);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "ended by a signal";
  EXPECT_EQ(testing_support::readAll(log), "{}\n");
}
#endif

}  // namespace
