#include "support/temp_home.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testing_support {

TempHome::TempHome() {
  if (const char* home = std::getenv("HOME")) oldHome_ = home;
  std::string pattern = (fs::temp_directory_path() / "quillmere-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a HOME");
  setHome((root_ = pattern).string());
}

TempHome::~TempHome() {
  std::error_code ignored;
  fs::current_path(oldCwd_, ignored);
  setHome(oldHome_);
  fs::remove_all(root_, ignored);
}

std::string readAll(const fs::path& path) {
  return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

void writeAll(const fs::path& path, const std::string& contents) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

void setHome(const std::optional<std::string>& value) {
  value ? ::setenv("HOME", value->c_str(), 1) : ::unsetenv("HOME");
}

}  // namespace testing_support
