#include "report/delivery_log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <locale>
#include <string>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using quillmere::appendDeliveryLog;
using quillmere::SpotRequest;
using quillmere::SpotResult;
using testing_support::readAll;
using testing_support::TempHome;

namespace {

std::int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

class CommaDecimals : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

void append(const std::string& id, bool ok, const std::string& message) {
  SpotRequest request;
  request.request_id = id;
  request.project_item_id = 99;
  SpotResult result;
  result.ok = ok;
  result.message = message;
  result.track_index = 3;
  result.position_seconds = 1.5;
  result.output_path = "/a.wav";
  appendDeliveryLog(request, result);
}

TEST(DeliveryLog, AppendsOneStampedLinePerCallInOrder) {
  TempHome home;
  fs::create_directories(home.bridge());
  const struct {
    std::string id;
    bool ok;
    std::string message;
    std::string expectedTail;  // the line after its time stamp
  } lines[] = {
      {"d1f0", false, "Select a REAPER track first",
       ",\"request_id\":\"d1f0\",\"ok\":false,\"message\":\"Select a REAPER track first\"}\n"},
      {"", true, "two\nlines \"quoted\" \xe5\x90\x8d",
       ",\"request_id\":\"\",\"ok\":true,\"message\":\"two\\nlines \\\"quoted\\\" "
       "\xe5\x90\x8d\"}\n"},
  };
  const std::int64_t before = nowMs();
  {
    // A grouping global locale would turn the time stamp into 1.763.254.512.345.
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
    for (const auto& line : lines) append(line.id, line.ok, line.message);
    std::locale::global(previous);
  }
  const std::int64_t after = nowMs();

  const std::string log = readAll(home.bridge() / "delivery.log");
  std::size_t start = 0;
  for (const auto& line : lines) {
    SCOPED_TRACE(line.id);
    const std::string prefix = "{\"timestamp_ms\":";
    ASSERT_EQ(log.compare(start, prefix.size(), prefix), 0) << log;
    const std::size_t digits = start + prefix.size();
    const std::size_t end = log.find_first_not_of("0123456789", digits);
    ASSERT_NE(end, std::string::npos);
    const std::int64_t stamp = std::stoll(log.substr(digits, end - digits));
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
    ASSERT_EQ(log.compare(end, line.expectedTail.size(), line.expectedTail), 0) << log;
    start = end + line.expectedTail.size();
  }
  EXPECT_EQ(start, log.size());
}

TEST(DeliveryLog, WritesNothingAndCreatesNoFolderWithoutTheBridgeFolder) {
  TempHome home;
  append("d1f0", true, "Spotted");
  EXPECT_TRUE(fs::is_empty(home.path()));
}

}  // namespace
