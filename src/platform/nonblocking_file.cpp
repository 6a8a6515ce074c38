#include "platform/nonblocking_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace quillmere {

namespace {

#ifdef _WIN32

// Folders cannot hold FIFOs here, but a path may still name a device or a pipe.
int openRaw(const std::filesystem::path& path, NonblockingFile::Mode mode) {
  int flags = _O_BINARY | _O_NOINHERIT;
  switch (mode) {
    case NonblockingFile::Mode::read:
      flags |= _O_RDONLY;
      break;
    case NonblockingFile::Mode::createExclusive:
      flags |= _O_WRONLY | _O_CREAT | _O_EXCL;
      break;
    case NonblockingFile::Mode::append:
      flags |= _O_WRONLY | _O_CREAT | _O_APPEND;
      break;
  }
  return ::_wopen(path.c_str(), flags, _S_IREAD | _S_IWRITE);
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

long long writeSome(int descriptor, const char* from, std::size_t length) {
  return ::_write(descriptor, from, static_cast<unsigned>(std::min<std::size_t>(length, INT_MAX)));
}

int closeRaw(int descriptor) {
  return ::_close(descriptor);
}

#else

int openRaw(const std::filesystem::path& path, NonblockingFile::Mode mode) {
  // Without O_NONBLOCK, opening a FIFO waits for the other end, which may never come.
  int flags = O_NONBLOCK | O_CLOEXEC;
  switch (mode) {
    case NonblockingFile::Mode::read:
      flags |= O_RDONLY;
      break;
    case NonblockingFile::Mode::createExclusive:
      flags |= O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
      break;
    case NonblockingFile::Mode::append:
      flags |= O_WRONLY | O_CREAT | O_APPEND;
      break;
  }
  int descriptor;
  do {
    descriptor = ::open(path.c_str(), flags, 0666);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
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

long long writeSome(int descriptor, const char* from, std::size_t length) {
  return ::write(descriptor, from, std::min<std::size_t>(length, INT_MAX));
}

int closeRaw(int descriptor) {
  return ::close(descriptor);
}

#endif

}  // namespace

NonblockingFile::NonblockingFile(const std::filesystem::path& path, Mode mode) {
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

bool NonblockingFile::writeAll(const char* data, std::size_t length) {
  if (!isOpen()) return false;
  while (length > 0) {
    const long long count = writeSome(descriptor_, data, length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    data += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

bool NonblockingFile::close() {
  if (!isOpen()) return true;
  const int descriptor = descriptor_;
  descriptor_ = -1;
  return closeRaw(descriptor) == 0;
}

}  // namespace quillmere
