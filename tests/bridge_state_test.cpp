#include "report/bridge_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "support/comma_locale.h"
#include "support/host_fixture.h"

namespace {

using namespace std::chrono;

class Heartbeat : public testing_support::HostTest {
 protected:
  // Writes one heartbeat and returns the file with its time stamp, checked against the clock,
  // replaced by T.
  std::string beat() {
    const auto before = floor<milliseconds>(system_clock::now()).time_since_epoch().count();
    quillmere::writeHeartbeat();
    const auto after = floor<milliseconds>(system_clock::now()).time_since_epoch().count();
    const std::string text = testing_support::readAll(home.bridge() / "bridge_state.json");
    const std::regex stamp("\"timestamp_ms\":(\\d+),");
    for (std::sregex_iterator it(text.begin(), text.end(), stamp), end; it != end; ++it)
      EXPECT_TRUE(before <= std::stoll((*it)[1]) && std::stoll((*it)[1]) <= after) << it->str();
    return std::regex_replace(text, stamp, "\"timestamp_ms\":T,");
  }
  const std::string head =
      "{\"version\":2,\"mode\":\"native_extension\",\"extension_version\":\"1.2.0\","
      "\"timestamp_ms\":T,\"selected_tracks\":";
};

TEST_F(Heartbeat, DescribesTheActiveProjectInOneLineWhateverTheGlobalLocale) {
  testing_support::CommaLocale comma;
  host().mediaPath = "\\\xc3\xa9\"";
  host().cursor = 1234.5678901234;
  for (const bool selected : {true, false, true}) host().addTrack(selected);
  EXPECT_EQ(beat(),
            head + "2,\"cursor\":1234.567890123,\"project_media_path\":\"\\\\\xc3\xa9\\\"\"}\n");
  EXPECT_EQ(host().callNames(), (std::vector<std::string>{"GetProjectPathEx", "CountSelectedTracks",
                                                          "GetCursorPositionEx"}));
  EXPECT_FALSE(std::filesystem::exists(home.bridge() / "bridge_state.json.tmp"));
}

TEST_F(Heartbeat, RecreatesADeletedBridgeFolderAndWritesZerosAndAnEmptyPath) {
  quillmere::writeHeartbeat();
  std::filesystem::remove_all(home.bridge());
  EXPECT_EQ(beat(), head + "0,\"cursor\":0.000000000,\"project_media_path\":\"\"}\n");
}

}  // namespace
