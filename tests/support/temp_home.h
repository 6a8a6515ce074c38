#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace testing_support {

// A fresh folder set as HOME for one test; HOME and the working folder are restored after.
class TempHome {
  std::filesystem::path root_, oldCwd_ = std::filesystem::current_path();
  std::optional<std::string> oldHome_;

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

// Sets or unsets HOME ("nullopt" unsets).
void setHome(const std::optional<std::string>& value);

}  // namespace testing_support
