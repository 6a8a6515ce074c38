#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace testing_support {

// A fresh folder set as HOME for one test; HOME, USERPROFILE and the working folder are restored
// after.
class TempHome {
  std::filesystem::path root_, oldCwd_ = std::filesystem::current_path();
  std::optional<std::string> oldHome_, oldUserProfile_;  // UTF-8

 public:
  TempHome();
  ~TempHome();

  const std::filesystem::path& path() const { return root_; }
  std::filesystem::path bridge() const {
    return root_ / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
  }
};

std::string readAll(const std::filesystem::path& path);
void writeAll(const std::filesystem::path& path, const std::string& contents);

// Sets an environment variable to UTF-8 bytes, or unsets it ("nullopt" unsets; on Windows an
// empty value unsets it too).
void setVariable(const char* name, const std::optional<std::string>& value);
inline void setHome(const std::optional<std::string>& value) {
  setVariable("HOME", value);
}

// Makes `link` a symbolic link to `target`; false where the platform cannot (MinGW's library
// makes no links, and Windows allows them only to some users).
bool makeSymlink(const std::filesystem::path& target, const std::filesystem::path& link);

}  // namespace testing_support
