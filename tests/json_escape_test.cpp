#include "report/json_escape.h"

#include <gtest/gtest.h>

#include <string>

using quillmere::jsonEscape;

namespace {

TEST(JsonEscape, WritesEveryControlByteInItsOneFixedForm) {
  const char* const expected[0x20] = {
      "\\u0000", "\\u0001", "\\u0002", "\\u0003", "\\u0004", "\\u0005", "\\u0006", "\\u0007",
      "\\b",     "\\t",     "\\n",     "\\u000b", "\\f",     "\\r",     "\\u000e", "\\u000f",
      "\\u0010", "\\u0011", "\\u0012", "\\u0013", "\\u0014", "\\u0015", "\\u0016", "\\u0017",
      "\\u0018", "\\u0019", "\\u001a", "\\u001b", "\\u001c", "\\u001d", "\\u001e", "\\u001f"};
  for (int byte = 0; byte < 0x20; ++byte) {
    SCOPED_TRACE(byte);
    EXPECT_EQ(jsonEscape(std::string(1, static_cast<char>(byte))), expected[byte]);
  }
}

TEST(JsonEscape, EscapesOnlyQuoteAndBackslashAmongPrintableAndHighBytes) {
  const struct {
    std::string input;
    std::string expected;
  } cases[] = {
      {"\"", "\\\""},
      {"\\", "\\\\"},
      {"/", "/"},
      {" ", " "},
      {"\x7f", "\x7f"},
      {"\xe5", "\xe5"},
      {"\xff\x80", "\xff\x80"},
      {"\xe6\x97\xa5", "\xe6\x97\xa5"},
      {"", ""},
      {"a\"b\\c\nd\te", "a\\\"b\\\\c\\nd\\te"},
      {std::string("x\0y", 3), "x\\u0000y"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.input);
    EXPECT_EQ(jsonEscape(test.input), test.expected);
  }
}

}  // namespace
