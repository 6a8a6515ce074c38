#include "support/bridge_fixture.h"

#include <algorithm>

#include "extension/host_api.h"

namespace fs = std::filesystem;

namespace testing_support {

void BridgeTest::SetUp() {
  host().reset();
  ASSERT_EQ(quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc), 0);
}

void BridgeTest::TearDown() {
  for (const std::string& violation : host().checkSettled()) ADD_FAILURE() << violation;
  host().reset();
}

std::vector<std::string> BridgeTest::namesIn(const char* folder) const {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(queue(folder), error); !error && it != fs::directory_iterator();
       it.increment(error)) {
    names.push_back(it->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void BridgeTest::drop(const std::string& fileName, const std::string& document) const {
  const fs::path staging = queue("requests") / (fileName + ".partial");
  writeAll(staging, document);
  fs::rename(staging, queue("requests") / fileName);
}

std::string BridgeTest::requestDocument(const std::string& id, const std::string& sourcePath,
                                        const std::string& extraFields) {
  return R"({"version":3,"command":"spot","request_id":")" + id +
         R"(","project_item_id":17,"source_path":")" + sourcePath + "\"" + extraFields + "}";
}

std::string BridgeTest::tone() const {
  const fs::path path = home.path() / "tone.wav";
  if (!fs::exists(path)) fake_reaper::writeTestTone(path.string(), 2.0);
  return path.string();
}

}  // namespace testing_support
