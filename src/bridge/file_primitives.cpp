#include "bridge/file_primitives.h"

#include <fstream>
#include <iterator>
#include <system_error>

namespace fs = std::filesystem;

namespace quillmere {

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  try {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  } catch (const std::ios_base::failure&) {
    // The stream buffer raises on a read error (a folder opens but cannot be read): no contents.
    return {};
  }
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
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    out.flush();
    // The partial temporary stays; the next write to this target removes it first.
    if (!out) return false;
  }

  fs::rename(temporary, target, error);
  if (!error) return true;

  // Something that rename cannot replace stands at the target (an empty folder, say): clear it
  // and try once more, accepting that a second failure leaves no target at all.
  fs::remove(target, error);
  error.clear();
  fs::rename(temporary, target, error);
  if (!error) return true;

  fs::remove(temporary, error);
  return false;
}

}  // namespace quillmere
