#include "platform/nonblocking_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <limits>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#else
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "platform/windows_api.h"

namespace quillmere {

namespace {

#ifdef _WIN32

// Opens the object at the path itself, never what a link or junction there points to, and
// refuses it when it is one: a dangling link must not bring its target into being.
int openUnfollowed(const std::filesystem::path& path, DWORD access, DWORD sharing,
                   DWORD disposition, int crtFlags) {
  const HANDLE handle =
      ::CreateFileW(path.c_str(), access, sharing, nullptr, disposition,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return -1;
  BY_HANDLE_FILE_INFORMATION information;
  if (::GetFileInformationByHandle(handle, &information) == 0 ||
      (information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) !=
          0) {
    ::CloseHandle(handle);
    return -1;
  }
  const int descriptor =
      ::_open_osfhandle(reinterpret_cast<intptr_t>(handle), crtFlags | _O_NOINHERIT);
  if (descriptor < 0) ::CloseHandle(handle);
  return descriptor;
}

// Folders cannot hold FIFOs here, but a path may still name a device or a pipe.
int openRaw(const std::filesystem::path& path, NonblockingFile::Mode mode) {
  switch (mode) {
    case NonblockingFile::Mode::read:
      return ::_wopen(path.c_str(), _O_BINARY | _O_NOINHERIT | _O_RDONLY);
    case NonblockingFile::Mode::createExclusive:
      return ::_wopen(path.c_str(), _O_BINARY | _O_NOINHERIT | _O_WRONLY | _O_CREAT | _O_EXCL,
                      _S_IREAD | _S_IWRITE);
    case NonblockingFile::Mode::append:
      // Append access alone places every write at the end, whatever the position.
      return openUnfollowed(path, GENERIC_READ | FILE_APPEND_DATA,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_ALWAYS,
                            _O_APPEND);
    case NonblockingFile::Mode::lock: {
      // Without delete sharing, nothing can remove or replace a lock file while it is open.
      const DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE;
      const int descriptor =
          openUnfollowed(path, GENERIC_READ | GENERIC_WRITE, sharing, OPEN_ALWAYS, 0);
      if (descriptor >= 0 || ::GetLastError() != ERROR_ACCESS_DENIED) return descriptor;
      return openUnfollowed(path, GENERIC_READ, sharing, OPEN_EXISTING, _O_RDONLY);
    }
  }
  return -1;
}

bool regularSize(int descriptor, std::uintmax_t& size) {
  struct _stat64 status;
  if (::_fstat64(descriptor, &status) != 0 || (status.st_mode & _S_IFMT) != _S_IFREG) return false;
  size = static_cast<std::uintmax_t>(status.st_size);
  return true;
}

long long readSome(int descriptor, char* into, std::size_t length) {
  return ::_read(descriptor, into, static_cast<unsigned>(std::min<std::size_t>(length, INT_MAX)));
}

long long readAt(int descriptor, char* into, std::size_t length, std::uintmax_t offset) {
  if (::_lseeki64(descriptor, static_cast<long long>(offset), SEEK_SET) < 0) return -1;
  return readSome(descriptor, into, length);
}

long long writeSome(int descriptor, const char* from, std::size_t length) {
  return ::_write(descriptor, from, static_cast<unsigned>(std::min<std::size_t>(length, INT_MAX)));
}

bool truncateAndRewind(int descriptor) {
  return ::_chsize(descriptor, 0) == 0 && ::_lseeki64(descriptor, 0, SEEK_SET) == 0;
}

std::uintmax_t fileSizeLimit() {
  return std::numeric_limits<std::uintmax_t>::max();
}

int closeRaw(int descriptor) {
  return ::_close(descriptor);
}

#else

int openWithFlags(const std::filesystem::path& path, int flags) {
  // Without O_NONBLOCK, opening a FIFO waits for the other end, which may never come.
  flags |= O_NONBLOCK | O_CLOEXEC;
  int descriptor;
  do {
    descriptor = ::open(path.c_str(), flags, 0666);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

int openRaw(const std::filesystem::path& path, NonblockingFile::Mode mode) {
  switch (mode) {
    case NonblockingFile::Mode::read:
      return openWithFlags(path, O_RDONLY);
    case NonblockingFile::Mode::createExclusive:
      return openWithFlags(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    case NonblockingFile::Mode::append:
      return openWithFlags(path, O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW);
    case NonblockingFile::Mode::lock: {
      const int descriptor = openWithFlags(path, O_RDWR | O_CREAT | O_NOFOLLOW);
      if (descriptor >= 0 || (errno != EACCES && errno != EROFS)) return descriptor;
      return openWithFlags(path, O_RDONLY | O_NOFOLLOW);
    }
  }
  return -1;
}

bool regularSize(int descriptor, std::uintmax_t& size) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  size = static_cast<std::uintmax_t>(status.st_size);
  return true;
}

long long readSome(int descriptor, char* into, std::size_t length) {
  return ::read(descriptor, into, std::min<std::size_t>(length, INT_MAX));
}

long long readAt(int descriptor, char* into, std::size_t length, std::uintmax_t offset) {
  return ::pread(descriptor, into, std::min<std::size_t>(length, INT_MAX),
                 static_cast<off_t>(offset));
}

long long writeSome(int descriptor, const char* from, std::size_t length) {
  return ::write(descriptor, from, std::min<std::size_t>(length, INT_MAX));
}

bool truncateAndRewind(int descriptor) {
  return ::ftruncate(descriptor, 0) == 0 && ::lseek(descriptor, 0, SEEK_SET) == 0;
}

std::uintmax_t fileSizeLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return std::numeric_limits<std::uintmax_t>::max();
  return static_cast<std::uintmax_t>(limit.rlim_cur);
}

int closeRaw(int descriptor) {
  return ::close(descriptor);
}

#endif

}  // namespace

NonblockingFile::NonblockingFile(const std::filesystem::path& path, Mode mode)
    : appending_(mode == Mode::append) {
  const int descriptor = openRaw(path, mode);
  if (descriptor < 0) return;
  if (!regularSize(descriptor, size_)) {
    closeRaw(descriptor);
    return;
  }
  descriptor_ = descriptor;
}

NonblockingFile::~NonblockingFile() {
  close();
}

std::uintmax_t NonblockingFile::size() const {
  return size_;
}

std::optional<std::string> NonblockingFile::readAtMost(std::size_t limit) {
  if (!isOpen()) return std::nullopt;
  std::string contents;
  // One byte past the reported size, so that a file that did not grow needs no second buffer.
  contents.resize(static_cast<std::size_t>(std::min<std::uintmax_t>(limit, size_ + 1)));
  std::size_t used = 0;
  while (used < limit) {
    if (used == contents.size())
      contents.resize(std::min(limit, std::max<std::size_t>(1, used * 2)));
    const long long count = readSome(descriptor_, &contents[used], contents.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  contents.resize(used);
  return contents;
}

std::optional<char> NonblockingFile::lastByte() {
  if (!isOpen() || size_ == 0) return std::nullopt;
  char byte = 0;
  long long count;
  do {
    count = readAt(descriptor_, &byte, 1, size_ - 1);
  } while (count < 0 && errno == EINTR);
  if (count != 1) return std::nullopt;
  return byte;
}

bool NonblockingFile::writeAll(const char* data, std::size_t length) {
  if (!isOpen()) return false;
  std::uintmax_t start = position_;
  // Another process may have appended since the open; the end is asked for afresh.
  if (appending_ && !regularSize(descriptor_, start)) return false;
  const std::uintmax_t limit = fileSizeLimit();
  if (start > limit || length > limit - start) return false;
  while (length > 0) {
    const long long count = writeSome(descriptor_, data, length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    data += count;
    length -= static_cast<std::size_t>(count);
    position_ += static_cast<std::uintmax_t>(count);
  }
  return true;
}

bool NonblockingFile::replaceContents(const std::string& contents) {
  if (!isOpen() || appending_ || !truncateAndRewind(descriptor_)) return false;
  size_ = 0;
  position_ = 0;
  return writeAll(contents.data(), contents.size());
}

bool NonblockingFile::close() {
  if (!isOpen()) return true;
  const int descriptor = descriptor_;
  descriptor_ = -1;
  return closeRaw(descriptor) == 0;
}

}  // namespace quillmere
