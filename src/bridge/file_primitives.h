#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace quillmere {

// Real requests are a few kilobytes; a larger file is not a request and is never read. Reading
// and looking up the fields of one this size stays within a few milliseconds of a poll.
constexpr std::size_t kLargestReadableFile = std::size_t{1} << 20;

// Whole contents, or empty when the file cannot be opened as a regular file without waiting,
// cannot be read, or holds more than kLargestReadableFile bytes.
std::string readFile(const std::filesystem::path& path);

// Replaces the target through "<target>.tmp" and a rename; true when the target holds `contents`.
// An empty folder at the target is replaced too; a file that cannot be replaced is kept.
bool writeAtomic(const std::filesystem::path& target, const std::string& contents);

}  // namespace quillmere
