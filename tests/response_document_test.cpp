#include "report/response_document.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/comma_locale.h"

namespace {

using quillmere::responseJson;

TEST(ResponseJson, WritesEveryKeyInOrderOnOneLineWithNineDecimalsWhateverTheGlobalLocale) {
  testing_support::CommaLocale comma;
  EXPECT_EQ(responseJson({7, "d\"1", -1234567, "/s", "/p", "n", 3, 2, true, 4, 5},
                         {true, "a\nb", 1234, 1234.5678901234, "C:\\\xc3\xa9"}),
            "{\"version\":2,\"request_id\":\"d\\\"1\",\"project_item_id\":-1234567,\"ok\":true,"
            "\"message\":\"a\\nb\",\"track_index\":1234,\"position_seconds\":1234.567890123,"
            "\"output_path\":\"C:\\\\\xc3\xa9\"}\n");
  for (const auto& [seconds, whole] :
       {std::pair<double, std::string>{-0.0, "-0"}, {1e-10, "0"}, {1e20, "100000000000000000000"}})
    EXPECT_EQ(responseJson({}, {false, "", 0, seconds, ""}),
              "{\"version\":2,\"request_id\":\"\",\"project_item_id\":0,\"ok\":false,\"message\":"
              "\"\",\"track_index\":0,\"position_seconds\":" +
                  whole + ".000000000,\"output_path\":\"\"}\n");
}

}  // namespace
