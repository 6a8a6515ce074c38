#include "platform/file_lock.h"

#include <cerrno>

#ifdef _WIN32
#include <io.h>
#else
#include <sys/file.h>
#include <sys/stat.h>
#endif

#include "platform/windows_api.h"

namespace quillmere {

namespace {

#ifdef _WIN32

// Windows locks forbid reading and writing the bytes they cover, so the lock covers one byte far
// beyond any end the file will have, and what the file says stays readable.
OVERLAPPED lockedRange() {
  OVERLAPPED range{};
  range.Offset = 0;
  range.OffsetHigh = 0x40000000;
  return range;
}

FileLock::Attempt lock(int descriptor, FileLock::Kind kind) {
  const HANDLE handle = reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor));
  DWORD flags = LOCKFILE_FAIL_IMMEDIATELY;
  if (kind == FileLock::Kind::exclusive) flags |= LOCKFILE_EXCLUSIVE_LOCK;
  OVERLAPPED range = lockedRange();
  if (::LockFileEx(handle, flags, 0, 1, 0, &range) != 0) return FileLock::Attempt::taken;
  return ::GetLastError() == ERROR_LOCK_VIOLATION ? FileLock::Attempt::heldElsewhere
                                                  : FileLock::Attempt::unavailable;
}

// Closing releases the lock too, but only once the system gets round to it.
void unlock(int descriptor) {
  OVERLAPPED range = lockedRange();
  ::UnlockFileEx(reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor)), 0, 1, 0, &range);
}

// The lock file is opened without delete sharing, so while it is held it can be neither removed
// nor renamed, nor can the folders above it.
bool sameFile(int, const std::filesystem::path&) {
  return true;
}

#else

FileLock::Attempt lock(int descriptor, FileLock::Kind kind) {
  const int operation = (kind == FileLock::Kind::exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
  int result;
  do {
    result = ::flock(descriptor, operation);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return FileLock::Attempt::taken;
  return errno == EWOULDBLOCK ? FileLock::Attempt::heldElsewhere : FileLock::Attempt::unavailable;
}

void unlock(int descriptor) {
  ::flock(descriptor, LOCK_UN);
}

bool sameFile(int descriptor, const std::filesystem::path& path) {
  struct stat open, named;
  return ::fstat(descriptor, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

#endif

}  // namespace

FileLock::~FileLock() {
  release();
}

FileLock::Attempt FileLock::tryTake(const std::filesystem::path& path, Kind kind) {
  release();
  file_.emplace(path, NonblockingFile::Mode::lock);
  const Attempt attempt = file_->isOpen() ? lock(file_->descriptor_, kind) : Attempt::unavailable;
  if (attempt != Attempt::taken) file_.reset();
  path_ = path;
  return attempt;
}

bool FileLock::stillAtItsPath() const {
  return held() && sameFile(file_->descriptor_, path_);
}

bool FileLock::replaceContents(const std::string& contents) {
  return held() && file_->replaceContents(contents);
}

void FileLock::release() {
  if (!held()) return;
  unlock(file_->descriptor_);
  file_.reset();
}

}  // namespace quillmere
