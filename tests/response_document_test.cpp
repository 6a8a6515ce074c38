#include "report/response_document.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/comma_locale.h"

namespace {

using quillmere::responseJson;

TEST(ResponseJson, WritesEveryKeyInOrderOnOneLineWhateverTheGlobalLocale) {
  testing_support::CommaLocale comma;
  EXPECT_EQ(responseJson({7, "d\"1", -1234567, "/s", "/p", "n", 3, 2, true, 4, 5},
                         {true, "a\nb", 1234, 1234.5678901234, "C:\\\xc3\xa9"}),
            "{\"version\":2,\"request_id\":\"d\\\"1\",\"project_item_id\":-1234567,\"ok\":true,"
            "\"message\":\"a\\nb\",\"track_index\":1234,\"position_seconds\":1234.567890123,"
            "\"output_path\":\"C:\\\\\xc3\xa9\"}\n");
  EXPECT_EQ(responseJson({}, {}),
            "{\"version\":2,\"request_id\":\"\",\"project_item_id\":0,\"ok\":false,\"message\":"
            "\"\",\"track_index\":0,\"position_seconds\":0.000000000,\"output_path\":\"\"}\n");
}

TEST(ResponseJson, WritesPositionsWithNineDecimalsAndNoExponent) {
  const std::pair<double, std::string> cases[] = {
      {-0.0, "-0.000000000"}, {1e-10, "0.000000000"}, {1e20, "100000000000000000000.000000000"}};
  for (const auto& [seconds, text] : cases) {
    SCOPED_TRACE(text);
    EXPECT_NE(responseJson({}, {true, "", 0, seconds, ""}).find(":" + text + ",\"output_path"),
              std::string::npos);
  }
}

}  // namespace
