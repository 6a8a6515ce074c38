#pragma once

#include <filesystem>
#include <string>

namespace quillmere {

// Whole contents, or empty when the file cannot be opened.
std::string readFile(const std::filesystem::path& path);

// Replaces the target through "<target>.tmp" and a rename; true when the target holds `contents`.
bool writeAtomic(const std::filesystem::path& target, const std::string& contents);

}  // namespace quillmere
