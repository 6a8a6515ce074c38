#include "support/host_fixture.h"

#include "platform/utf8_path.h"

namespace testing_support {

std::string HostTest::tone(const std::string& name, double seconds, int sampleRate) const {
  const std::string path = quillmere::utf8FromPath(home.path() / quillmere::pathFromUtf8(name));
  EXPECT_TRUE(fake_reaper::writeTestTone(path, seconds, sampleRate)) << path;
  return path;
}

}  // namespace testing_support
