#include "report/delivery_log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "support/temp_home.h"

using namespace std::chrono;

TEST(DeliveryLog, WritesNothingWithoutTheBridgeFolderAndThenAppendsOneStampedLinePerCall) {
  testing_support::TempHome home;
  quillmere::appendDeliveryLog({}, {});
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  std::filesystem::create_directories(home.bridge());
  const auto before = system_clock::now().time_since_epoch() / 1ms;
  quillmere::appendDeliveryLog({0, "d1f0", 0, "", "", "", 0, 0, 0, 0, 0}, {false, "No", 0, 0, ""});
  quillmere::appendDeliveryLog({}, {true, "a\n\"b\"", 0, 0, ""});
  const std::string log = testing_support::readAll(home.bridge() / "delivery.log");
  const auto stamp = std::stoll(log.substr(16));  // after {"timestamp_ms":
  EXPECT_TRUE(before <= stamp && stamp <= system_clock::now().time_since_epoch() / 1ms) << log;
  EXPECT_EQ(std::regex_replace(log, std::regex("\"timestamp_ms\":\\d+,"), "\"timestamp_ms\":T,"),
            "{\"timestamp_ms\":T,\"request_id\":\"d1f0\",\"ok\":false,\"message\":\"No\"}\n"
            "{\"timestamp_ms\":T,\"request_id\":\"\",\"ok\":true,\"message\":\"a\\n\\\"b\\\"\"}\n");
}
