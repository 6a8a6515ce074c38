#include "bridge/claim_recovery.h"

#include "support/bridge_fixture.h"
#ifdef __linux__
#include "support/folder_events.h"
#endif

using namespace testing_support;

namespace {

class ClaimRecovery : public BridgeTest {};

TEST_F(ClaimRecovery, FailsEveryClaimedRequestWithoutCarryingItOut) {
  writeAll(queue("claimed") / "r1.json", requestDocument("abc", tone()));
  for (const char* name : {"x y.json", "job-7.json", "notes.txt"})
    writeAll(queue("claimed") / name, "{");
  writeAll(queue("completed") / "r1.json", "done before");
  writeAll(queue("failed") / "job-7.json", "failed before");
  quillmere::failInterruptedClaims();

  const char* const interrupted = R"("ok":false,"message":"Previous Quillmere delivery was )"
                                  R"(interrupted; not retried to avoid a duplicate")";
  for (const char* id : {"abc", "interrupted-request", "job-7"})
    EXPECT_NE(response(id).find(interrupted), std::string::npos) << id;
  EXPECT_EQ(namesIn("failed"), (Names{"job-7.json", "r1.json", "x y.json"}));
  EXPECT_EQ(readAll(queue("failed") / "job-7.json") + readAll(queue("completed") / "r1.json"),
            "{done before");
  EXPECT_EQ(namesIn("claimed"), Names{"notes.txt"});
  EXPECT_EQ(logLines(), 3);
  EXPECT_TRUE(host().allItems().empty());
}

// The watcher is inotify.
#ifdef __linux__
TEST_F(ClaimRecovery, AnswersAndLogsEachClaimBeforeAWatcherSeesItLeave) {
  for (const char* name : {"a.json", "b.json", "c.json"}) writeAll(queue("claimed") / name, "{");
  FolderEvents events(home.bridge());
  quillmere::failInterruptedClaims();
  const std::vector<std::string> seen = events.take();
  ASSERT_EQ(seen.size(), 9u);
  for (size_t at = 0; at < seen.size(); at += 3) {
    const std::string stem = seen[at + 2].substr(8, 1);  // "claimed/<stem>.json out"
    EXPECT_EQ(std::vector<std::string>(seen.begin() + at, seen.begin() + at + 3),
              (std::vector<std::string>{"responses/" + stem + ".json in", "delivery.log written",
                                        "claimed/" + stem + ".json out"}));
  }
}
#endif

}  // namespace
