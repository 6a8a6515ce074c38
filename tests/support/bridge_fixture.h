#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/host_fixture.h"

namespace testing_support {

using Names = std::vector<std::string>;

// A stand-in project with one selected track, the bridge folder in a fresh HOME (its queues not
// yet created), and a producer's way of dropping requests into it.
class BridgeTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    host().addTrack(true);
  }

  std::filesystem::path queue(const char* name) const { return home.bridge() / name; }
  Names namesIn(const char* folder) const;  // sorted; empty when the folder is missing
  std::string response(const std::string& id) const;
  long logLines() const;  // lines in the delivery log

  // Writes under a temporary name, then renames into "requests", as a producer must.
  void drop(const std::string& fileName, const std::string& document) const;
  static std::string requestDocument(const std::string& id, const std::string& sourcePath,
                                     const std::string& extraFields = "");
  std::string tone() const { return HostTest::tone("tone.wav", 2.0); }
};

}  // namespace testing_support
