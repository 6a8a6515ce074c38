#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quillmere {

// A regular file opened without ever waiting: whatever stands at the path when it is opened, a
// FIFO, socket or device is refused at once, so a type checked earlier cannot be raced. Nothing
// opened here passes to a program the host starts.
class NonblockingFile {
 public:
  enum class Mode {
    read,             // links followed
    createExclusive,  // fails when anything, a link included, stands at the path
    append,           // created when missing; readable; a link at the path is refused
    // For a lock: read and write, or read alone where writing is refused (a file another user
    // left, a read-only disk); created when missing; a link at the path is refused.
    lock,
  };

  NonblockingFile(const std::filesystem::path& path, Mode mode);
  ~NonblockingFile();
  NonblockingFile(const NonblockingFile&) = delete;
  NonblockingFile& operator=(const NonblockingFile&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  // The size the open file reported when opened, which a writer elsewhere may change.
  std::uintmax_t size() const;
  // Reads from the current position until the end or until `limit` bytes; nothing on an error.
  std::optional<std::string> readAtMost(std::size_t limit);
  // The file's last byte as it stood when opened; nothing when it was empty or on an error.
  std::optional<char> lastByte();
  // Writes every byte, resuming short writes; false at the first error. A write that would take
  // the file past the process's file-size limit is refused whole, before any byte is written,
  // since crossing that limit raises a signal that ends the process.
  bool writeAll(const char* data, std::size_t length);
  // Truncates the file and writes `contents` from its start; false at the first error.
  bool replaceContents(const std::string& contents);
  // Closes now; false when the close reports an error (an earlier write was lost).
  bool close();

 private:
  friend class FileLock;

  int descriptor_ = -1;
  bool appending_ = false;
  std::uintmax_t size_ = 0;
  std::uintmax_t position_ = 0;  // where the next write lands unless appending
};

}  // namespace quillmere
