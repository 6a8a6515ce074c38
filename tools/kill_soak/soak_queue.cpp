#include "kill_soak/soak_queue.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace kill_soak {

namespace {

std::string numbered(const char* prefix, std::size_t number) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%06zu", number);
  return prefix + std::string(digits);
}

std::size_t pendingIn(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".json") ++count;
  }
  return count;
}

}  // namespace

SoakQueue::SoakQueue(fs::path bridge, std::string sourcePath)
    : bridge_(std::move(bridge)), sourcePath_(std::move(sourcePath)) {
  fs::create_directories(bridge_ / "requests");
}

std::size_t SoakQueue::topUp(std::size_t pending) {
  const fs::path folder = bridge_ / "requests";
  std::size_t added = 0;
  for (std::size_t waiting = pendingIn(folder); waiting < pending; ++waiting, ++added) {
    const std::size_t number = queued_.size() + 1;
    QueuedRequest request;
    request.fileName = numbered("q", number) + ".json";
    request.id = numbered("req-", number);
    request.takeName = numbered("Soak take ", number);
    request.document = R"({"version":3,"command":"spot","request_id":")" + request.id +
                       R"(","project_item_id":)" + std::to_string(number) + R"(,"source_path":")" +
                       sourcePath_ + R"(","display_name":")" + request.takeName +
                       R"(","gain_db":-6})";
    // Written whole under a name the bridge does not take, then given its ".json" name.
    const fs::path partial = folder / (request.fileName + ".part");
    {
      std::ofstream out(partial, std::ios::binary | std::ios::trunc);
      out << request.document;
      if (!out.flush()) throw std::runtime_error("cannot write " + partial.string());
    }
    fs::rename(partial, folder / request.fileName);
    queued_.push_back(std::move(request));
  }
  return added;
}

}  // namespace kill_soak
