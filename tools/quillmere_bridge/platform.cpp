#include "quillmere_bridge/platform.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <io.h>
#include <process.h>
#include <windows.h>
#else
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace bridge_tool {

namespace {

#ifdef _WIN32
int openNew(const std::filesystem::path& path) {
  return ::_wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, 0644);
}
int writeSome(int fd, const char* data, std::size_t size) {
  return ::_write(fd, data, static_cast<unsigned>(size));
}
int flushToDisk(int fd) {
  return ::_commit(fd);
}
int closeFile(int fd) {
  return ::_close(fd);
}
#else
int openNew(const std::filesystem::path& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
}
long writeSome(int fd, const char* data, std::size_t size) {
  return ::write(fd, data, size);
}
int flushToDisk(int fd) {
  return ::fsync(fd);
}
int closeFile(int fd) {
  return ::close(fd);
}
#endif

}  // namespace

bool writeDurably(const std::filesystem::path& path, const std::string& contents) {
  const int fd = openNew(path);
  if (fd < 0) return false;
  std::size_t written = 0;
  bool ok = true;
  while (ok && written < contents.size()) {
    const auto count = writeSome(fd, contents.data() + written, contents.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0)
      ok = false;
    else
      written += static_cast<std::size_t>(count);
  }
  ok = ok && flushToDisk(fd) == 0;
  ok = closeFile(fd) == 0 && ok;
  if (!ok) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  return ok;
}

#ifdef _WIN32
LockProbe probeLock(const std::filesystem::path& file) {
  // Every sharing flag, so that the probe never stands in the way of the owner or a reader.
  const HANDLE handle = ::CreateFileW(file.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD error = ::GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? LockProbe::Absent
                                                                          : LockProbe::Unknown;
  }
  OVERLAPPED from{};
  LockProbe probe = LockProbe::Free;
  if (::LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, MAXDWORD,
                   MAXDWORD, &from)) {
    ::UnlockFileEx(handle, 0, MAXDWORD, MAXDWORD, &from);
  } else {
    probe = ::GetLastError() == ERROR_LOCK_VIOLATION ? LockProbe::Held : LockProbe::Unknown;
  }
  ::CloseHandle(handle);
  return probe;
}
#else
LockProbe probeLock(const std::filesystem::path& file) {
  // Without waiting, should a FIFO stand there.
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? LockProbe::Absent : LockProbe::Unknown;
  LockProbe probe = LockProbe::Unknown;
  struct stat status;
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    int locked;
    do {
      locked = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    if (locked == 0) {
      ::flock(fd, LOCK_UN);
      probe = LockProbe::Free;
    } else if (errno == EWOULDBLOCK) {
      probe = LockProbe::Held;
    }
  }
  ::close(fd);
  return probe;
}
#endif

bool stderrIsTerminal() {
#ifdef _WIN32
  return ::_isatty(2) != 0;
#else
  return ::isatty(2) != 0;
#endif
}

long processId() {
#ifdef _WIN32
  return static_cast<long>(::_getpid());
#else
  return static_cast<long>(::getpid());
#endif
}

bool localCalendar(std::time_t time, std::tm& fields) {
#ifdef _WIN32
  return ::localtime_s(&fields, &time) == 0;
#else
  return ::localtime_r(&time, &fields) != nullptr;
#endif
}

}  // namespace bridge_tool
