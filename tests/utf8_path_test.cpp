#include "platform/utf8_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "support/temp_home.h"

namespace fs = std::filesystem;
using namespace quillmere;

namespace {

TEST(Utf16FromUtf8, DecodesEverySequenceLengthAndLoneSurrogatesAndReplacesEachBadByte) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"a\x7f", u"a\x7f"},
      {"\xc3\xbc\xe9\x9f\xb3\xef\xbf\xbf", u"\u00fc\u97f3\uffff"},
      {"\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf", u"\U0001F600\U0010FFFF"},
      {"\xed\xa0\x80x\xed\xbf\xbf", {0xD800, 'x', 0xDFFF}},
      {"\xed\xa0\xbd\xed\xb8\x80", {0xD83D, 0xDE00}},  // a pair, each half on its own
      {"\x80|\xc0\x80|\xe0\x9f\xbf|\xf0\x8f\xbf\xbf|\xf4\x90\x80\x80|\xf5|\xff",
       u"\ufffd|\ufffd\ufffd|\ufffd\ufffd\ufffd|\ufffd\ufffd\ufffd\ufffd|"
       u"\ufffd\ufffd\ufffd\ufffd|\ufffd|\ufffd"},
      {"\xe9\x9f", u"\ufffd\ufffd"},  // cut short at the end
      {"\xe9x\xb3", u"\ufffdx\ufffd"},
      {std::string("\0", 1), std::u16string(1, u'\0')},
  };
  for (const auto& [bytes, units] : cases) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(utf16FromUtf8(bytes), units);
  }
}

TEST(Utf8FromUtf16, EncodesPairsAsOneLetterAndLoneSurrogatesAsTheirOwnBytesBothWays) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"K\u00fc\u97f3\uffff", "K\xc3\xbc\xe9\x9f\xb3\xef\xbf\xbf"},
      {u"\U0001F600\U0010FFFF", "\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf"},
      {{0xD800, 'x', 0xDFFF}, "\xed\xa0\x80x\xed\xbf\xbf"},
      {{0xDE00, 0xD83D}, "\xed\xb8\x80\xed\xa0\xbd"},  // low before high is no pair
      {{0xD83D}, "\xed\xa0\xbd"},
  };
  for (const auto& [units, bytes] : cases) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(utf8FromUtf16(units), bytes);
    EXPECT_EQ(utf16FromUtf8(bytes), units);
  }
}

TEST(Utf8Path, NamesAFileByItsUtf8BytesAndReadsTheSameBytesBackFromTheFolder) {
  const std::string name = "Ünïcödé 音 \xf0\x9f\x98\x80.wav";
  testing_support::TempHome home;
  testing_support::writeAll(home.path() / pathFromUtf8(name), "x");
  const fs::directory_iterator listed(home.path());
  ASSERT_NE(listed, fs::directory_iterator());
  EXPECT_EQ(utf8FromPath(listed->path().filename()), name);
  EXPECT_TRUE(fs::is_regular_file(pathFromUtf8(utf8FromPath(home.path()) + "/" + name)));
}

}  // namespace
