#include "support/host_fixture.h"

#include "extension/host_api.h"

namespace testing_support {

void HostTest::SetUp() {
  host().reset();
  ASSERT_EQ(quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc), 0);
}

void HostTest::TearDown() {
  expectSettled();
  host().reset();
}

void HostTest::expectSettled() {
  for (const std::string& violation : host().checkSettled()) ADD_FAILURE() << violation;
}

std::string HostTest::tone(const std::string& name, double seconds, int sampleRate) const {
  const std::string path = (home.path() / name).string();
  EXPECT_TRUE(fake_reaper::writeTestTone(path, seconds, sampleRate)) << path;
  return path;
}

}  // namespace testing_support
