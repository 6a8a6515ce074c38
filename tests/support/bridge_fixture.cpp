#include "support/bridge_fixture.h"

#include <algorithm>

#include "support/temp_home.h"

namespace fs = std::filesystem;

namespace testing_support {

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

}  // namespace testing_support
