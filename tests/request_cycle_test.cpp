#include "bridge/request_cycle.h"

#include <gtest/gtest.h>

#include "bridge/bridge_directory.h"
#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using namespace testing_support;
using quillmere::processOneRequest;

namespace {

class RequestCycle : public BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    ASSERT_TRUE(quillmere::ensureDirectories());
  }
};

TEST_F(RequestCycle, TakesOneRequestPerCallInByteOrderOfNames) {
  for (const char* name : {"b.json", "a.json", "Z.json", "9.json", "10.json"}) drop(name, "{");
  const Names order = {"10.json", "9.json", "Z.json", "a.json", "b.json"};
  for (size_t taken = 1; taken <= order.size(); ++taken) {
    processOneRequest();
    EXPECT_EQ(namesIn("requests"), Names(order.begin() + taken, order.end()));
  }
}

TEST_F(RequestCycle, LeavesEverythingButExactJsonFilesAlone) {
  for (const char* name : {"a.JSON", ".json", "notes.txt"}) drop(name, "{");
  fs::create_directories(queue("requests") / "folder.json");
  processOneRequest();
  EXPECT_EQ(namesIn("requests"), (Names{".json", "a.JSON", "folder.json", "notes.txt"}));
}

TEST_F(RequestCycle, SilentlyDropsARequestWhoseNameIsAlreadyArchived) {
  for (const char* archive : {"completed", "failed"}) {
    SCOPED_TRACE(archive);
    writeAll(queue(archive) / "x.json", "earlier");
    drop("x.json", "{");
    processOneRequest();
    EXPECT_TRUE(namesIn("requests").empty());
    EXPECT_EQ(readAll(queue(archive) / "x.json"), "earlier");
    fs::remove(queue(archive) / "x.json");
  }
  EXPECT_TRUE(namesIn("responses").empty());
}

TEST_F(RequestCycle, AnswersAnInvalidDocumentUnderItsStemOrAFixedId) {
  const std::pair<const char*, const char*> cases[] = {{"broken.json", "broken"},
                                                       {"a.b.json", "invalid-request"}};
  for (const auto& [file, id] : cases) {
    SCOPED_TRACE(file);
    drop(file, "{");
    processOneRequest();
    EXPECT_NE(response(id).find(R"("ok":false,"message":"Invalid Quillmere spot request")"),
              std::string::npos);
    EXPECT_TRUE(fs::exists(queue("failed") / file));
  }
  EXPECT_EQ(logLines(), 2);
}

TEST_F(RequestCycle, NamesTheResponseAfterTheRequestIdAndArchivesByOutcome) {
  drop("001.json", requestDocument("abc", tone()));
  processOneRequest();
  EXPECT_NE(response("abc").find(R"("ok":true,)"), std::string::npos);
  EXPECT_EQ(namesIn("completed"), Names{"001.json"});

  // A source behind a link loop makes the file-system check itself fail.
  fs::create_symlink(home.path() / "loop", home.path() / "loop");
  drop("002.json", requestDocument("abc", (home.path() / "loop" / "take.wav").string()));
  processOneRequest();
  EXPECT_NE(response("abc").find(R"("ok":false,"message":"Quillmere source file is missing")"),
            std::string::npos);
  EXPECT_EQ(namesIn("failed"), Names{"002.json"});
  EXPECT_EQ(logLines(), 2);
}

TEST_F(RequestCycle, BlocksTheQueueWhileClaimedIsMissing) {
  fs::remove(queue("claimed"));
  drop("a.json", "{");
  processOneRequest();
  EXPECT_EQ(namesIn("requests"), Names{"a.json"});
  EXPECT_TRUE(namesIn("responses").empty());
}

}  // namespace
