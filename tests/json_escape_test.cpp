#include "report/json_escape.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(JsonEscape, WritesEachControlByteInItsOneFormAndPassesOtherBytesButQuoteAndBackslash) {
  std::string text;
  for (char byte = 0; byte < 0x20; ++byte) text += byte;
  EXPECT_EQ(quillmere::jsonEscape(text + "\"\\/ \x7f\xe5\xff"),
            "\\u0000\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000b\\f\\r\\u000e"
            "\\u000f\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001a"
            "\\u001b\\u001c\\u001d\\u001e\\u001f\\\"\\\\/ \x7f\xe5\xff");
}

}  // namespace
