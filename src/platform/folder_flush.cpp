#include "platform/folder_flush.h"

#include <cerrno>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

#include "platform/windows_api.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

#ifdef _WIN32

// A folder's handle may be flushed only when opened for writing, which a folder allows with
// backup semantics; every sharing mode is granted so that no producer is held up meanwhile.
bool flushOne(const fs::path& folder, bool /*last*/) {
  const HANDLE handle = ::CreateFileW(folder.c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool flushed = ::FlushFileBuffers(handle) != 0;
  ::CloseHandle(handle);
  return flushed;
}

#else

int syncRaw(int descriptor, bool last) {
#ifdef __APPLE__
  // fsync hands the folder to the drive, whose cache a power cut may still empty; F_FULLFSYNC
  // also empties that cache, for everything sent before it, so once for the last folder does.
  // File systems without it (shares, FAT) refuse it and get the plain fsync.
  if (last && ::fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
#else
  (void)last;
#endif
  return ::fsync(descriptor);
}

bool flushOne(const fs::path& folder, bool last) {
  int descriptor;
  do {
    descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return false;
  int result;
  do {
    result = syncRaw(descriptor, last);
  } while (result != 0 && errno == EINTR);
  ::close(descriptor);
  return result == 0;
}

#endif

}  // namespace

bool flushFolders(std::initializer_list<fs::path> folders) {
  bool flushed = true;
  std::size_t left = folders.size();
  for (const fs::path& folder : folders) flushed = flushOne(folder, --left == 0) && flushed;
  return flushed;
}

}  // namespace quillmere
