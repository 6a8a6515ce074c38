#include "report/response_document.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <locale>
#include <sstream>
#include <string>

using quillmere::responseJson;
using quillmere::SpotRequest;
using quillmere::SpotResult;

namespace {

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

SpotRequest request(const std::string& id, std::int64_t itemId) {
  SpotRequest request;
  request.request_id = id;
  request.project_item_id = itemId;
  request.version = 7;
  return request;
}

SpotResult result(bool ok, const std::string& message, int track, double position,
                  const std::string& path) {
  SpotResult result;
  result.ok = ok;
  result.message = message;
  result.track_index = track;
  result.position_seconds = position;
  result.output_path = path;
  return result;
}

TEST(ResponseJson, WritesSuccessAndFailureDocumentsByteForByte) {
  const struct {
    const char* name;
    SpotRequest request;
    SpotResult result;
    std::string expected;
  } cases[] = {
      {"success", request("d1f0", 17),
       result(true, "Spotted to selected REAPER track", 2, 12.5, "/Volumes/Audio/take.wav"),
       "{\"version\":2,\"request_id\":\"d1f0\",\"project_item_id\":17,\"ok\":true,\"message\":"
       "\"Spotted to selected REAPER track\",\"track_index\":2,\"position_seconds\":12.500000000,"
       "\"output_path\":\"/Volumes/Audio/take.wav\"}\n"},
      {"failure", request("d1f0", 17),
       result(false, "Select a REAPER track first", 0, 0.0, "/Volumes/Audio/take.wav"),
       "{\"version\":2,\"request_id\":\"d1f0\",\"project_item_id\":17,\"ok\":false,\"message\":"
       "\"Select a REAPER track first\",\"track_index\":0,\"position_seconds\":0.000000000,"
       "\"output_path\":\"/Volumes/Audio/take.wav\"}\n"},
      {"default result, empty strings", request("", 0), SpotResult{},
       "{\"version\":2,\"request_id\":\"\",\"project_item_id\":0,\"ok\":false,\"message\":\"\","
       "\"track_index\":0,\"position_seconds\":0.000000000,\"output_path\":\"\"}\n"},
      {"escaped strings", request("a\"b", -9007199254740993),
       result(false, "q\"b\\n\nt\x01\xe5", -1, 0.0, "C:\\a/\xc3\xa9.wav"),
       "{\"version\":2,\"request_id\":\"a\\\"b\",\"project_item_id\":-9007199254740993,"
       "\"ok\":false,\"message\":\"q\\\"b\\\\n\\nt\\u0001\xe5\",\"track_index\":-1,"
       "\"position_seconds\":0.000000000,\"output_path\":\"C:\\\\a/\xc3\xa9.wav\"}\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(responseJson(test.request, test.result), test.expected);
  }
}

TEST(ResponseJson, WritesPositionsWithNineDecimalsAndNoExponent) {
  const struct {
    double seconds;
    const char* expected;
  } cases[] = {
      {-0.0, "-0.000000000"},
      {1e-10, "0.000000000"},
      {1234.5678901234, "1234.567890123"},
      {-3.25, "-3.250000000"},
      {1e20, "100000000000000000000.000000000"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.expected);
    const std::string document =
        responseJson(request("r", 1), result(true, "", 1, test.seconds, ""));
    EXPECT_NE(document.find(std::string(",\"position_seconds\":") + test.expected + ",\""),
              std::string::npos)
        << document;
  }
}

TEST(ResponseJson, IgnoresADecimalCommaGlobalLocale) {
  GlobalLocale comma(std::locale(std::locale::classic(), new CommaDecimals));
  std::ostringstream probe;
  probe << 1234.5;
  ASSERT_EQ(probe.str(), "1.234,5");

  EXPECT_EQ(responseJson(request("r", 1234567), result(true, "m", 1234, 1234.5, "p")),
            "{\"version\":2,\"request_id\":\"r\",\"project_item_id\":1234567,\"ok\":true,"
            "\"message\":\"m\",\"track_index\":1234,\"position_seconds\":1234.500000000,"
            "\"output_path\":\"p\"}\n");
}

}  // namespace
