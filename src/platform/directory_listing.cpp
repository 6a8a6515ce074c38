#include "platform/directory_listing.h"

#include <system_error>

#ifndef _WIN32
#include <dirent.h>
#include <sys/stat.h>
#endif

namespace fs = std::filesystem;

namespace quillmere {

#ifdef _WIN32

struct DirectoryListing::State {
  fs::directory_iterator entry;
  bool started = false;
  fs::path::string_type name;
};

DirectoryListing::DirectoryListing(const fs::path& folder) : state_(std::make_unique<State>()) {
  std::error_code error;
  state_->entry = fs::directory_iterator(folder, error);
}

DirectoryListing::~DirectoryListing() = default;

std::optional<DirectoryListing::Name> DirectoryListing::next() {
  std::error_code error;
  if (state_->started && state_->entry != fs::directory_iterator()) state_->entry.increment(error);
  state_->started = true;
  if (error) state_->entry = fs::directory_iterator();
  if (state_->entry == fs::directory_iterator()) return std::nullopt;
  state_->name = state_->entry->path().filename().native();
  return Name(state_->name);
}

bool DirectoryListing::isRegularFile() const {
  std::error_code error;
  return state_->entry->is_regular_file(error);
}

#else

struct DirectoryListing::State {
  DIR* folder = nullptr;
  const dirent* entry = nullptr;
};

DirectoryListing::DirectoryListing(const fs::path& folder) : state_(std::make_unique<State>()) {
  state_->folder = ::opendir(folder.c_str());
}

DirectoryListing::~DirectoryListing() {
  if (state_->folder != nullptr) ::closedir(state_->folder);
}

std::optional<DirectoryListing::Name> DirectoryListing::next() {
  if (state_->folder == nullptr) return std::nullopt;
  while ((state_->entry = ::readdir(state_->folder)) != nullptr) {
    const Name name(state_->entry->d_name);
    if (name != "." && name != "..") return name;
  }
  return std::nullopt;
}

bool DirectoryListing::isRegularFile() const {
  const dirent* entry = state_->entry;
#if defined(_DIRENT_HAVE_D_TYPE) || defined(__APPLE__)
  // Most file systems tell the type in the listing; only links and the unknown need a look.
  if (entry->d_type == DT_REG) return true;
  if (entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN) return false;
#endif
  struct stat status;
  return ::fstatat(dirfd(state_->folder), entry->d_name, &status, 0) == 0 &&
         S_ISREG(status.st_mode);
}

#endif

}  // namespace quillmere
