#include "report/delivery_log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>

#include "support/temp_home.h"

namespace {

using namespace quillmere;
using namespace std::chrono;

TEST(DeliveryLog, WritesNothingWithoutTheBridgeFolderAndThenOneStampedLinePerCall) {
  testing_support::TempHome home;
  appendDeliveryLog({}, {});
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  std::filesystem::create_directories(home.bridge());
  const auto before = floor<milliseconds>(system_clock::now()).time_since_epoch().count();
  SpotRequest request;
  request.request_id = "d1f0";
  appendDeliveryLog(request, {false, "No track", 2, 1.5, "/a.wav"});
  appendDeliveryLog({}, {true, "a\n\"b\"", 0, 0, ""});
  const auto after = floor<milliseconds>(system_clock::now()).time_since_epoch().count();
  const std::string log = testing_support::readAll(home.bridge() / "delivery.log");
  const std::regex stamp("\"timestamp_ms\":(\\d+),");
  for (std::sregex_iterator it(log.begin(), log.end(), stamp), end; it != end; ++it)
    EXPECT_TRUE(before <= std::stoll((*it)[1]) && std::stoll((*it)[1]) <= after) << it->str();
  EXPECT_EQ(std::regex_replace(log, stamp, "\"timestamp_ms\":T,"),
            "{\"timestamp_ms\":T,\"request_id\":\"d1f0\",\"ok\":false,\"message\":\"No track\"}\n"
            "{\"timestamp_ms\":T,\"request_id\":\"\",\"ok\":true,\"message\":\"a\\n\\\"b\\\"\"}\n");
}

}  // namespace
