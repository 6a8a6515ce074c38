// quillmere-bridge run as a program against the real library loaded in the stand-in host, and
// against bridge folders laid out by hand. The waits are bounded waits for events, not pacing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "fake_reaper/fake_reaper.h"
#include "platform/file_lock.h"
#include "quillmere_bridge/request_drop.h"
#include "report/response_document.h"
#include "support/child_process.h"
#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace testing_support;
using nlohmann::json;
using ::testing::HasSubstr;
using Args = std::vector<std::string>;
using quillmere::FileLock;

namespace {

class BridgeTool : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("TZ", "UTC0", 1); }

  fs::path bridge() const { return home.bridge(); }
  fs::path queue(const char* name) const { return bridge() / name; }
  Finished tool(Args args) const {
    args.insert(args.begin(), QUILLMERE_BRIDGE_TOOL_PATH);
    return runProgram(args);
  }
  json statusJson() const { return json::parse(tool({"status", "--json"}).out); }

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
    standin_.reset();
    return readAll(home.path() / "standin.out");
  }

  std::string tone() const {
    const fs::path path = home.path() / "Audio" / "take.wav";
    fs::create_directories(path.parent_path());
    if (!fs::exists(path)) {
      EXPECT_TRUE(fake_reaper::writeTestTone(path.string(), 2.0, 8000));
    }
    return path.string();
  }

  // A bridge laid out by hand, afresh, its heartbeat written `ageMs` ago.
  void stoppedBridge(std::int64_t ageMs) const {
    fs::remove_all(bridge());
    for (const char* name :
         {"requests", "claimed", "responses", "completed", "failed", "acknowledged"})
      fs::create_directories(queue(name));
    const auto now = std::chrono::system_clock::now().time_since_epoch() / 1ms;
    writeAll(bridge() / "bridge_state.json",
             R"({"version":2,"mode":"native_extension","extension_version":"1.2.0",)"
             R"("timestamp_ms":)" +
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

std::vector<std::string> idsIn(const std::string& text) {
  std::vector<std::string> ids;
  for (const json& line : jsonLines(text)) ids.push_back(line.value("request_id", "?"));
  return ids;
}

std::string logLine(const std::string& id, bool ok, const std::string& message) {
  return R"({"timestamp_ms":1763254512345,"request_id":")" + id + R"(","ok":)" +
         (ok ? "true" : "false") + R"(,"message":")" + message + "\"}\n";
}

TEST_F(BridgeTool, StatusReportsTheRunningExtensionWithWhatReaperToldIt) {
  startStandin({"--tracks", "3", "--select", "2", "--cursor", "12.5", "--media-path",
                (home.path() / "Project Media").string()});
  const Finished text = tool({"status"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  for (const char* said :
       {"running, version 1.2.0, heartbeat", "1 selected track, edit cursor at 12.500 s",
        "Project Media", "All is well."})
    EXPECT_THAT(text.out, HasSubstr(said));
  const json status = statusJson();
  EXPECT_EQ(status["alive"], true);
  EXPECT_EQ(status["heartbeat"]["cursor"], 12.5);
  EXPECT_EQ(status["problems"].size(), 0u);
}

TEST_F(BridgeTool, EveryCommandSaysInOneLineThatTheBridgeFolderIsMissing) {
  for (const Args& command : std::vector<Args>{{"status"}, {"log"}, {"spot", "/tmp/x.wav"}}) {
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
  stoppedBridge(0);
  // The contents, or nullopt for a FIFO that no writer will ever open.
  for (const std::optional<std::string>& contents :
       {std::optional<std::string>(""),
        {"garbage"},
        {R"({"timestamp_ms":"soon"})"},
        {"[1,2]"},
        {R"({"version":2,"mode":"native_extension","timestamp_ms":17)"},
        {"\xff\xfe{\"timestamp_ms\":1}"},
        {}}) {
    SCOPED_TRACE(contents.value_or("a FIFO"));
    fs::remove(bridge() / "bridge_state.json");
    if (contents) writeAll(bridge() / "bridge_state.json", *contents);
    if (!contents) {
      ASSERT_EQ(::mkfifo((bridge() / "bridge_state.json").c_str(), 0600), 0);
    }
    const Finished finished = tool({"status"});
    EXPECT_FALSE(finished.timedOut);
    EXPECT_EQ(finished.exitCode, 3) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr(contents ? "Problem: bridge_state.json "
                                                 : "bridge_state.json is not a regular file"));
    if (contents) {
      EXPECT_EQ(statusJson()["heartbeat"]["reading"], "unreadable");
    }
  }
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
  const json response = json::parse(readAll(queue("responses") / namesIn("completed").front()));
  EXPECT_EQ(response["project_item_id"], 17);
  const std::string host = stopStandin();
  EXPECT_THAT(host, HasSubstr("undo point: Quillmere: Spot Kick 01\n"));
  EXPECT_THAT(host, HasSubstr("violations: 0"));
}

TEST_F(BridgeTool, SpotPrintsEachRefusalWithItsMessageAndWhatToDo) {
  const std::string project = (home.path() / "bound.rpp").string();
  writeAll(project, "");
  // The host's arguments, the spot's, the message and the advice printed.
  const std::tuple<Args, Args, std::string, const char*> cases[] = {
      {{},
       {"spot", (home.path() / "gone.wav").string()},
       "Quillmere source file is missing",
       "Check that the audio file exists"},
      {{"--project-file", project},
       {"spot", tone(), "--project", (home.path() / "other.rpp").string()},
       "REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp",
       "Open the project the request was made for"},
  };
  for (const auto& [host, spot, message, advice] : cases) {
    SCOPED_TRACE(message);
    startStandin(host);
    const Finished finished = tool(spot);
    EXPECT_EQ(finished.exitCode, 1) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("Failed: " + message + " (request "));
    EXPECT_THAT(finished.out, HasSubstr(advice));
    EXPECT_THAT(stopStandin(), HasSubstr("violations: 0"));
  }
}

TEST_F(BridgeTool, StatusTellsWhoHoldsTheBridgeAndWhetherASecondReaperWaits) {
  struct Case {
    bool owner, waiter;
    std::int64_t heartbeatAgeMs;
    int exitCode;
    std::vector<std::string> said;
  };
  const Case cases[] = {
      {false,
       false,
       3 * 60 * 1000 + 500,
       3,
       {"NOT RUNNING", "Owner          none (bridge.lock is not held)\n", "Second REAPER  none\n",
        "Problem: The extension is not running (last heartbeat 3 minutes ago): start REAPER"}},
      {true, false, 0, 0, {"Owner          process 4711 holds bridge.lock\n", "All is well."}},
      {true,
       false,
       30 * 1000 + 500,
       3,
       {"Problem: REAPER (process 4711) holds the bridge, but its last heartbeat was 30 seconds "
        "ago: it is busy (a render, a modal dialog) or hung, and requests wait"}},
      {true,
       true,
       0,
       0,
       {"Second REAPER  WAITING for the lock\n",
        "Problem: A second REAPER is waiting for this bridge: only the REAPER that holds "
        "bridge.lock (process 4711) serves requests"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.said.front());
    stoppedBridge(c.heartbeatAgeMs);
    writeAll(bridge() / "bridge.lock", "4711\n");
    FileLock owner, waiter;
    if (c.owner) {
      ASSERT_EQ(owner.tryTake(bridge() / "bridge.lock", FileLock::Kind::exclusive),
                FileLock::Attempt::taken);
    }
    if (c.waiter) {
      ASSERT_EQ(waiter.tryTake(bridge() / "bridge.waiting", FileLock::Kind::shared),
                FileLock::Attempt::taken);
    }
    const Finished text = tool({"status"});
    EXPECT_EQ(text.exitCode, c.exitCode) << text.err;
    for (const std::string& said : c.said) EXPECT_THAT(text.out, HasSubstr(said));
    const json status = statusJson();
    EXPECT_EQ(status["owner"]["lock"], c.owner ? "held" : "free");
    EXPECT_EQ(status["owner"]["pid"], c.owner ? json(4711) : json());
    EXPECT_EQ(status["second_instance_waiting"], c.waiter);
    EXPECT_EQ(status["alive"], c.heartbeatAgeMs < 5000);
  }
}

TEST_F(BridgeTool, StatusSaysWhichQueueFolderCannotBeUsedAndWhatThatMeansForRequests) {
  // The folder, what stands in its place (nothing, a file, or a link to the target given), its
  // state, and what is said.
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"requests", "", "missing",
       "Problem: The folder \"requests\" is missing, so no request can be dropped"},
      {"claimed", "file", "not_a_folder",
       "Problem: \"claimed\" is a regular file, not a folder: requests wait in \"requests\" until "
       "it is a plain folder again"},
      {"failed", "failed", "cannot_be_examined",
       "Problem: The folder \"failed\" cannot be examined (Too many levels of symbolic links): "
       "requests wait in \"requests\""},
      {"responses", "nowhere", "not_a_folder",
       "Problem: \"responses\" is a link to nothing, not a folder: requests are carried out, but "
       "their responses cannot be written"},
  };
  for (const auto& [folder, instead, state, said] : cases) {
    SCOPED_TRACE(folder);
    stoppedBridge(0);
    fs::remove(queue(folder));
    if (instead == std::string("file")) {
      writeAll(queue(folder), "");
    } else if (*instead) {
      fs::create_symlink(instead, queue(folder));
    }
    const Finished text = tool({"status"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_THAT(text.out, HasSubstr(said));
    EXPECT_EQ(statusJson()["folders"][folder]["state"], state);
  }
}

TEST_F(BridgeTool, SpotReportsTheAnswerStandingWhenTheRequestIsArchived) {
  const std::string stem = "20261123T120000000000Z-1", name = stem + ".json";
  quillmere::SpotRequest request;
  request.request_id = stem;
  const auto respond = [&](const std::string& message) {
    quillmere::SpotResult result;
    result.message = message;
    writeAll(queue("responses") / name, quillmere::responseJson(request, result));
  };
  const auto claim = [&] { fs::rename(queue("requests") / name, queue("claimed") / name); };
  const auto archive = [&] { fs::rename(queue("claimed") / name, queue("failed") / name); };
  const std::string interrupted =
      "Previous Quillmere delivery was interrupted; not retried to avoid a duplicate";
  struct Case {
    const char* what;
    std::string responseId;
    std::vector<std::function<void()>> extension;  // one step each time the tool looks
    std::string message;  // of the answer reported; empty when it timed out
  };
  const Case cases[] = {
      {"a response replaced before the archive (a crash, a second instance)",
       stem,
       {[&] { claim(), respond("Spotted to selected REAPER track"); },
        [&] { respond(interrupted), archive(); }},
       interrupted},
      {"archived with a log line but no response (a full disk)",
       stem,
       {claim,
        [&] {
          writeAll(bridge() / "delivery.log", logLine(stem, false, "Select a REAPER track first"));
          archive();
        }},
       "Select a REAPER track first"},
      {"an unreadable request answered under its file's stem",
       "declared-in-the-document",
       {claim, [&] { respond("Invalid Quillmere spot request"), archive(); }},
       "Invalid Quillmere spot request"},
      {"claimed, then the time limit passes", stem, {claim}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    stoppedBridge(0);
    const bridge_tool::Drop drop = bridge_tool::dropRequest(bridge(), stem, "{}");
    ASSERT_TRUE(drop.dropped) << drop.problem;
    std::size_t step = 0;
    const bridge_tool::Wait wait =
        bridge_tool::awaitAnswer(bridge(), stem, c.responseId, drop,
                                 c.message.empty() ? 50ms : 5000ms, [&](const char*, auto) {
                                   if (step < c.extension.size()) c.extension[step++]();
                                 });
    EXPECT_EQ(wait.end, c.message.empty() ? bridge_tool::Wait::End::TimedOut
                                          : bridge_tool::Wait::End::Answered);
    const std::string reported = !wait.response.empty()
                                     ? json::parse(wait.response)["message"].get<std::string>()
                                 : wait.logged ? wait.logged->message
                                               : "";
    EXPECT_EQ(reported, c.message);
    EXPECT_EQ(wait.claimed, c.message.empty());
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
  for (const Args& usage : std::vector<Args>{{},
                                             {"spot"},
                                             {"spot", file, "--rate", "5"},
                                             {"spot", file, "--gain-db", "loud"},
                                             {"spot", file, "--offset", "1"},
                                             {"spot", file, "--timeout", "0"},
                                             {"log", "--last", "many"},
                                             {"send", (home.path() / "absent.json").string()}}) {
    SCOPED_TRACE(::testing::PrintToString(usage));
    const Finished finished = tool(usage);
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_THAT(finished.err, HasSubstr("quillmere-bridge: "));
    EXPECT_TRUE(namesIn("requests").empty());
  }
}

TEST_F(BridgeTool, SpotGivesUpAtItsTimeoutOrOnAStoppedExtensionAndLeavesNothingQueued) {
  stoppedBridge(60 * 1000);
  const Finished stopped = tool({"spot", tone()});
  EXPECT_EQ(stopped.exitCode, 3);
  EXPECT_THAT(stopped.err, HasSubstr("REAPER with the extension is not running (its last "
                                     "heartbeat was 60 seconds ago); nothing was sent"));
  EXPECT_TRUE(namesIn("requests").empty());

  startStandin();
  // No request can be checked against an archive that cannot be examined: every request waits.
  fs::remove(queue("completed"));
  fs::create_symlink("completed", queue("completed"));
  const Finished finished = tool({"spot", tone(), "--timeout", "0.4"});
  EXPECT_EQ(finished.exitCode, 3);
  EXPECT_THAT(finished.err, HasSubstr("no answer within 400 ms; the request was taken back "
                                      "unclaimed, so nothing will be placed"));
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
  const std::vector<json> last = jsonLines(tool({"log", "--last", "1", "--json"}).out);
  ASSERT_EQ(last.size(), 1u);
  EXPECT_EQ(last[0]["local_time"], "2025-11-16 00:55:13.000");
}

TEST_F(BridgeTool, LogReadsTheRotatedLogBeforeTheCurrentOne) {
  stoppedBridge(0);
  writeAll(bridge() / "delivery.log.1", logLine("a", true, "m") + logLine("b", true, "m"));
  writeAll(bridge() / "delivery.log", logLine("c", false, "m"));
  EXPECT_EQ(idsIn(tool({"log", "--json"}).out), Args({"a", "b", "c"}));
  EXPECT_EQ(idsIn(tool({"log", "--json", "--last", "2"}).out), Args({"b", "c"}));
  fs::remove(bridge() / "delivery.log");  // renamed away, no new line yet
  EXPECT_EQ(idsIn(tool({"log", "--json"}).out), Args({"a", "b"}));
}

TEST_F(BridgeTool, LogFollowPrintsEachLineOnceItIsComplete) {
  stoppedBridge(0);
  writeAll(bridge() / "delivery.log", logLine("old", true, "m"));
  Background follow({QUILLMERE_BRIDGE_TOOL_PATH, "log", "--follow", "--json", "--last", "1"},
                    home.path() / "follow.out");
  const auto printed = [&](long lines) {
    return eventually([&] {
      const std::string text = readAll(home.path() / "follow.out");
      return std::count(text.begin(), text.end(), '\n') == lines;
    });
  };
  ASSERT_TRUE(printed(1));
  std::ofstream log(bridge() / "delivery.log", std::ios::app | std::ios::binary);
  log << R"({"timestamp_ms":2,"request_id":"new","ok":false,)" << std::flush;
  log << R"("message":"Select a REAPER track first"})"
      << "\n"
      << std::flush;
  ASSERT_TRUE(printed(2));
  // The last line before the log is renamed away is printed once, from whichever file holds it.
  log << logLine("last-before", true, "m") << std::flush;
  log.close();
  fs::rename(bridge() / "delivery.log", bridge() / "delivery.log.1");
  writeAll(bridge() / "delivery.log", logLine("first-after", true, "m"));
  ASSERT_TRUE(printed(4));
  follow.stop(15);
  EXPECT_EQ(idsIn(readAll(home.path() / "follow.out")),
            Args({"old", "new", "last-before", "first-after"}));
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
  EXPECT_EQ(status["stale_temporaries"], json({{"requests", 1}, {"extension", 1}}));
  EXPECT_EQ(status["stuck_claims"], json::array({"r1.json"}));
  const std::string problems = status["problems"].dump();
  for (const char* problem :
       {"1 request was cut short when REAPER stopped",
        "3 entries in \\\"requests\\\" or \\\"claimed\\\" cannot be read as a file",
        "1 unfinished request in \\\"requests\\\" (not renamed to a .json name for over a minute)",
        "1 stale .tmp file of the extension's own writes", "delivery.log is not a regular file"})
    EXPECT_THAT(problems, HasSubstr(problem));
  EXPECT_EQ(tool({"log"}).exitCode, 1);
}

TEST_F(BridgeTool, AProducerWrittenFromTheGuideAloneIsAnswered) {
  startStandin({"--tracks", "2", "--select", "1"});
  const Finished finished = runProgram(
      {"/bin/sh", QUILLMERE_SOURCE_DIR "/tests/producers/guide_producer.sh", tone(), "Guide take"});
  EXPECT_EQ(finished.exitCode, 0) << finished.err;
  const json response = json::parse(finished.out);
  EXPECT_EQ(response["message"], "Spotted to selected REAPER track");
  EXPECT_EQ(response["track_index"], 1);
  EXPECT_THAT(stopStandin(), HasSubstr("undo point: Quillmere: Spot Guide take\n"));
}

}  // namespace
