#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/host_fixture.h"

namespace testing_support {

// A stand-in host plus the bridge folder in the fresh HOME, and a producer's way of dropping
// requests into it.
class BridgeTest : public HostTest {
 protected:
  std::filesystem::path queue(const char* name) const { return home.bridge() / name; }
  std::vector<std::string> namesIn(const char* folder) const;  // sorted file names

  // Writes under a temporary name, then renames into "requests", as a producer must.
  void drop(const std::string& fileName, const std::string& document) const;
  // A valid spot request document for an audio file.
  static std::string requestDocument(const std::string& id, const std::string& sourcePath,
                                     const std::string& extraFields = "");
  // A two-second tone in HOME.
  using HostTest::tone;
  std::string tone() const { return tone("tone.wav", 2.0); }
};

}  // namespace testing_support
