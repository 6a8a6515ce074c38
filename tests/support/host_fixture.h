#pragma once

#include <gtest/gtest.h>

#include <string>

#include "fake_reaper/fake_reaper.h"
#include "host/host_api.h"
#include "platform/utf8_path.h"
#include "support/temp_home.h"

namespace testing_support {

// A fresh stand-in project with every host function bound, and a fresh HOME. A test fails when
// it leaves the host unsettled (refresh held, undo block open, a source leaked) or broke a rule.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    ASSERT_EQ(quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc), 0);
  }
  void TearDown() override { expectSettled(); }

  static fake_reaper::Host& host() { return fake_reaper::Host::instance(); }
  // Fails the test for every host rule broken so far.
  static void expectSettled() {
    for (const std::string& violation : host().checkSettled()) ADD_FAILURE() << violation;
  }
  // A tone of `seconds` written into HOME under `name`; returns its path. Both are UTF-8.
  std::string tone(const std::string& name, double seconds, int sampleRate = 8000) const {
    const std::string path = quillmere::utf8FromPath(home.path() / quillmere::pathFromUtf8(name));
    EXPECT_TRUE(fake_reaper::writeTestTone(path, seconds, sampleRate)) << path;
    return path;
  }

  TempHome home;
};

}  // namespace testing_support
