#pragma once

#include <filesystem>

namespace quillmere {

// Empty when HOME is unset or empty, so every bridge path becomes relative to the working folder.
std::filesystem::path bridgeDirectory();
std::filesystem::path queueDirectory(const char* name);
bool ensureDirectories();

}  // namespace quillmere
