#include "support/host_fixture.h"

namespace testing_support {

std::string HostTest::tone(const std::string& name, double seconds, int sampleRate) const {
  const std::string path = (home.path() / name).string();
  EXPECT_TRUE(fake_reaper::writeTestTone(path, seconds, sampleRate)) << path;
  return path;
}

}  // namespace testing_support
