#include "support/bridge_fixture.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace testing_support {

Names BridgeTest::namesIn(const char* folder) const {
  Names names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(queue(folder), missing)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string BridgeTest::response(const std::string& id) const {
  return readAll(queue("responses") / (id + ".json"));
}

long BridgeTest::logLines() const {
  const std::string log = readAll(home.bridge() / "delivery.log");
  return std::count(log.begin(), log.end(), '\n');
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

}  // namespace testing_support
