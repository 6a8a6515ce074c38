#include "request/json_fields.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using quillmere::appendUtf8;
using quillmere::hexDigit;
using quillmere::jsonBool;
using quillmere::jsonNumber;
using quillmere::jsonString;
using quillmere::parseHex4;
using quillmere::valueStart;

namespace {

TEST(ValueStart, TakesTheFirstQuotedKeyWhereverItStandsAndTheNextColonAfterIt) {
  const struct {
    std::string text;
    std::optional<std::uint64_t> expected;
  } cases[] = {
      {R"({"k":1})", 5},
      {"{\"k\" \t\r\n: \t\r\n1}", 13},
      {R"({"k":1,"k":2})", 5},
      {R"({"other":"k","x":3,"k":4})", 17},
      {R"({"K":1})", std::nullopt},
      {R"({"kk":1})", std::nullopt},
      {R"({"k")", std::nullopt},
      {"{\"k\": \t\r\n", std::nullopt},
      {"{\"k\":\f1}", 5},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.text);
    EXPECT_EQ(valueStart(test.text, "k"), test.expected);
  }
}

TEST(JsonNumber, ReadsTheValueBehindTheFirstQuotedKeyEvenWhenThatIsAnotherFieldsValue) {
  const std::string text = R"({"display_name":"gain_db","playback_rate":1.5,"gain_db":-6})";
  EXPECT_EQ(jsonNumber(text, "gain_db"), 1.5);
  EXPECT_EQ(jsonString(text, "display_name"), "gain_db");
}

TEST(JsonString, DecodesEscapesToExactBytesAndFailsWholeOnAnyBadOne) {
  const struct {
    std::string value;
    std::optional<std::string> expected;
  } cases[] = {
      {R"("plain")", "plain"},
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {"\"raw\ttab \xe6\x97\xa5\"", "raw\ttab \xe6\x97\xa5"},
      {R"("\u00e9\u00E9\u20ac")", "\xc3\xa9\xc3\xa9\xe2\x82\xac"},
      {R"("\uD83D\uDE00")", "\xf0\x9f\x98\x80"},
      {R"("\uD800x")", "\xed\xa0\x80x"},
      {R"("\uDBFF\u0041")",
       "\xed\xaf\xbf"
       "A"},
      {R"("\uDC00\uDFFF")", "\xed\xb0\x80\xed\xbf\xbf"},
      {R"("a\u0000b")", std::string("a\0b", 3)},
      {R"("")", ""},
      {R"("\uD800\uZZZZ")", std::nullopt},
      {R"("\uD800\UDC00")", std::nullopt},
      {R"("\x41")", std::nullopt},
      {R"("\0")", std::nullopt},
      {R"("\u12G4")", std::nullopt},
      {R"("\u12)", std::nullopt},
      {R"("unterminated)", std::nullopt},
      {R"("trailing\)", std::nullopt},
      {"12", std::nullopt},
      {"\f\"x\"", std::nullopt},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.value);
    EXPECT_EQ(jsonString(R"({"s":)" + test.value, "s"), test.expected);
  }
}

TEST(JsonNumber, AcceptsWhatTheCLocaleConversionAcceptsButNothingInfiniteOrQuoted) {
  const struct {
    std::string value;
    std::optional<double> expected;
  } cases[] = {
      {"42}", 42.0},          {"-0.5}", -0.5},        {"1e3}", 1000.0},
      {"+7}", 7.0},           {"12abc}", 12.0},       {"0x10}", 16.0},
      {"\f\v 3.25}", 3.25},   {"1e-400}", 0.0},       {"\"3\"}", std::nullopt},
      {"inf}", std::nullopt}, {"nan}", std::nullopt}, {"1e999}", std::nullopt},
      {"-}", std::nullopt},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.value);
    EXPECT_EQ(jsonNumber(R"({"n":)" + test.value, "n"), test.expected);
  }
}

TEST(JsonBool, ReadsOnlyTheBareLowerCaseWordsWhateverFollowsThem) {
  const struct {
    std::string value;
    std::optional<bool> expected;
  } cases[] = {
      {"true}", true},
      {"false}", false},
      {"trueness", true},
      {"falsehood", false},
      {"True}", std::nullopt},
      {"1}", std::nullopt},
      {"\"true\"}", std::nullopt},
      {"null}", std::nullopt},
      {"\ftrue}", std::nullopt},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.value);
    EXPECT_EQ(jsonBool(R"({"b":)" + test.value, "b"), test.expected);
  }
}

TEST(HexDigit, KnowsBothCasesAndRefusesEveryOtherByteIncludingHighOnes) {
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (int byte = -128; byte < 128; ++byte) {
    const char c = static_cast<char>(byte);
    int expected = -1;
    if (lower.find(c) != std::string::npos) expected = static_cast<int>(lower.find(c));
    if (upper.find(c) != std::string::npos) expected = static_cast<int>(upper.find(c));
    SCOPED_TRACE(byte);
    EXPECT_EQ(hexDigit(static_cast<signed char>(byte)), expected);
  }
}

TEST(ParseHex4, NeedsFourWholeDigitsInsideTheText) {
  EXPECT_EQ(parseHex4("xFfa9", 1), 0xFFA9u);
  EXPECT_EQ(parseHex4("xFfa", 1), std::nullopt);
  EXPECT_EQ(parseHex4("x12 4", 1), std::nullopt);
  EXPECT_EQ(parseHex4("1234", 5), std::nullopt);
  EXPECT_EQ(parseHex4("1234", UINT64_MAX - 1), std::nullopt);
}

TEST(AppendUtf8, EncodesEachRowBoundaryAndDropsCodePointsBeyondUnicode) {
  const struct {
    std::uint32_t cp;
    std::string expected;
  } cases[] = {
      {0x7F, "\x7f"},
      {0x80, "\xc2\x80"},
      {0x7FF, "\xdf\xbf"},
      {0x800, "\xe0\xa0\x80"},
      {0xFFFF, "\xef\xbf\xbf"},
      {0x10000, "\xf0\x90\x80\x80"},
      {0x10FFFF, "\xf4\x8f\xbf\xbf"},
      {0x110000, ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.cp);
    std::string out = "<";
    appendUtf8(out, test.cp);
    EXPECT_EQ(out, "<" + test.expected);
  }
}

}  // namespace
