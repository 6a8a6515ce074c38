#include "support/temp_home.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "platform/utf8_path.h"

namespace fs = std::filesystem;

namespace testing_support {

namespace {

fs::path freshFolder() {
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const fs::path folder =
        fs::temp_directory_path() / ("quillmere-test-" + std::to_string(random()));
    if (fs::create_directory(folder)) return folder;
  }
  throw std::runtime_error("cannot make a HOME");
}

std::optional<std::string> variable(const char* name) {
#if defined(_WIN32)
  const wchar_t* value = _wgetenv(quillmere::pathFromUtf8(name).c_str());
  if (value == nullptr) return std::nullopt;
  return quillmere::utf8FromPath(value);
#else
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::string(value);
#endif
}

}  // namespace

TempHome::TempHome()
    : root_(freshFolder()), oldHome_(variable("HOME")), oldUserProfile_(variable("USERPROFILE")) {
  setHome(quillmere::utf8FromPath(root_));
}

TempHome::~TempHome() {
  std::error_code ignored;
  fs::current_path(oldCwd_, ignored);
  setHome(oldHome_);
  setVariable("USERPROFILE", oldUserProfile_);
  fs::remove_all(root_, ignored);
}

std::string readAll(const fs::path& path) {
  return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

void writeAll(const fs::path& path, const std::string& contents) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

void setVariable(const char* name, const std::optional<std::string>& value) {
#if defined(_WIN32)
  // An empty value removes the variable, as unsetting does.
  _wputenv(quillmere::pathFromUtf8(name + ("=" + value.value_or(""))).c_str());
#else
  value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
#endif
}

bool makeSymlink(const fs::path& target, const fs::path& link) {
  std::error_code error;
  fs::create_symlink(target, link, error);
  return !error;
}

}  // namespace testing_support
