#include "bridge/report_files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "support/comma_locale.h"
#include "support/host_fixture.h"

namespace {

using namespace std::chrono;
using Heartbeat = testing_support::HostTest;

TEST_F(Heartbeat, DescribesTheProjectInOneLineInAFolderItRecreatesWhateverTheGlobalLocale) {
  testing_support::CommaLocale comma;
  host().mediaPath = "\\\xc3\xa9\"";
  host().cursor = 1234.5678901234;
  for (const bool selected : {true, false, true}) host().addTrack(selected);
  quillmere::writeHeartbeat();
  std::filesystem::remove_all(home.bridge());
  host().calls.clear();
  const auto before = system_clock::now().time_since_epoch() / 1ms;
  quillmere::writeHeartbeat();
  std::string text = testing_support::readAll(home.bridge() / "bridge_state.json");
  const auto at = text.find("\"timestamp_ms\":") + 15;
  const auto stamp = std::stoll(text.substr(at));
  EXPECT_TRUE(before <= stamp && stamp <= system_clock::now().time_since_epoch() / 1ms) << text;
  EXPECT_EQ(text.replace(at, text.find(',', at) - at, "T"),
            "{\"version\":2,\"mode\":\"native_extension\",\"extension_version\":\"1.2.0\","
            "\"timestamp_ms\":T,\"selected_tracks\":2,\"cursor\":1234.567890123,"
            "\"project_media_path\":\"\\\\\xc3\xa9\\\"\"}\n");
  EXPECT_EQ(host().trace(),
            (std::vector<std::string>{"GetProjectPathEx 4096", "CountSelectedTracks",
                                      "GetCursorPositionEx"}));
  EXPECT_FALSE(std::filesystem::exists(home.bridge() / "bridge_state.json.tmp"));
}

TEST_F(Heartbeat, TakesAMediaPathThatFillsTheWholeBufferWithoutATerminatorToItsLastByte) {
  host().unterminatedStrings = true;
  const std::string path4096 = "/" + std::string(4094, 'm') + "Z";
  for (const std::string& reported : {path4096, path4096 + "beyond the buffer"}) {
    SCOPED_TRACE(reported.size());
    host().mediaPath = reported;
    quillmere::writeHeartbeat();
    const std::string text = testing_support::readAll(home.bridge() / "bridge_state.json");
    const auto at = text.find("\"project_media_path\":\"") + 22;
    const std::string written = text.substr(at, text.size() - at - 3);  // before "}\n
    EXPECT_EQ(written.size(), 4096u);
    EXPECT_TRUE(written == path4096) << written.substr(0, 20) << "..." << written.substr(4080);
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "support/temp_home.h"

using namespace std::chrono;

TEST(DeliveryLog, WritesNothingWithoutTheBridgeFolderAndThenAppendsOneStampedLinePerCall) {
  testing_support::CommaLocale comma;
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
