#include "bridge/claim_recovery.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/bridge_fixture.h"

namespace fs = std::filesystem;
using testing_support::readAll;
using testing_support::writeAll;
using Names = std::vector<std::string>;

namespace {

const std::string kInterrupted =
    "Previous Quillmere delivery was interrupted; not retried to avoid a duplicate";

class ClaimRecovery : public testing_support::BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    for (const char* name : {"claimed", "responses", "completed", "failed"}) {
      fs::create_directories(queue(name));
    }
    host().addTrack(true);
  }
};

TEST_F(ClaimRecovery, FailsEveryClaimedRequestWithoutCarryingItOut) {
  writeAll(queue("claimed") / "r1.json", requestDocument("abc", tone()));
  writeAll(queue("claimed") / "x y.json", "{");
  writeAll(queue("claimed") / "job-7.json", "{");
  writeAll(queue("claimed") / "notes.txt", "{");
  writeAll(queue("completed") / "r1.json", "done before");

  quillmere::failInterruptedClaims();

  struct Expected {
    const char* responseId;
    int projectItemId;
  };
  for (const Expected& e :
       {Expected{"abc", 17}, Expected{"interrupted-request", 0}, Expected{"job-7", 0}}) {
    SCOPED_TRACE(e.responseId);
    EXPECT_EQ(readAll(queue("responses") / (std::string(e.responseId) + ".json")),
              std::string(R"({"version":2,"request_id":")") + e.responseId +
                  R"(","project_item_id":)" + std::to_string(e.projectItemId) +
                  R"(,"ok":false,"message":")" + kInterrupted +
                  R"(","track_index":0,"position_seconds":0.000000000,"output_path":""})"
                  "\n");
  }
  EXPECT_EQ(namesIn("failed"), (Names{"job-7.json", "r1.json", "x y.json"}));
  EXPECT_EQ(namesIn("claimed"), Names{"notes.txt"});
  EXPECT_EQ(readAll(queue("completed") / "r1.json"), "done before");
  const std::string log = readAll(home.bridge() / "delivery.log");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3);
  EXPECT_TRUE(host().allItems().empty());
  EXPECT_TRUE(host().calls.empty());
}

TEST_F(ClaimRecovery, WritesNothingWhenClaimedIsEmptyOrMissing) {
  quillmere::failInterruptedClaims();
  fs::remove(queue("claimed"));
  quillmere::failInterruptedClaims();
  EXPECT_TRUE(namesIn("responses").empty());
  EXPECT_FALSE(fs::exists(home.bridge() / "delivery.log"));
}

}  // namespace
