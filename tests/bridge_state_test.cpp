#include "report/bridge_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <locale>
#include <string>
#include <vector>

#include "extension/host_api.h"
#include "fake_reaper/fake_reaper.h"
#include "support/temp_home.h"

namespace fs = std::filesystem;
using quillmere::writeHeartbeat;
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

class GlobalLocale {
 public:
  explicit GlobalLocale(const std::locale& locale) : previous_(std::locale::global(locale)) {}
  ~GlobalLocale() { std::locale::global(previous_); }

 private:
  std::locale previous_;
};

class Heartbeat : public ::testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    ASSERT_EQ(quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc), 0);
  }
  void TearDown() override { host().reset(); }

  static fake_reaper::Host& host() { return fake_reaper::Host::instance(); }

  // Writes one heartbeat and returns the file with its time stamp replaced by "T", after checking
  // that the stamp lies between the clock readings around the call.
  static std::string beat(const fs::path& file) {
    const std::int64_t before = nowMs();
    writeHeartbeat();
    const std::int64_t after = nowMs();
    std::string text = readAll(file);
    const std::string key = "\"timestamp_ms\":";
    const std::size_t digits = text.find(key);
    if (digits == std::string::npos) {
      ADD_FAILURE() << "no time stamp in " << text;
      return text;
    }
    const std::size_t from = digits + key.size();
    const std::size_t to = text.find(',', from);
    const std::int64_t stamp = std::stoll(text.substr(from, to - from));
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
    return text.replace(from, to - from, "T");
  }

  TempHome home;
};

TEST_F(Heartbeat, DescribesTheActiveProjectInOneExactLine) {
  const struct {
    const char* name;
    std::string mediaPath;
    int selected;
    int unselected;
    double cursor;
    std::string expectedTail;  // everything after "timestamp_ms":T
  } cases[] = {
      {"typical", "/Volumes/Audio/Songs/Media", 1, 2, 12.5,
       ",\"selected_tracks\":1,\"cursor\":12.500000000,"
       "\"project_media_path\":\"/Volumes/Audio/Songs/Media\"}\n"},
      {"nothing available", "", 0, 1, 0.0,
       ",\"selected_tracks\":0,\"cursor\":0.000000000,\"project_media_path\":\"\"}\n"},
      {"escaped and UTF-8 path", "C:\\M\xc3\xa9\x64ia \"new\"", 3, 0, 1234.5678901234,
       ",\"selected_tracks\":3,\"cursor\":1234.567890123,"
       "\"project_media_path\":\"C:\\\\M\xc3\xa9\x64ia \\\"new\\\"\"}\n"},
  };
  const fs::path file = home.bridge() / "bridge_state.json";
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    host().reset();
    host().mediaPath = test.mediaPath;
    host().cursor = test.cursor;
    for (int i = 0; i < test.selected; ++i) host().addTrack(true);
    for (int i = 0; i < test.unselected; ++i) host().addTrack(false);
    EXPECT_EQ(beat(file),
              "{\"version\":2,\"mode\":\"native_extension\",\"extension_version\":\"1.2.0\","
              "\"timestamp_ms\":T" +
                  test.expectedTail);
    EXPECT_FALSE(fs::exists(home.bridge() / "bridge_state.json.tmp"));
  }
}

TEST_F(Heartbeat, AsksTheHostForPathThenTrackCountThenCursor) {
  writeHeartbeat();
  EXPECT_EQ(host().callNames(), (std::vector<std::string>{"GetProjectPathEx", "CountSelectedTracks",
                                                          "GetCursorPositionEx"}));
}

TEST_F(Heartbeat, RecreatesADeletedBridgeFolder) {
  writeHeartbeat();
  fs::remove_all(home.bridge());
  host().cursor = 2.0;
  EXPECT_NE(beat(home.bridge() / "bridge_state.json").find("\"cursor\":2.000000000,"),
            std::string::npos);
}

TEST_F(Heartbeat, WritesIntoTheWorkingFolderWhenHomeIsEmpty) {
  fs::current_path(home.path());
  testing_support::setHome(std::string());
  writeHeartbeat();
  EXPECT_TRUE(fs::is_regular_file(home.path() / "bridge_state.json"));
  EXPECT_FALSE(fs::exists(home.path() / "bridge_state.json.tmp"));
}

TEST_F(Heartbeat, IgnoresADecimalCommaGlobalLocale) {
  GlobalLocale comma(std::locale(std::locale::classic(), new CommaDecimals));
  host().cursor = 1234.5;
  const std::string text = beat(home.bridge() / "bridge_state.json");
  EXPECT_NE(text.find("\"cursor\":1234.500000000,"), std::string::npos) << text;
}

}  // namespace
