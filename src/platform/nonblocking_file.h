#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quillmere {

// A regular file opened without ever waiting: whatever stands at the path when it is opened, a
// FIFO, socket or device is refused at once, so a type checked earlier cannot be raced.
class NonblockingFile {
 public:
  enum class Mode {
    read,             // links followed
    createExclusive,  // fails when anything, a link included, stands at the path
    append,           // created when missing
  };

  NonblockingFile(const std::filesystem::path& path, Mode mode);
  ~NonblockingFile();
  NonblockingFile(const NonblockingFile&) = delete;
  NonblockingFile& operator=(const NonblockingFile&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  // The size the open file reports, which a writer elsewhere may change at any moment.
  std::uintmax_t size() const;
  // Reads from the current position until the end or until `limit` bytes; nothing on an error.
  std::optional<std::string> readAtMost(std::size_t limit);
  // Writes every byte, resuming short writes; false at the first error.
  bool writeAll(const char* data, std::size_t length);
  // Closes now; false when the close reports an error (an earlier write was lost).
  bool close();

 private:
  int descriptor_ = -1;
  std::uintmax_t size_ = 0;
};

}  // namespace quillmere
