#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

namespace quillmere {

// The entries of one folder by name, without building a path for each, in the order the file
// system gives them. An error while reading ends the listing as if the folder ended there.
class DirectoryListing {
 public:
  using Name = std::basic_string_view<std::filesystem::path::value_type>;

  explicit DirectoryListing(const std::filesystem::path& folder);
  ~DirectoryListing();
  DirectoryListing(const DirectoryListing&) = delete;
  DirectoryListing& operator=(const DirectoryListing&) = delete;

  // The next name ("." and ".." left out), valid until the next call; nothing at the end.
  std::optional<Name> next();
  // Whether the entry last named is a regular file, a link counting by what it points to; false
  // when its type cannot be read (a link to itself, say).
  bool isRegularFile() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillmere
