#include "platform/directory_listing.h"

#include <system_error>

#ifndef _WIN32
#include <dirent.h>
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

// The standard library's listing here tells no types without asking the file system again.
DirectoryListing::Type DirectoryListing::listedType() const {
  return Type::unknown;
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

DirectoryListing::Type DirectoryListing::listedType() const {
#if defined(_DIRENT_HAVE_D_TYPE) || defined(__APPLE__)
  switch (state_->entry->d_type) {
    case DT_REG:
      return Type::regularFile;
    case DT_LNK:
    case DT_UNKNOWN:
      return Type::unknown;
    default:
      return Type::other;
  }
#else
  return Type::unknown;
#endif
}

#endif

}  // namespace quillmere
