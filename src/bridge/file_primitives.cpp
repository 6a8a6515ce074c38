#include "bridge/file_primitives.h"

#include <optional>
#include <system_error>

#include "platform/nonblocking_file.h"

namespace fs = std::filesystem;

namespace quillmere {

std::string readFile(const fs::path& path) {
  NonblockingFile in(path, NonblockingFile::Mode::read);
  if (!in.isOpen() || in.size() > kLargestReadableFile) return {};
  // The file may grow after its size was taken: one byte past the limit tells that it did.
  const std::optional<std::string> contents = in.readAtMost(kLargestReadableFile + 1);
  if (!contents || contents->size() > kLargestReadableFile) return {};
  return *contents;
}

bool writeAtomic(const fs::path& target, const std::string& contents) {
  std::error_code error;
  // A bare file name lives in the working folder, which exists; creating "" would report an error.
  const fs::path parent = target.parent_path();
  if (!parent.empty()) {
    fs::create_directories(parent, error);
    if (error) return false;
  }

  fs::path temporary = target;
  temporary += ".tmp";
  fs::remove(temporary, error);
  error.clear();

  {
    // Created afresh, so nothing that appeared there since the removal is ever written through.
    NonblockingFile out(temporary, NonblockingFile::Mode::createExclusive);
    // The partial temporary stays; the next write to this target removes it first.
    if (!out.writeAll(contents.data(), contents.size()) || !out.close()) return false;
  }

  fs::rename(temporary, target, error);
  if (!error) return true;

  // Only a folder at the target is cleared for a second try. A file that could not be replaced
  // is held open by a reader on Windows: removing it there would make it vanish once the reader
  // closes it, rather than keep its old contents until the next write.
  if (fs::is_directory(fs::symlink_status(target, error))) {
    fs::remove(target, error);
    error.clear();
    fs::rename(temporary, target, error);
    if (!error) return true;
  }

  fs::remove(temporary, error);
  return false;
}

}  // namespace quillmere
