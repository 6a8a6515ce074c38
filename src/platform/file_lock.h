#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/nonblocking_file.h"

namespace quillmere {

// A lock on a whole file, tried without waiting and held until released, until the object ends or
// until the process ends, however it ends. Two objects of one process conflict as two processes
// do. The file's contents stay readable and writable to everyone while it is locked.
class FileLock {
 public:
  enum class Kind { shared, exclusive };
  enum class Attempt {
    taken,
    heldElsewhere,  // a conflicting lock is held
    unavailable,    // the file cannot be opened as a regular file (a link, a folder) or locked
  };

  FileLock() = default;
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // Opens the file, creating it when missing, and tries the lock once; a lock held before by
  // this object is released first.
  Attempt tryTake(const std::filesystem::path& path, Kind kind);
  bool held() const { return file_.has_value(); }
  // Whether the path it was taken on still names the locked file: false once that file has been
  // removed or replaced, when another object may lock whatever stands there now.
  bool stillAtItsPath() const;
  // Replaces the locked file's contents; false when nothing is held or the file cannot be written.
  bool replaceContents(const std::string& contents);
  void release();

 private:
  std::optional<NonblockingFile> file_;
  std::filesystem::path path_;
};

}  // namespace quillmere
