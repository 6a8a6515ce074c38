#pragma once

#include <algorithm>
#include <set>

#include "bridge/bridge_directory.h"
#include "bridge/bridge_owner.h"
#include "platform/file_lock.h"
#include "platform/utf8_path.h"
#include "report/json_escape.h"
#include "support/host_fixture.h"

namespace testing_support {

using Names = std::set<std::string>;  // UTF-8 file names

// Whether a process, or another object of this one, holds a lock on `file`; asking takes none.
inline bool lockedElsewhere(const std::filesystem::path& file) {
  return quillmere::FileLock().tryTake(file, quillmere::FileLock::Kind::exclusive) ==
         quillmere::FileLock::Attempt::heldElsewhere;
}

// A stand-in project with one selected track and the bridge's queues made in a fresh HOME.
class BridgeTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    host().addTrack(true);
    ASSERT_TRUE(quillmere::ensureDirectories());
  }
  // The bridge a test took over lies in its own HOME, which goes with it.
  void TearDown() override {
    quillmere::leaveBridge();
    HostTest::TearDown();
  }

  std::filesystem::path queue(const char* name) const { return home.bridge() / name; }
  Names namesIn(const char* folder) const {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(queue(folder)))
      names.insert(quillmere::utf8FromPath(entry.path().filename()));
    return names;
  }
  std::string response(const char* id) const { return readAll(queue("responses") / id += ".json"); }
  long logLines() const {  // lines in the delivery log
    const std::string log = readAll(home.bridge() / "delivery.log");
    return std::count(log.begin(), log.end(), '\n');
  }
  // Nothing polls between a test's own steps, so a request needs no staged rename.
  void drop(const std::string& name, const std::string& document) const {
    writeAll(queue("requests") / quillmere::pathFromUtf8(name), document);
  }
  static std::string requestDocument(const std::string& id, const std::string& sourcePath,
                                     const std::string& extraFields = "") {
    return R"({"version":3,"command":"spot","request_id":")" + id +
           R"(","project_item_id":17,"source_path":")" + quillmere::jsonEscape(sourcePath) + "\"" +
           extraFields + "}";
  }
  std::string tone() const { return HostTest::tone("tone.wav", 2.0); }
};

}  // namespace testing_support
