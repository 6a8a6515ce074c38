#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fake_reaper/fake_reaper.h"
#include "support/temp_home.h"

namespace testing_support {

// A fresh HOME and a fresh stand-in project, with every host function bound in-process.
class BridgeTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  static fake_reaper::Host& host() { return fake_reaper::Host::instance(); }
  std::filesystem::path queue(const char* name) const { return home.bridge() / name; }
  std::vector<std::string> namesIn(const char* folder) const;  // sorted file names

  // Writes under a temporary name, then renames into "requests", as a producer must.
  void drop(const std::string& fileName, const std::string& document) const;
  // A valid spot request document for an audio file.
  static std::string requestDocument(const std::string& id, const std::string& sourcePath,
                                     const std::string& extraFields = "");
  // A two-second tone in HOME.
  std::string tone() const;

  TempHome home;
};

}  // namespace testing_support
