#include "quillmere_bridge/request_builder.h"

#include <gtest/gtest.h>

#include "request/spot_request.h"

using namespace bridge_tool;

namespace {

quillmere::SpotRequest settingsWithName(const std::string& name) {
  quillmere::SpotRequest settings;
  settings.request_id = "20261123T120000000000Z-1";
  settings.source_path = "/Audio/\"gain_db\"/" + name + ".wav";
  settings.display_name = name;
  settings.gain_db = -6.5;
  settings.full_handles = true;
  return settings;
}

TEST(RequestBuilder, ValuesThatCouldPassForKeyNamesAreReadBackExactly) {
  for (const std::string name :
       {"gain_db", "visible_length_seconds", "a\"full_handles", "\"version\":9,", "back\\slash\"",
        "tab\there", "line\nfeed", "当前工程", "", "\x7f\x01"}) {
    SCOPED_TRACE(name);
    const quillmere::SpotRequest settings = settingsWithName(name);
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
  const std::pair<double, const char*> numbers[] = {
      {0.25, "0.25"}, {-6, "-6"}, {0.1, "0.1"}, {1.0 / 3, "0.3333333333333333"}, {1e-7, "1e-07"}};
  for (const auto& [value, written] : numbers) EXPECT_EQ(jsonNumberLiteral(value), written);
}

TEST(RequestBuilder, ARequestTheExtensionWouldReadOtherwiseIsRefused) {
  quillmere::SpotRequest unsafeId = settingsWithName("x"), clamped = unsafeId;
  unsafeId.request_id = "has a space";
  EXPECT_EQ(buildSpotRequest(unsafeId).problem, "the extension's reader refuses this request");
  clamped.playback_rate = 4;
  EXPECT_EQ(buildSpotRequest(clamped).problem,
            "the extension would not read \"playback_rate\" as given");
}

}  // namespace
