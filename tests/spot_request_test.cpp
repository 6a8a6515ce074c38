#include "request/spot_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>

namespace {

// Every field of the request read from `front` (with ' for ") followed by a valid version 1
// document, whose fields `front` overrides since the first occurrence of a key wins.
std::string parsed(std::string front) {
  std::replace(front.begin(), front.end(), '\'', '"');
  const auto r = quillmere::parseRequest(
      "{" + front +
      R"(,"version":1,"command":"spot","request_id":"r","project_item_id":17,)"
      R"("source_path":"/s"})");
  if (!r) return "rejected";
  std::ostringstream out;
  out << r->version << '|' << r->request_id << '|' << r->project_item_id << '|' << r->source_path
      << '|' << r->expected_project_path << '|' << r->display_name << '|' << r->gain_db << '|'
      << r->playback_rate << '|' << r->full_handles << '|' << r->source_offset_seconds << '|'
      << r->visible_length_seconds;
  return out.str();
}

TEST(ParseRequest, ValidatesRequiredFieldsAndBoundsOrDefaultsOptionalOnes) {
  const std::string id128(128, 'a');
  const std::pair<std::string, std::string> accepted[] = {
      {"", "1|r|17|/s||Quillmere|0|1|0|0|0"},
      {"'version':4,'expected_project_path':'/p'", "4|r|17|/s|/p|Quillmere|0|1|0|0|0"},
      {"'request_id':'\\u0041Zaz09-_','project_item_id':-0",
       "1|AZaz09-_|0|/s||Quillmere|0|1|0|0|0"},
      {"'request_id':'" + id128 + "'", "1|" + id128 + "|17|/s||Quillmere|0|1|0|0|0"},
      {"'project_item_id':9223372036854774784", "1|r|9223372036854774784|/s||Quillmere|0|1|0|0|0"},
      {"'version':3,'gain_db':-100,'playback_rate':0.1", "3|r|17|/s||Quillmere|-60|0.5|0|0|0"},
      {"'gain_db':30,'playback_rate':5,'project_item_id':7.99", "1|r|7|/s||Quillmere|12|2|0|0|0"},
      {"'gain_db':-6.5,'playback_rate':0", "1|r|17|/s||Quillmere|-6.5|0.5|0|0|0"},
      {"'source_offset_seconds':-3,'visible_length_seconds':9", "1|r|17|/s||Quillmere|0|1|0|0|9"},
      {"'source_offset_seconds':2,'visible_length_seconds':-1", "1|r|17|/s||Quillmere|0|1|0|2|0"},
      {"'display_name':'','full_handles':true,'gain_db':'3'", "1|r|17|/s|||0|1|1|0|0"},
      {"'display_name':'K\\x','full_handles':1,'playback_rate':null",
       "1|r|17|/s||Quillmere|0|1|0|0|0"},
  };
  for (const auto& [front, expected] : accepted) {
    SCOPED_TRACE(front);
    EXPECT_EQ(parsed(front), expected);
  }
  for (const std::string& front : std::initializer_list<std::string>{
           "'version':0", "'version':5", "'version':1.5", "'version':4",
           "'version':4,'expected_project_path':''", "'command':'Spot'", "'command':'spot '",
           "'command':null", "'request_id':''", "'request_id':'" + id128 + "a'",
           "'project_item_id':-1", "'project_item_id':-0.5",
           "'project_item_id':9223372036854775807", "'source_path':''"}) {
    SCOPED_TRACE(front);
    EXPECT_EQ(parsed(front), "rejected");
  }
}

TEST(SafeRequestId, RefusesEveryByteJustOutsideTheAllowedRanges) {
  for (const char c : std::string("@[`{/:. \x7f\x80\xff"))
    EXPECT_FALSE(quillmere::safeRequestId(std::string("AZaz09-_") + c)) << int(c);
}

}  // namespace
