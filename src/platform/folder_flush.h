#pragma once

#include <filesystem>
#include <initializer_list>

namespace quillmere {

// Asks the file system to put each folder's entries, as they stand now, on the disk before this
// returns, so that a rename between them outlives a power cut. False when any folder could not be
// flushed: some file systems (network shares, some FUSE mounts) refuse to flush a folder at all.
bool flushFolders(std::initializer_list<std::filesystem::path> folders);

}  // namespace quillmere
