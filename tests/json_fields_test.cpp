#include "request/json_fields.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

namespace {

using namespace quillmere;
using std::nullopt;

TEST(JsonFields, TakeTheValueBehindTheNextColonAfterTheFirstQuotedKeyAndBareLowerCaseWords) {
  const std::string text = R"({"name":"gain","rate":1.5,"gain":-6,"on":true,"on":false,"end":)";
  EXPECT_EQ(jsonNumber(text, "gain"), 1.5);
  EXPECT_EQ(jsonString(text, "name"), "gain");
  EXPECT_EQ(jsonBool(text, "on"), true);
  EXPECT_EQ(jsonString(text + " \t\r\n", "end"), nullopt);
  EXPECT_EQ(jsonBool(R"({"on")", "on"), nullopt);
  EXPECT_EQ(jsonBool(R"({"b":falsehood)", "b"), false);
  for (const std::string bad : {"True", "\"true\"", "\ftrue"})
    EXPECT_EQ(jsonBool(R"({"b":)" + bad, "b"), nullopt) << bad;
}

TEST(JsonString, DecodesEscapesToExactBytesAndFailsWholeOnAnyBadOne) {
  const std::pair<std::string, std::string> decoded[] = {
      {" \t\r\n\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0000\"", std::string("\"\\/\b\f\n\r\t\0", 9)},
      {"\"raw\ttab \xe6\x97\xa5\"", "raw\ttab \xe6\x97\xa5"},
      {R"("\u007f\u0080\u07FF\u0800\uffff")", "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"},
      {R"("\uD83D\uDE00\uDBFF\uDFFF")", "\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf"},
      {R"("\uD800x\uDBFF\u0041\uDC00")", "\xed\xa0\x80x\xed\xaf\xbf\x41\xed\xb0\x80"}};
  for (const auto& [value, expected] : decoded)
    EXPECT_EQ(jsonString(R"({"s":)" + value, "s"), expected) << value;
  for (const std::string bad : {R"("\uD800\uZZZZ")", R"("\x41")", R"("\u12G4")", R"("\u12)",
                                R"("unterminated)", R"("trailing\)", "12", "\f\"x\""})
    EXPECT_EQ(jsonString(R"({"s":)" + bad, "s"), nullopt) << bad;
}

TEST(JsonString, JoinsAHighSurrogateOnlyWithALowOneAndEncodesEveryOtherUnitAlone) {
  const std::pair<std::string, std::string> decoded[] = {
      {R"(\uD7FF)", "\xed\x9f\xbf"},
      {R"(\uD800)", "\xed\xa0\x80"},
      {R"(\uDBFF)", "\xed\xaf\xbf"},
      {R"(\uDC00)", "\xed\xb0\x80"},
      {R"(\uDFFF)", "\xed\xbf\xbf"},
      {R"(\uE000)", "\xee\x80\x80"},
      {R"(\uD800\uDC00)", "\xf0\x90\x80\x80"},
      {R"(\uD800\uDFFF)", "\xf0\x90\x8f\xbf"},
      {R"(\uDBFF\uDC00)", "\xf4\x8f\xb0\x80"},
      {R"(\uDBFF\uDFFF)", "\xf4\x8f\xbf\xbf"},
      {R"(\uD7FF\uDC00)", "\xed\x9f\xbf\xed\xb0\x80"},
      {R"(\uD800\uDBFF)", "\xed\xa0\x80\xed\xaf\xbf"},
      {R"(\uDBFF\uE000)", "\xed\xaf\xbf\xee\x80\x80"},
      {R"(\uDC00\uD800)", "\xed\xb0\x80\xed\xa0\x80"},
      {R"(\uD800\\uDC00)", "\xed\xa0\x80\\uDC00"},
  };
  for (const auto& [escaped, expected] : decoded)
    EXPECT_EQ(jsonString(R"({"s":")" + escaped + "\"", "s"), expected) << escaped;
}

TEST(JsonNumber, ReadsWhatStrtodReadsButNothingInfiniteOrQuoted) {
  const std::pair<std::string, std::optional<double>> cases[] = {
      {"-0.5,", -0.5},     {"+1e3", 1000.0},   {"0x1A", 26.0},   {"12abc", 12.0},
      {"\f\v 3.25", 3.25}, {"\"3\"", nullopt}, {"inf", nullopt}, {"nan", nullopt},
      {"1e999", nullopt},  {"-", nullopt}};
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(jsonNumber(R"({"n":)" + value, "n"), expected) << value;
}

}  // namespace
