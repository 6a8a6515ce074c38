#include "request/spot_request.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Every field of the request read from `front` (with ' for ") followed by a valid version 1
// document, whose fields `front` overrides since the first occurrence of a key wins.
std::string parsed(std::string front) {
  for (char& c : front) c = c == '\'' ? '"' : c;
  const auto r = quillmere::parseRequest(
      "{" + front +
      R"(,"version":1,"command":"spot","request_id":"r","project_item_id":17,"source_path":"/s"})");
  if (!r) return "rejected";
  std::ostringstream out;
  out << r->version << '|' << r->request_id << '|' << r->project_item_id << '|' << r->source_path
      << '|' << r->expected_project_path << '|' << r->display_name << '|' << r->gain_db << '|'
      << r->playback_rate << '|' << r->full_handles << '|' << r->source_offset_seconds << '|'
      << r->visible_length_seconds;
  return out.str();
}

TEST(ParseRequest, ValidatesRequiredFieldsAndBoundsOrDefaultsOptionalOnes) {
  const std::string id = "Zaz09-_" + std::string(120, 'a');  // 128 bytes after the leading A
  const std::pair<std::string, std::string> accepted[] = {
      {"'version':4,'expected_project_path':'/p'", "4|r|17|/s|/p|Quillmere|0|1|0|0|0"},
      {"'request_id':'\\u0041" + id + "','project_item_id':-0",
       "1|A" + id + "|0|/s||Quillmere|0|1|0|0|0"},
      {"'project_item_id':9223372036854774784", "1|r|9223372036854774784|/s||Quillmere|0|1|0|0|0"},
      {"'version':3,'gain_db':-100,'playback_rate':0.1", "3|r|17|/s||Quillmere|-60|0.5|0|0|0"},
      {"'gain_db':30,'playback_rate':5,'project_item_id':7.99", "1|r|7|/s||Quillmere|12|2|0|0|0"},
      {"'source_offset_seconds':-3,'visible_length_seconds':9", "1|r|17|/s||Quillmere|0|1|0|0|9"},
      {"'source_offset_seconds':2,'visible_length_seconds':-1", "1|r|17|/s||Quillmere|0|1|0|2|0"},
      {"'display_name':'','full_handles':true,'playback_rate':0", "1|r|17|/s|||0|0.5|1|0|0"},
      {"'display_name':'K\\x','full_handles':1,'gain_db':'3'", "1|r|17|/s||Quillmere|0|1|0|0|0"}};
  for (const auto& [front, expected] : accepted) EXPECT_EQ(parsed(front), expected) << front;
  for (const char* front :
       {"'version':0", "'version':5", "'version':1.5", "'version':4",
        "'version':4,'expected_project_path':''", "'command':'Spot'", "'command':'spot '",
        "'command':null", "'request_id':''", "'project_item_id':-1", "'project_item_id':-0.5",
        "'project_item_id':9223372036854775807", "'source_path':''"})
    EXPECT_EQ(parsed(front), "rejected") << front;
  EXPECT_EQ(parsed("'request_id':'A" + id + "a'"), "rejected");
  for (const char c : std::string("@[`{/:. \x7f\x80\xff"))
    EXPECT_FALSE(quillmere::safeRequestId(std::string("AZaz09-_") + c)) << int(c);
}

// A key's name as the id would be taken for that key; a device name would swallow the response
// on Windows. Either is refused everywhere, so a request behaves the same wherever it is sent.
TEST(ParseRequest, RefusesIdsSpeltLikeAKeyOrAWindowsDeviceAndNothingCloseToThem) {
  std::vector<std::string> refused(std::begin(quillmere::kRequestKeys),
                                   std::end(quillmere::kRequestKeys));
  for (const char* device : {"CON", "con", "pRn", "AUX", "nul", "COM0", "com9", "LPT0", "lPt9"})
    refused.push_back(device);
  for (const std::string& key : refused)
    EXPECT_EQ(parsed(std::string("'request_id':'") + key + "'"), "rejected") << key;
  for (const char* id :
       {"Gain_db", "gain_db_", "spot", "COM10", "COM", "COMA", "CONSOLE", "nul_1", "LPT-1", "CO"})
    EXPECT_EQ(parsed(std::string("'request_id':'") + id + "'"),
              "1|" + std::string(id) + "|17|/s||Quillmere|0|1|0|0|0")
        << id;
}

}  // namespace
