#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

// What another process watching the bridge would see, in the order the file system reports it:
// "claimed/x.json in", "claimed/x.json out", "responses/abc.json in", "delivery.log written",
// and "requests opened" when the folder itself is opened (to be listed or flushed). Temporaries
// are left out; only names arriving, leaving and the log growing are reported.
class FolderEvents {
 public:
  explicit FolderEvents(const std::filesystem::path& bridge);
  ~FolderEvents();
  FolderEvents(const FolderEvents&) = delete;
  FolderEvents& operator=(const FolderEvents&) = delete;

  // The events since the last call.
  std::vector<std::string> take();

 private:
  int descriptor_;
  int bridge_, claimed_, responses_, requests_;
};

}  // namespace testing_support
