#include "quillmere_bridge/request_builder.h"

#include <gtest/gtest.h>

#include <limits>

#include "request/spot_request.h"

using namespace bridge_tool;

namespace {

quillmere::SpotRequest settingsWithName(const std::string& name) {
  quillmere::SpotRequest settings;
  settings.request_id = "20261123T120000000000Z-1";
  settings.source_path = "/Audio/take.wav";
  settings.display_name = name;
  return settings;
}

TEST(RequestBuilder, ValuesThatCouldPassForKeyNamesAreReadBackExactly) {
  const std::vector<std::string> names = {
      "gain_db",
      "playback_rate",
      "visible_length_seconds",
      "a\"full_handles",
      "\"version\":9,",
      "back\\slash\"",
      "tab\there",
      "line\nfeed",
      "Kick 01",
      "当前工程",
      "",
      "\x7f\x01",
  };
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    quillmere::SpotRequest settings = settingsWithName(name);
    settings.gain_db = -6.5;
    settings.playback_rate = 1.5;
    settings.full_handles = true;
    settings.visible_length_seconds = 0.75;
    settings.source_path = "/Audio/\"gain_db\"/" + name + ".wav";
    const BuiltRequest built = buildSpotRequest(settings);
    ASSERT_EQ(built.problem, "");
    const auto read = quillmere::parseRequest(built.document);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->display_name, name);
    EXPECT_EQ(read->gain_db, -6.5);
    EXPECT_EQ(read->source_path, settings.source_path);
  }
}

TEST(RequestBuilder, NumbersAreWrittenShortAndReadBackExactly) {
  const std::vector<std::pair<double, const char*>> numbers = {
      {0.25, "0.25"}, {-6, "-6"},     {0.1, "0.1"}, {1.0 / 3, "0.3333333333333333"},
      {12, "12"},     {1e-7, "1e-07"}};
  for (const auto& [value, written] : numbers) {
    SCOPED_TRACE(written);
    EXPECT_EQ(jsonNumberLiteral(value), written);
  }
}

TEST(RequestBuilder, ARequestTheExtensionWouldReadOtherwiseIsRefused) {
  quillmere::SpotRequest unsafeId = settingsWithName("x");
  unsafeId.request_id = "has a space";
  EXPECT_EQ(buildSpotRequest(unsafeId).problem, "the extension's reader refuses this request");
  quillmere::SpotRequest clamped = settingsWithName("x");
  clamped.playback_rate = 4;
  EXPECT_EQ(buildSpotRequest(clamped).problem,
            "the extension would not read \"playback_rate\" as given");
}

}  // namespace
