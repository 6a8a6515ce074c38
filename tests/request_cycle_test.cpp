#include "bridge/request_cycle.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using quillmere::processOneRequest;
using testing_support::readAll;
using testing_support::writeAll;
using Names = std::vector<std::string>;

namespace {

class RequestCycle : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    for (const char* name : {"requests", "claimed", "responses", "completed", "failed"}) {
      fs::create_directories(queue(name));
    }
    host().addTrack(false);
    host().addTrack(true);
    host().cursor = 12.5;
  }

  std::string response(const std::string& id) const {
    return readAll(queue("responses") / (id + ".json"));
  }
  size_t logLines() const {
    const std::string log = readAll(home.bridge() / "delivery.log");
    return static_cast<size_t>(std::count(log.begin(), log.end(), '\n'));
  }
};

TEST_F(RequestCycle, TakesOneRequestPerCallInByteOrderOfNames) {
  for (const char* name : {"b.json", "a.json", "Z.json", "9.json", "10.json", "a.b.json"}) {
    drop(name, "{");
  }
  const Names order = {"10.json", "9.json", "Z.json", "a.b.json", "a.json", "b.json"};
  Names archived;
  for (const std::string& expected : order) {
    SCOPED_TRACE(expected);
    processOneRequest();
    archived.push_back(expected);
    std::sort(archived.begin(), archived.end());
    EXPECT_EQ(namesIn("failed"), archived);
  }
  EXPECT_EQ(logLines(), order.size());
}

TEST_F(RequestCycle, LeavesEverythingButExactJsonFilesAlone) {
  drop("a.JSON", "{");
  drop(".json", "{");
  drop("notes.txt", "{");
  fs::create_directories(queue("requests") / "folder.json");
  fs::create_symlink(queue("requests") / "missing", queue("requests") / "dangling.json");
  processOneRequest();
  EXPECT_EQ(namesIn("requests"),
            (Names{".json", "a.JSON", "dangling.json", "folder.json", "notes.txt"}));
  EXPECT_TRUE(namesIn("responses").empty());
  EXPECT_FALSE(fs::exists(home.bridge() / "delivery.log"));
}

TEST_F(RequestCycle, SilentlyDropsARequestWhoseNameIsAlreadyArchived) {
  for (const char* archive : {"completed", "failed"}) {
    SCOPED_TRACE(archive);
    writeAll(queue(archive) / "x.json", "earlier");
    drop("x.json", requestDocument("x", tone()));
    processOneRequest();
    EXPECT_TRUE(namesIn("requests").empty());
    EXPECT_TRUE(namesIn("claimed").empty());
    EXPECT_EQ(readAll(queue(archive) / "x.json"), "earlier");
    EXPECT_TRUE(namesIn("responses").empty());
    EXPECT_FALSE(fs::exists(home.bridge() / "delivery.log"));
    fs::remove(queue(archive) / "x.json");
  }
  EXPECT_TRUE(host().allItems().empty());
}

TEST_F(RequestCycle, AnswersAnInvalidDocumentUnderItsStemOrAFixedId) {
  struct Case {
    const char* file;
    const char* responseId;
  };
  const std::vector<Case> cases = {
      {"broken.json", "broken"}, {"a.b.json", "invalid-request"}, {"x y.json", "invalid-request"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    drop(c.file, "{");
    processOneRequest();
    EXPECT_EQ(response(c.responseId),
              std::string(R"({"version":2,"request_id":")") + c.responseId +
                  R"(","project_item_id":0,"ok":false,"message":"Invalid Quillmere spot request",)"
                  R"("track_index":0,"position_seconds":0.000000000,"output_path":""})"
                  "\n");
    EXPECT_TRUE(fs::exists(queue("failed") / c.file));
    EXPECT_TRUE(namesIn("claimed").empty());
  }
  EXPECT_EQ(logLines(), cases.size());
}

TEST_F(RequestCycle, NamesTheResponseAfterTheRequestIdAndArchivesByOutcome) {
  const std::string source = tone();
  drop("001.json", requestDocument("abc", source, R"(,"display_name":"Kick 01")"));
  processOneRequest();
  EXPECT_EQ(response("abc"), R"({"version":2,"request_id":"abc","project_item_id":17,"ok":true,)"
                             R"("message":"Spotted to selected REAPER track","track_index":2,)"
                             R"("position_seconds":12.500000000,"output_path":")" +
                                 source + "\"}\n");
  EXPECT_EQ(namesIn("completed"), Names{"001.json"});
  ASSERT_EQ(host().allItems().size(), 1u);
  EXPECT_EQ(host().undoHistory.back().label, "Quillmere: Spot Kick 01");

  host().trackByNumber(2)->selected = false;
  drop("002.json", requestDocument("abc", source));
  processOneRequest();
  EXPECT_NE(response("abc").find(R"("ok":false,"message":"Select a REAPER track first")"),
            std::string::npos);
  EXPECT_EQ(namesIn("failed"), Names{"002.json"});
  EXPECT_EQ(logLines(), 2u);
}

TEST_F(RequestCycle, AnswersASourceTheFileSystemCannotCheckAsMissing) {
  fs::create_symlink(home.path() / "loop", home.path() / "loop");
  const std::string source = (home.path() / "loop" / "take.wav").string();
  drop("r.json", requestDocument("r", source));
  processOneRequest();
  EXPECT_NE(response("r").find(R"("ok":false,"message":"Quillmere source file is missing")"),
            std::string::npos);
  EXPECT_NE(response("r").find(source), std::string::npos);
  EXPECT_EQ(namesIn("failed"), Names{"r.json"});
  EXPECT_EQ(logLines(), 1u);
  EXPECT_TRUE(host().undoHistory.empty());
}

TEST_F(RequestCycle, BlocksTheQueueWhileClaimedIsMissing) {
  fs::remove(queue("claimed"));
  drop("a.json", "{");
  drop("b.json", "{");
  processOneRequest();
  processOneRequest();
  EXPECT_EQ(namesIn("requests"), (Names{"a.json", "b.json"}));
  EXPECT_TRUE(namesIn("responses").empty());
}

TEST_F(RequestCycle, ArchivingReplacesAnOlderFileOfTheSameName) {
  writeAll(queue("failed") / "r.json", "older");
  writeAll(queue("claimed") / "r.json", "newer");
  quillmere::archiveClaimed(queue("claimed") / "r.json", false);
  EXPECT_EQ(readAll(queue("failed") / "r.json"), "newer");
  EXPECT_TRUE(namesIn("claimed").empty());
}

}  // namespace
