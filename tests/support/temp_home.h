#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace testing_support {

// A fresh folder set as HOME for one test; HOME and the working folder are restored after.
class TempHome {
 public:
  TempHome();
  ~TempHome();
  TempHome(const TempHome&) = delete;
  TempHome& operator=(const TempHome&) = delete;

  const std::filesystem::path& path() const { return root_; }
  std::filesystem::path bridge() const;  // HOME/Library/Application Support/Quillmere/reaper-bridge

 private:
  std::filesystem::path root_;
  std::optional<std::string> oldHome_;
  std::filesystem::path oldCwd_;
};

std::string readAll(const std::filesystem::path& path);
void writeAll(const std::filesystem::path& path, const std::string& contents);

// Sets or unsets HOME ("nullopt" unsets).
void setHome(const std::optional<std::string>& value);

}  // namespace testing_support
