#include "request/json_fields.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace {

using quillmere::JsonFields;
using std::nullopt;

std::optional<std::string> jsonString(const std::string& text, std::string_view key) {
  return JsonFields(text, {key}).string(key);
}

TEST(JsonFields, TakeTheValueBehindTheNextColonAfterTheFirstQuotedKeyAndBareLowerCaseWords) {
  const std::string text = R"({"name":"gain","rate":1.5,"gain":-6,"on":true,"on":false,"end":)";
  const JsonFields fields(text, {"gain", "name", "on", "end", "rate", "none"});
  EXPECT_EQ(fields.number("gain"), 1.5);
  EXPECT_EQ(fields.string("name"), "gain");
  EXPECT_EQ(fields.boolean("on"), true);
  EXPECT_EQ(fields.number("none"), nullopt);
  EXPECT_EQ(fields.number("unlisted"), nullopt);
  EXPECT_EQ(jsonString(text + " \t\r\n", "end"), nullopt);
  EXPECT_EQ(JsonFields(R"({"on")", {"on"}).boolean("on"), nullopt);
  EXPECT_EQ(JsonFields(R"({"b":falsehood)", {"b"}).boolean("b"), false);
  for (const std::string bad : {"True", "\"true\"", "\ftrue"})
    EXPECT_EQ(JsonFields(R"({"b":)" + bad, {"b"}).boolean("b"), nullopt) << bad;
}

// Any quote may close one quoted name and open the next, a key's name may stand inside another
// key's or value's quotes, and a longer or shorter name is no match.
TEST(JsonFields, FindAKeyWhereItsQuotedNameFirstStandsWhateverQuotesSurroundIt) {
  const std::pair<std::string, std::optional<double>> cases[] = {
      {R"({"x"n":1,"n":2})", 1.0},
      {R"(""n":1)", 1.0},
      {R"("""n":1)", 1.0},
      {R"({"nn":1,"n ":2,"n":3})", 3.0},
      {R"({"\"n\"":1,"n":2})", 2.0},
      {R"({"s":"a\"n\"b","n":2})", 2.0},
      {R"({"s":"n","t":7,"n":2})", 7.0},
      {R"({"s":"x","n")", nullopt},
      {R"("n""n":4)", 4.0},
      {R"({"n" )" + std::string(3, '"') + ":5", 5.0},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(JsonFields(text, {"m", "n", "nn"}).number("n"), expected);
  }
}

TEST(JsonString, DecodesEscapesToExactBytesAndFailsWholeOnAnyBadOne) {
  const std::pair<std::string, std::string> decoded[] = {
      {" \t\r\n\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0000\"", std::string("\"\\/\b\f\n\r\t\0", 9)},
      {"\"raw\ttab \xe6\x97\xa5\"", "raw\ttab \xe6\x97\xa5"},
      {R"("\u007f\u0080\u07FF\u0800\uffff")", "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"},
      {R"("\uD83D\uDE00x\uD800")", "\xf0\x9f\x98\x80x\xed\xa0\x80"}};
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
      {R"(\uDC00)", "\xed\xb0\x80"},
      {R"(\uDFFF)", "\xed\xbf\xbf"},
      {R"(\uE000)", "\xee\x80\x80"},
      {R"(\uD800\uDC00)", "\xf0\x90\x80\x80"},
      {R"(\uDBFF\uDFFF)", "\xf4\x8f\xbf\xbf"},
      {R"(\uD7FF\uDC00)", "\xed\x9f\xbf\xed\xb0\x80"},
      {R"(\uD800\uDBFF)", "\xed\xa0\x80\xed\xaf\xbf"},
      {R"(\uDC00\uD800)", "\xed\xb0\x80\xed\xa0\x80"},
      {R"(\uD800\\uDC00)", "\xed\xa0\x80\\uDC00"},
  };
  for (const auto& [escaped, expected] : decoded)
    EXPECT_EQ(jsonString(R"({"s":")" + escaped + "\"", "s"), expected) << escaped;
}

TEST(JsonNumber, ReadsWhatStrtodReadsButNothingInfiniteOrQuoted) {
  const std::pair<std::string, std::optional<double>> cases[] = {
      {"-0.5,", -0.5},    {"12abc", 12.0},    {"\f\v 3.25", 3.25},
      {"\"3\"", nullopt}, {"1e999", nullopt}, {"-", nullopt}};
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(JsonFields(R"({"n":)" + value, {"n"}).number("n"), expected) << value;
}

}  // namespace
