#include "request/spot_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

using quillmere::parseRequest;
using quillmere::safeRequestId;
using quillmere::SpotRequest;

namespace {

// Key and raw JSON value; an empty value leaves the key out of the document.
using Fields = std::vector<std::pair<std::string, std::string>>;

std::string document(const Fields& changes = {}) {
  Fields fields = {{"version", "1"},
                   {"command", R"("spot")"},
                   {"request_id", R"("r-1")"},
                   {"project_item_id", "17"},
                   {"source_path", R"("/a/take.wav")"}};
  for (const auto& change : changes) {
    const auto same = [&](const auto& field) { return field.first == change.first; };
    const auto found = std::find_if(fields.begin(), fields.end(), same);
    if (found == fields.end())
      fields.push_back(change);
    else
      found->second = change.second;
  }
  std::string text = "{";
  for (const auto& [key, value] : fields) {
    if (value.empty()) continue;
    if (text.size() > 1) text += ',';
    text += '"' + key + "\":" + value;
  }
  return text + "}";
}

TEST(ParseRequest, AcceptsOnlyDocumentsWhoseRequiredFieldsAllPass) {
  const std::string id128(128, 'a');
  const struct {
    Fields changes;
    bool accepted;
  } cases[] = {
      {{}, true},
      {{{"version", "2.0"}}, true},
      {{{"version", "2e0"}}, true},
      {{{"version", "0"}}, false},
      {{{"version", "5"}}, false},
      {{{"version", "1.5"}}, false},
      {{{"version", R"("2")"}}, false},
      {{{"version", ""}}, false},
      {{{"version", "4"}}, false},
      {{{"version", "4"}, {"expected_project_path", R"("")"}}, false},
      {{{"version", "4"}, {"expected_project_path", R"("/p\q.rpp")"}}, false},
      {{{"version", "4"}, {"expected_project_path", R"("/p/song.rpp")"}}, true},
      {{{"command", R"("Spot")"}}, false},
      {{{"command", R"("spot ")"}}, false},
      {{{"command", ""}}, false},
      {{{"request_id", '"' + id128 + '"'}}, true},
      {{{"request_id", '"' + id128 + "a\""}}, false},
      {{{"request_id", R"("\u0041-b_9")"}}, true},
      {{{"request_id", R"("")"}}, false},
      {{{"request_id", R"("a.b")"}}, false},
      {{{"request_id", R"("a/b")"}}, false},
      {{{"request_id", R"("a b")"}}, false},
      {{{"request_id", "\"caf\xc3\xa9\""}}, false},
      {{{"project_item_id", "0"}}, true},
      {{{"project_item_id", "-0"}}, true},
      {{{"project_item_id", "-1"}}, false},
      {{{"project_item_id", "-0.5"}}, false},
      {{{"project_item_id", "9223372036854775807"}}, false},
      {{{"project_item_id", "9223372036854775808"}}, false},
      {{{"source_path", R"("")"}}, false},
      {{{"source_path", ""}}, false},
  };
  for (const auto& test : cases) {
    const std::string text = document(test.changes);
    SCOPED_TRACE(text);
    EXPECT_EQ(parseRequest(text).has_value(), test.accepted);
  }
}

TEST(ParseRequest, StoresTheProjectItemIdWithItsFractionCutOff) {
  const struct {
    std::string value;
    std::int64_t expected;
  } cases[] = {
      {"7.99", 7},
      {"-0", 0},
      {"9007199254740993", 9007199254740992},
      {"9223372036854774784", 9223372036854774784},
      {"9223372036854775295", 9223372036854774784},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.value);
    const auto request = parseRequest(document({{"project_item_id", test.value}}));
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->project_item_id, test.expected);
  }
}

TEST(ParseRequest, FillsEveryOptionalFieldWithItsDefaultWhenOnlyRequiredOnesAreGiven) {
  const auto request = parseRequest(document({{"version", "2e0"}}));
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->version, 2);
  EXPECT_EQ(request->expected_project_path, "");
  EXPECT_EQ(request->display_name, "Quillmere");
  EXPECT_EQ(request->gain_db, 0.0);
  EXPECT_EQ(request->playback_rate, 1.0);
  EXPECT_FALSE(request->full_handles);
  EXPECT_EQ(request->source_offset_seconds, 0.0);
  EXPECT_EQ(request->visible_length_seconds, 0.0);
}

TEST(ParseRequest, ReadsAFullVersionFourDocumentWithWhiteSpaceAroundTheColons) {
  const auto request = parseRequest(
      "{\r\n\t\"version\" : 4,\r\n\t\"command\" :\t\"spot\",\n \"request_id\":\n\"d1f0-77a\",\n"
      " \"project_item_id\" : 12.9, \"source_path\" : \"C:\\\\Takes\\/k\\u00e9.wav\",\n"
      " \"expected_project_path\" : \"/p/song.rpp\", \"display_name\" : \"Kick \\\"01\\\"\",\n"
      " \"gain_db\" : -6.5, \"playback_rate\" : 1.25, \"full_handles\" : true,\n"
      " \"source_offset_seconds\" : 0.5, \"visible_length_seconds\" : 1.5\n}\n");
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->version, 4);
  EXPECT_EQ(request->request_id, "d1f0-77a");
  EXPECT_EQ(request->project_item_id, 12);
  EXPECT_EQ(request->source_path, "C:\\Takes/k\xc3\xa9.wav");
  EXPECT_EQ(request->expected_project_path, "/p/song.rpp");
  EXPECT_EQ(request->display_name, "Kick \"01\"");
  EXPECT_EQ(request->gain_db, -6.5);
  EXPECT_EQ(request->playback_rate, 1.25);
  EXPECT_TRUE(request->full_handles);
  EXPECT_EQ(request->source_offset_seconds, 0.5);
  EXPECT_EQ(request->visible_length_seconds, 1.5);
}

TEST(ParseRequest, BoundsOptionalNumbersAndTakesDefaultsForUnreadableOnes) {
  const struct {
    std::string key;
    std::string value;
    double SpotRequest::*field;
    double expected;
  } cases[] = {
      {"gain_db", "-100", &SpotRequest::gain_db, -60.0},
      {"gain_db", "30", &SpotRequest::gain_db, 12.0},
      {"gain_db", "-60", &SpotRequest::gain_db, -60.0},
      {"gain_db", R"("3")", &SpotRequest::gain_db, 0.0},
      {"playback_rate", "0.1", &SpotRequest::playback_rate, 0.5},
      {"playback_rate", "0", &SpotRequest::playback_rate, 0.5},
      {"playback_rate", "5", &SpotRequest::playback_rate, 2.0},
      {"playback_rate", "0.75", &SpotRequest::playback_rate, 0.75},
      {"playback_rate", "null", &SpotRequest::playback_rate, 1.0},
      {"source_offset_seconds", "-3", &SpotRequest::source_offset_seconds, 0.0},
      {"source_offset_seconds", "1e9", &SpotRequest::source_offset_seconds, 1e9},
      {"visible_length_seconds", "-0.5", &SpotRequest::visible_length_seconds, 0.0},
      {"visible_length_seconds", "2.5", &SpotRequest::visible_length_seconds, 2.5},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.key + ": " + test.value);
    const auto request = parseRequest(document({{test.key, test.value}}));
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ((*request).*test.field, test.expected);
  }
}

TEST(ParseRequest, ReadsDisplayNameAndFullHandlesOnlyWhenTheyAreReadable) {
  const struct {
    Fields changes;
    std::string display_name;
    bool full_handles;
  } cases[] = {
      {{{"display_name", R"("")"}}, "", false},
      {{{"display_name", R"("Kick\x01")"}}, "Quillmere", false},
      {{{"full_handles", "true"}}, "Quillmere", true},
      {{{"full_handles", "1"}}, "Quillmere", false},
      {{{"full_handles", R"("true")"}}, "Quillmere", false},
  };
  for (const auto& test : cases) {
    const std::string text = document(test.changes);
    SCOPED_TRACE(text);
    const auto request = parseRequest(text);
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->display_name, test.display_name);
    EXPECT_EQ(request->full_handles, test.full_handles);
  }
}

TEST(SafeRequestId, AllowsExactlyAsciiLettersDigitsHyphenAndUnderscore) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_';
    SCOPED_TRACE(byte);
    EXPECT_EQ(safeRequestId(std::string("a") + c), allowed);
  }
}

}  // namespace
