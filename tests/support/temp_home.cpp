#include "support/temp_home.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testing_support {

TempHome::TempHome() : oldCwd_(fs::current_path()) {
  if (const char* home = std::getenv("HOME")) oldHome_ = home;
  std::string pattern = (fs::temp_directory_path() / "quillmere-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::runtime_error("cannot make a temporary HOME");
  root_ = pattern;
  setHome(pattern);
}

TempHome::~TempHome() {
  std::error_code ignored;
  fs::current_path(oldCwd_, ignored);
  setHome(oldHome_);
  fs::remove_all(root_, ignored);
}

fs::path TempHome::bridge() const {
  return root_ / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
}

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeAll(const fs::path& path, const std::string& contents) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

void setHome(const std::optional<std::string>& value) {
  if (value) {
    ::setenv("HOME", value->c_str(), 1);
  } else {
    ::unsetenv("HOME");
  }
}

}  // namespace testing_support
