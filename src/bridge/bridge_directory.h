#pragma once

#include <filesystem>

namespace quillmere {

// Where the bridge folder is at this moment, absolute: under HOME (on Windows USERPROFILE where
// HOME is unset), else the working folder itself. Empty only when not even the working folder
// can be read.
std::filesystem::path locateBridgeDirectory();

// The extension fixes the folder at load, so that a host changing its working folder or
// environment later cannot move the bridge under a running queue; releasing it lets it follow
// locateBridgeDirectory() again.
void fixBridgeDirectory();
void releaseBridgeDirectory();

// The fixed folder, or locateBridgeDirectory() while none is fixed.
std::filesystem::path bridgeDirectory();
std::filesystem::path queueDirectory(const char* name);
// False when a queue folder cannot be made, or the bridge folder cannot be located.
bool ensureDirectories();

}  // namespace quillmere
