#include "bridge/request_cycle.h"

#include <iterator>
#include <vector>

#include "platform/utf8_path.h"
#include "support/bridge_fixture.h"
#include "support/comma_locale.h"
#ifdef __linux__
#include "support/folder_events.h"
#endif

namespace fs = std::filesystem;
using namespace testing_support;
using quillmere::processOneRequest;

namespace {

class RequestCycle : public BridgeTest {};

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
    processOneRequest();
    EXPECT_EQ(namesIn("failed"), Names(order.begin(), order.begin() + taken));
  }
  processOneRequest();
  EXPECT_EQ(namesIn("requests"), (Names{".json", "c.JSON", "folder.json", "notes.txt"}));
}

TEST_F(RequestCycle, SilentlyDropsARequestWhoseNameIsAlreadyArchived) {
  for (const char* archive : {"completed", "failed"}) {
    writeAll(queue(archive) / (archive + std::string(".json")), "earlier");
    drop(archive + std::string(".json"), "{");
  }
  processOneRequest();
  processOneRequest();
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
    processOneRequest();
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
    processOneRequest();
    EXPECT_NE(response(c.id).find(c.answer), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(queue(c.archive) / c.file));
  }
  EXPECT_EQ(host().allItems().size(), 1u);
  EXPECT_EQ(readAll(real), requestDocument("linked", tone()));
  EXPECT_EQ(namesIn("requests"), Names{"kept"});
}

TEST_F(RequestCycle, LeavesARequestItCannotClaimQueuedWithNoResponseAndNoLogLine) {
  fs::remove(queue("claimed"));
  drop("a.json", requestDocument("a", tone()));
  processOneRequest();
  EXPECT_EQ(namesIn("requests"), Names{"a.json"});
  EXPECT_EQ(namesIn("responses"), Names{});
  EXPECT_FALSE(fs::exists(home.bridge() / "delivery.log"));
  EXPECT_TRUE(host().allItems().empty());
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
    processOneRequest();
    EXPECT_EQ(events.take(),
              (std::vector<std::string>{"claimed/" + file + " in", "responses/" + id + ".json in",
                                        "delivery.log written", "claimed/" + file + " out"}));
  }
}
#endif

TEST_F(RequestCycle, WritesClassicNumbersUnderAGroupingGlobalLocale) {
  CommaLocale comma;
  host().cursor = 1234.5;
  std::string document = requestDocument("a", tone());
  drop("a.json", document.replace(document.find(":17,"), 4, ":1234567,"));
  processOneRequest();
  EXPECT_NE(response("a").find(R"("project_item_id":1234567,)"), std::string::npos);
  EXPECT_NE(response("a").find(R"("position_seconds":1234.500000000,)"), std::string::npos);
  const std::string log = readAll(home.bridge() / "delivery.log");
  EXPECT_EQ(log.find_first_not_of("0123456789", 16), log.find(",\"request_id\""));
}

}  // namespace
