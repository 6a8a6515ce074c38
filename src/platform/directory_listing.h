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
  enum class Type { regularFile, other, unknown };
  // The type of the entry last named as far as the listing itself tells it, which costs no status
  // query: a link, and any entry of a file system (or platform) that does not say, is unknown.
  Type listedType() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillmere
