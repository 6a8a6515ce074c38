// The stream of requests the soak feeds the bridge: every one valid, each with its own file name,
// request id and take name.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kill_soak {

struct QueuedRequest {
  std::string fileName;  // in "requests"; the name order is the order of submission
  std::string id;
  std::string takeName;
  std::string document;
};

class SoakQueue {
 public:
  SoakQueue(std::filesystem::path bridge, std::string sourcePath);

  // Queues new requests until `pending` wait in "requests"; returns how many it added.
  std::size_t topUp(std::size_t pending);

  const std::vector<QueuedRequest>& all() const { return queued_; }

 private:
  std::filesystem::path bridge_;
  std::string sourcePath_;
  std::vector<QueuedRequest> queued_;
};

}  // namespace kill_soak
