// quillmere-bridge run as a program against the real library loaded in the stand-in host, and
// against bridge folders laid out by hand. The waits are bounded waits for events, not pacing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "fake_reaper/fake_reaper.h"
#include "support/child_process.h"
#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace testing_support;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using Args = std::vector<std::string>;

class BridgeTool : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("TZ", "UTC0", 1); }

  fs::path bridge() const { return home.bridge(); }
  fs::path queue(const char* name) const { return bridge() / name; }

  Finished tool(Args args) const {
    args.insert(args.begin(), QUILLMERE_BRIDGE_TOOL_PATH);
    return runProgram(args);
  }

  // The stand-in host with the real library, until stopped or the test ends.
  void startStandin(Args extra = {}) {
    stopStandin();
    fs::remove(bridge() / "bridge_state.json");
    Args args = {QUILLMERE_STANDIN_PATH, "--module", QUILLMERE_MODULE_PATH};
    args.insert(args.end(), extra.begin(), extra.end());
    standin_.emplace(args, home.path() / "standin.out");
    ASSERT_TRUE(eventually([&] { return fs::exists(bridge() / "bridge_state.json"); }))
        << readAll(home.path() / "standin.out");
  }
  std::string stopStandin() {
    if (!standin_) return "";
    standin_->stop();
    standin_.reset();
    return readAll(home.path() / "standin.out");
  }

  std::string tone(double seconds = 2.0) const {
    const fs::path path = home.path() / "Audio" / "take.wav";
    fs::create_directories(path.parent_path());
    if (!fs::exists(path)) {
      EXPECT_TRUE(fake_reaper::writeTestTone(path.string(), seconds, 8000));
    }
    return path.string();
  }

  // A bridge laid out by hand, its heartbeat written `ageMs` ago.
  void stoppedBridge(std::int64_t ageMs) const {
    for (const char* name :
         {"requests", "claimed", "responses", "completed", "failed", "acknowledged"}) {
      fs::create_directories(queue(name));
    }
    const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count();
    writeAll(
        bridge() / "bridge_state.json",
        R"({"version":2,"mode":"native_extension","extension_version":"1.2.0","timestamp_ms":)" +
            std::to_string(now - ageMs) +
            R"(,"selected_tracks":1,"cursor":0.000000000,"project_media_path":""})"
            "\n");
  }

  std::vector<std::string> namesIn(const char* folder) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(queue(folder)))
      names.push_back(entry.path().filename().string());
    return names;
  }

  TempHome home;
  std::optional<Background> standin_;
};

std::vector<json> jsonLines(const std::string& text) {
  std::vector<json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
  return lines;
}

TEST_F(BridgeTool, StatusReportsTheRunningExtensionWithWhatReaperToldIt) {
  startStandin({"--tracks", "3", "--select", "2", "--cursor", "12.5", "--media-path",
                (home.path() / "Project Media").string()});
  const Finished text = tool({"status"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_THAT(text.out, HasSubstr("running, version 1.2.0, heartbeat"));
  EXPECT_THAT(text.out, HasSubstr("1 selected track, edit cursor at 12.500 s"));
  EXPECT_THAT(text.out, HasSubstr("Project Media"));
  EXPECT_THAT(text.out, HasSubstr("All is well."));

  const Finished asJson = tool({"status", "--json"});
  EXPECT_EQ(asJson.exitCode, 0);
  const json status = json::parse(asJson.out);
  EXPECT_EQ(status["alive"], true);
  EXPECT_EQ(status["heartbeat"]["selected_tracks"], 1);
  EXPECT_EQ(status["heartbeat"]["cursor"], 12.5);
  EXPECT_EQ(status["problems"].size(), 0u);
}

TEST_F(BridgeTool, StatusCallsAnExtensionWhoseHeartbeatIsOldNotRunning) {
  stoppedBridge(3 * 60 * 1000 + 500);
  const Finished text = tool({"status"});
  EXPECT_EQ(text.exitCode, 3);
  EXPECT_THAT(text.out, HasSubstr("NOT RUNNING"));
  EXPECT_THAT(text.out, HasSubstr("Problem: The extension is not running (last heartbeat 3 "
                                  "minutes ago): start REAPER"));
  EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["alive"], false);
}

TEST_F(BridgeTool, EveryCommandSaysInOneLineThatTheBridgeFolderIsMissing) {
  const std::vector<Args> commands = {{"status"}, {"log"}, {"spot", "/tmp/x.wav"}};
  for (const Args& command : commands) {
    SCOPED_TRACE(command.front());
    const Finished finished = tool(command);
    EXPECT_EQ(finished.exitCode, 3);
    const std::string said = finished.out + finished.err;
    EXPECT_THAT(said, HasSubstr("no bridge folder at " + bridge().string()));
    if (command.front() != "status") {
      EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    }
  }
}

TEST_F(BridgeTool, StatusCallsAnUnreadableStateFileNotRunningWithoutCrashingOrBlocking) {
  const std::vector<std::pair<const char*, std::string>> states = {
      {"empty", ""},
      {"not JSON", "garbage"},
      {"no time stamp", "{}"},
      {"time stamp as text", R"({"timestamp_ms":"soon"})"},
      {"fractional time stamp", R"({"timestamp_ms":1.5})"},
      {"an array", "[1,2]"},
      {"cut short", R"({"version":2,"mode":"native_extension","timestamp_ms":17)"},
      {"bytes that are not UTF-8", "\xff\xfe{\"timestamp_ms\":1}"},
  };
  stoppedBridge(0);
  for (const auto& [what, contents] : states) {
    SCOPED_TRACE(what);
    writeAll(bridge() / "bridge_state.json", contents);
    const Finished finished = tool({"status"});
    EXPECT_EQ(finished.exitCode, 3) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("Problem: bridge_state.json "));
    EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["heartbeat"]["reading"], "unreadable");
  }
  fs::remove(bridge() / "bridge_state.json");
  ASSERT_EQ(::mkfifo((bridge() / "bridge_state.json").c_str(), 0600), 0);
  const Finished fifo = tool({"status"});
  EXPECT_FALSE(fifo.timedOut);
  EXPECT_EQ(fifo.exitCode, 3);
  EXPECT_THAT(fifo.out, HasSubstr("Problem: bridge_state.json is not a regular file"));
}

TEST_F(BridgeTool, SpotPlacesTheFileAndPrintsWhereWithTheRoundTrip) {
  startStandin({"--tracks", "3", "--select", "2", "--cursor", "12.5"});
  const Finished finished = tool({"spot", tone(), "--name", "Kick 01", "--gain-db", "-6", "--rate",
                                  "2", "--offset", "0.25", "--length", "1.5", "--item-id", "17"});
  EXPECT_EQ(finished.exitCode, 0) << finished.err;
  EXPECT_THAT(finished.out,
              ::testing::MatchesRegex("Spotted to selected REAPER track: track 2 at 12.500 s "
                                      "\\(request [0-9]{8}T[0-9]{12}Z-[0-9]+, round trip "
                                      "[0-9]+ ms\\)\n"));
  ASSERT_EQ(namesIn("completed").size(), 1u);
  const std::string name = namesIn("completed").front();
  const json response = json::parse(readAll(queue("responses") / name));
  EXPECT_EQ(response["project_item_id"], 17);
  EXPECT_EQ(response["ok"], true);
  const std::string host = stopStandin();
  EXPECT_THAT(host, HasSubstr("undo point: Quillmere: Spot Kick 01\n"));
  EXPECT_THAT(host, HasSubstr("violations: 0"));
}

TEST_F(BridgeTool, SpotPrintsEachRefusalWithItsMessageAndWhatToDo) {
  const std::string project = (home.path() / "bound.rpp").string();
  writeAll(project, "");
  struct Case {
    const char* what;
    Args host;
    Args spot;
    std::string message;
    const char* advice;
  };
  const std::vector<Case> cases = {
      {"source missing",
       {},
       {"spot", (home.path() / "gone.wav").string()},
       "Quillmere source file is missing",
       "Check that the audio file exists"},
      {"no track selected",
       {"--select", "none"},
       {"spot", tone()},
       "Select a REAPER track first",
       "Select a track in REAPER"},
      {"another project open",
       {"--project-file", project},
       {"spot", tone(), "--project", (home.path() / "other.rpp").string()},
       "REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp",
       "Open the project the request was made for"},
      {"range past the end",
       {},
       {"spot", tone(2.0), "--offset", "5", "--length", "1"},
       "Quillmere visible handle range is invalid",
       "ask for a range inside the file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    startStandin(c.host);
    const Finished finished = tool(c.spot);
    EXPECT_EQ(finished.exitCode, 1) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("Failed: " + c.message + " (request "));
    EXPECT_THAT(finished.out, HasSubstr(c.advice));
    EXPECT_THAT(stopStandin(), HasSubstr("violations: 0"));
  }
}

TEST_F(BridgeTool, SendDropsADocumentAsItIsAndNamesTheResponseAsTheExtensionDoes) {
  startStandin();
  writeAll(home.path() / "broken.json", "{");
  const Finished broken = tool({"send", (home.path() / "broken.json").string()});
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_THAT(broken.out, HasSubstr("Failed: Invalid Quillmere spot request"));
  EXPECT_THAT(broken.err, HasSubstr("warning: the extension's reader refuses this document"));

  writeAll(home.path() / "own.json", R"({"version":1,"command":"spot","request_id":"mine-1",)"
                                     R"("project_item_id":3,"source_path":")" +
                                         tone() + "\"}");
  for (int round = 0; round < 2; ++round) {  // the second answer is byte for byte the first
    SCOPED_TRACE(round);
    const Finished own = tool({"send", (home.path() / "own.json").string(), "--json"});
    EXPECT_EQ(own.exitCode, 0) << own.err;
    const json printed = json::parse(own.out);
    EXPECT_EQ(printed["request_id"], "mine-1");
    EXPECT_EQ(printed["response"]["ok"], true);
  }
}

TEST_F(BridgeTool, BadUsageEndsWithCodeTwoAndDropsNothing) {
  stoppedBridge(0);
  const std::string file = tone();
  const std::vector<Args> usages = {
      {},
      {"spot"},
      {"spot", file, "--rate", "5"},
      {"spot", file, "--gain-db", "loud"},
      {"spot", file, "--offset", "1"},
      {"spot", file, "--item-id", "-1"},
      {"spot", file, "--timeout", "0"},
      {"status", "--verbose"},
      {"log", "--last", "many"},
      {"send", (home.path() / "absent.json").string()},
  };
  for (const Args& usage : usages) {
    SCOPED_TRACE(::testing::PrintToString(usage));
    const Finished finished = tool(usage);
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_THAT(finished.err, HasSubstr("quillmere-bridge: "));
    EXPECT_TRUE(namesIn("requests").empty());
  }
}

TEST_F(BridgeTool, SpotGivesUpAtItsTimeoutAndTakesTheUnclaimedRequestBack) {
  startStandin();
  // With a file where "claimed" would be made again, the extension cannot claim anything.
  fs::remove(queue("claimed"));
  writeAll(queue("claimed"), "");
  const Finished finished = tool({"spot", tone(), "--timeout", "0.4"});
  EXPECT_EQ(finished.exitCode, 3);
  EXPECT_THAT(finished.err, HasSubstr("no response within 400 ms; the request was taken back "
                                      "unclaimed, so nothing will be placed"));
  EXPECT_TRUE(namesIn("requests").empty());
  EXPECT_THAT(tool({"status"}).out, HasSubstr("Problem: The folder \"claimed\" is missing"));
}

TEST_F(BridgeTool, SpotSendsNothingToAnExtensionThatIsNotRunning) {
  stoppedBridge(60 * 1000);
  const Finished finished = tool({"spot", tone()});
  EXPECT_EQ(finished.exitCode, 3);
  EXPECT_THAT(finished.err, HasSubstr("REAPER with the extension is not running (its last "
                                      "heartbeat was 60 seconds ago); nothing was sent"));
  EXPECT_TRUE(namesIn("requests").empty());
}

TEST_F(BridgeTool, LogShowsLinesAsATableAndMarksThoseItCannotRead) {
  stoppedBridge(0);
  writeAll(
      bridge() / "delivery.log",
      R"({"timestamp_ms":1763254512345,"request_id":"d1f0","ok":true,"message":"Spotted to selected REAPER track"})"
      "\nnot json at all\n"
      R"({"timestamp_ms":"x","request_id":"d1f1","ok":true,"message":"m"})"
      "\n"
      R"({"timestamp_ms":1763254513000,"request_id":"d1f2","ok":false,"message":"REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp"})"
      "\n{\"timestamp_ms\":1763254514000,\"request_id\":\"cut");
  const Finished table = tool({"log"});
  EXPECT_EQ(table.exitCode, 0) << table.err;
  EXPECT_EQ(table.out,
            "time                     request     result  message\n"
            "2025-11-16 00:55:12.345  d1f0        ok      Spotted to selected REAPER track\n"
            "?                        ?           ?       (unreadable log line: not json at all)\n"
            "?                        ?           ?       (unreadable log line: "
            R"({"timestamp_ms":"x","request_id":"d1f1","ok":true,"messag...))"
            "\n"
            "2025-11-16 00:55:13.000  d1f2        FAILED  REAPER 当前工程与 Quillmere "
            "绑定工程不一致，请切换工程或重新拖入 .rpp\n");

  const Finished last = tool({"log", "--last", "1", "--json"});
  const std::vector<json> lines = jsonLines(last.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["request_id"], "d1f2");
  EXPECT_EQ(lines[0]["local_time"], "2025-11-16 00:55:13.000");
  EXPECT_EQ(jsonLines(tool({"log", "--json"}).out).size(), 4u);
}

TEST_F(BridgeTool, LogFollowPrintsEachLineOnceItIsComplete) {
  stoppedBridge(0);
  writeAll(bridge() / "delivery.log",
           R"({"timestamp_ms":1,"request_id":"old","ok":true,"message":"m"})"
           "\n");
  Background follow({QUILLMERE_BRIDGE_TOOL_PATH, "log", "--follow", "--json", "--last", "1"},
                    home.path() / "follow.out");
  const auto linesPrinted = [&] {
    const std::string printed = readAll(home.path() / "follow.out");
    return std::count(printed.begin(), printed.end(), '\n');
  };
  ASSERT_TRUE(eventually([&] { return linesPrinted() == 1; }));
  std::ofstream log(bridge() / "delivery.log", std::ios::app | std::ios::binary);
  log << R"({"timestamp_ms":2,"request_id":"new","ok":false,)" << std::flush;
  log << R"("message":"Select a REAPER track first"})"
      << "\n"
      << std::flush;
  ASSERT_TRUE(eventually([&] { return linesPrinted() == 2; }));
  follow.stop(15);
  const std::vector<json> lines = jsonLines(readAll(home.path() / "follow.out"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["request_id"], "old");
  EXPECT_EQ(lines[1]["request_id"], "new");
  EXPECT_EQ(lines[1]["message"], "Select a REAPER track first");
}

TEST_F(BridgeTool, StatusCountsWhatTheExtensionPassesOverLeavesBehindOrWasCutShortOn) {
  stoppedBridge(10 * 60 * 1000);
  ASSERT_EQ(::mkfifo((queue("requests") / "fifo.json").c_str(), 0600), 0);
  fs::create_symlink("loop.json", queue("requests") / "loop.json");
  fs::create_directory(queue("requests") / "folder.json");
  writeAll(queue("requests") / "fresh.json.partial", "{");
  writeAll(queue("requests") / "old.json.partial", "{");
  writeAll(queue("responses") / "abc.json.tmp", "{");
  for (const fs::path& old :
       {queue("requests") / "old.json.partial", queue("responses") / "abc.json.tmp"})
    fs::last_write_time(old, fs::file_time_type::clock::now() - 2min);
  writeAll(queue("claimed") / "r1.json", "{}");
  ASSERT_EQ(::mkfifo((bridge() / "delivery.log").c_str(), 0600), 0);

  const Finished finished = tool({"status", "--json"});
  EXPECT_FALSE(finished.timedOut);
  EXPECT_EQ(finished.exitCode, 3);
  const json status = json::parse(finished.out);
  EXPECT_EQ(status["passed_over"], 3);
  EXPECT_EQ(status["stale_temporaries"], 2);
  EXPECT_EQ(status["stuck_claims"], json::array({"r1.json"}));
  const std::string problems = status["problems"].dump();
  EXPECT_THAT(problems, HasSubstr("1 request was cut short when REAPER stopped"));
  EXPECT_THAT(problems, HasSubstr("3 entries in \\\"requests\\\" or \\\"claimed\\\" cannot be "
                                  "read as a file"));
  EXPECT_THAT(problems, HasSubstr("2 temporary files are over a minute old"));
  EXPECT_THAT(problems, HasSubstr("delivery.log is not a regular file"));
  EXPECT_EQ(tool({"log"}).exitCode, 1);
}

TEST_F(BridgeTool, AProducerWrittenFromTheGuideAloneIsAnswered) {
  startStandin({"--tracks", "2", "--select", "1"});
  const Finished finished = runProgram(
      {"/bin/sh", QUILLMERE_SOURCE_DIR "/tests/producers/guide_producer.sh", tone(), "Guide take"});
  EXPECT_EQ(finished.exitCode, 0) << finished.err;
  const json response = json::parse(finished.out);
  EXPECT_EQ(response["ok"], true);
  EXPECT_EQ(response["message"], "Spotted to selected REAPER track");
  EXPECT_EQ(response["track_index"], 1);
  EXPECT_THAT(stopStandin(), HasSubstr("undo point: Quillmere: Spot Guide take\n"));
}

}  // namespace
