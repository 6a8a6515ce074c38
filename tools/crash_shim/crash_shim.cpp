// libquillmere_crash_shim.so, loaded with LD_PRELOAD into the stand-in host: counts the calls that
// change what a file system holds or who holds a lock, on paths under the given roots, and ends
// the process at a chosen one of them, before it is carried out.
//
// Counted: open/openat/creat (all forms) that create, truncate or open for writing,
// write/pwrite/writev, ftruncate/truncate, rename/renameat/renameat2, unlink/unlinkat/remove/rmdir,
// mkdir/mkdirat, link/symlink, fsync/fdatasync/syncfs and flock. A read, a status query, a listing
// or a close changes nothing on disk, so ending the process there leaves the same state as ending
// it at the next counted call; fsync changes nothing another process sees, but it is where a power
// cut is made to fall.
//
// Environment:
//   QUILLMERE_SHIM_ROOTS  colon-separated absolute folders; calls elsewhere are not counted
//   QUILLMERE_SHIM_TRACE  file that gets "N call path [path]" for every counted call
//   QUILLMERE_SHIM_END_AT the counted call (from 1) at which the process ends, before the call
//   QUILLMERE_SHIM_END_HOW "kill" (SIGKILL, the default), "stop" (SIGSTOP: the caller kills it
//                          later) or "cut:FOLDER" (the ext4 file system holding FOLDER is shut
//                          down without flushing its journal, as a power cut would, then SIGKILL)
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The ext4 shutdown request and its "without flushing the journal" flag (linux/fs/ext4/ext4.h).
constexpr unsigned long kExt4Shutdown = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t kGoingDownNoLogFlush = 0x2;

constexpr int kTrackedDescriptors = 4096;
constexpr int kMostRoots = 8;

enum class How { kill, stop, cut };

// Zero-initialised, and so ready before any constructor runs, whatever their order.
struct Settings {
  bool ready;
  char roots[kMostRoots][PATH_MAX];
  int rootCount;
  int traceDescriptor;
  long endAt;
  How how;
  char cutFolder[PATH_MAX];
};

Settings settings;
std::atomic<long> counted{0};
std::atomic<bool> tracked[kTrackedDescriptors];

template <typename Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

using OpenFunction = int (*)(const char*, int, ...);
using OpenAtFunction = int (*)(int, const char*, int, ...);
using CloseFunction = int (*)(int);
using WriteFunction = ssize_t (*)(int, const void*, size_t);
using IoctlFunction = int (*)(int, unsigned long, ...);

__attribute__((constructor)) void readSettings() {
  if (const char* roots = std::getenv("QUILLMERE_SHIM_ROOTS")) {
    const char* from = roots;
    while (*from != '\0' && settings.rootCount < kMostRoots) {
      const char* end = std::strchr(from, ':');
      const std::size_t length = end == nullptr ? std::strlen(from) : std::size_t(end - from);
      if (length > 0 && length < PATH_MAX) {
        std::memcpy(settings.roots[settings.rootCount], from, length);
        settings.roots[settings.rootCount][length] = '\0';
        ++settings.rootCount;
      }
      if (end == nullptr) break;
      from = end + 1;
    }
  }
  settings.traceDescriptor = -1;
  if (const char* trace = std::getenv("QUILLMERE_SHIM_TRACE")) {
    settings.traceDescriptor =
        real<OpenFunction>("open")(trace, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  }
  if (const char* endAt = std::getenv("QUILLMERE_SHIM_END_AT")) settings.endAt = std::atol(endAt);
  if (const char* how = std::getenv("QUILLMERE_SHIM_END_HOW")) {
    if (std::strcmp(how, "stop") == 0) {
      settings.how = How::stop;
    } else if (std::strncmp(how, "cut:", 4) == 0 && std::strlen(how + 4) < PATH_MAX) {
      settings.how = How::cut;
      std::strcpy(settings.cutFolder, how + 4);
    }
  }
  settings.ready = settings.rootCount > 0;
}

bool isTracked(int descriptor) {
  return descriptor >= 0 && descriptor < kTrackedDescriptors && tracked[descriptor].load();
}

void setTracked(int descriptor, bool value) {
  if (descriptor >= 0 && descriptor < kTrackedDescriptors) tracked[descriptor].store(value);
}

// The absolute form of `path` as given, relative to `folder` (a descriptor or AT_FDCWD).
bool absolute(int folder, const char* path, char* out) {
  if (path == nullptr) return false;
  if (path[0] == '/') {
    if (std::strlen(path) >= PATH_MAX) return false;
    std::strcpy(out, path);
    return true;
  }
  char base[PATH_MAX];
  if (folder == AT_FDCWD) {
    if (::getcwd(base, sizeof base) == nullptr) return false;
  } else {
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", folder);
    const ssize_t length = ::readlink(link, base, sizeof base - 1);
    if (length <= 0) return false;
    base[length] = '\0';
  }
  return std::snprintf(out, PATH_MAX, "%s/%s", base, path) < PATH_MAX;
}

bool underRoot(int folder, const char* path, char* resolved) {
  if (!settings.ready || !absolute(folder, path, resolved)) return false;
  for (int i = 0; i < settings.rootCount; ++i) {
    const std::size_t length = std::strlen(settings.roots[i]);
    if (std::strncmp(resolved, settings.roots[i], length) == 0 &&
        (resolved[length] == '/' || resolved[length] == '\0')) {
      return true;
    }
  }
  return false;
}

void endProcess() {
  switch (settings.how) {
    case How::stop:
      ::kill(::getpid(), SIGSTOP);
      break;
    case How::cut: {
      const int folder = real<OpenFunction>("open")(settings.cutFolder, O_RDONLY | O_DIRECTORY);
      std::uint32_t flags = kGoingDownNoLogFlush;
      if (folder < 0 || real<IoctlFunction>("ioctl")(folder, kExt4Shutdown, &flags) != 0) {
        std::fprintf(stderr, "crash shim: cannot shut %s down: %s\n", settings.cutFolder,
                     std::strerror(errno));
      }
      break;
    }
    case How::kill:
      break;
  }
  ::kill(::getpid(), SIGKILL);
}

// Counts one call, traces it, and ends the process when it is the chosen one.
void count(const char* call, const char* path, const char* second = nullptr) {
  const long number = ++counted;
  const bool ending = number == settings.endAt;
  if (settings.traceDescriptor >= 0) {
    char line[2 * PATH_MAX + 96];
    const int length = std::snprintf(line, sizeof line, "%ld %s %s%s%s%s\n", number, call,
                                     path == nullptr ? "-" : path, second == nullptr ? "" : " ",
                                     second == nullptr ? "" : second, ending ? " END" : "");
    if (length > 0) {
      real<WriteFunction>("write")(settings.traceDescriptor, line,
                                   std::min<std::size_t>(std::size_t(length), sizeof line - 1));
    }
  }
  if (ending) endProcess();
}

void countPath(const char* call, int folder, const char* path) {
  char resolved[PATH_MAX];
  if (underRoot(folder, path, resolved)) count(call, resolved);
}

void countDescriptor(const char* call, int descriptor) {
  if (!isTracked(descriptor)) return;
  char link[64], path[PATH_MAX];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  const ssize_t length = ::readlink(link, path, sizeof path - 1);
  path[length > 0 ? length : 0] = '\0';
  count(call, length > 0 ? path : "?");
}

void countTwoPaths(const char* call, int fromFolder, const char* from, int toFolder,
                   const char* to) {
  char first[PATH_MAX], second[PATH_MAX];
  const bool firstInside = underRoot(fromFolder, from, first);
  const bool secondInside = underRoot(toFolder, to, second);
  if (firstInside || secondInside) {
    count(call, firstInside ? first : from, secondInside ? second : to);
  }
}

mode_t modeArgument(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

int openCounted(const char* call, int folder, const char* path, int flags, mode_t mode,
                OpenAtFunction through) {
  char resolved[PATH_MAX];
  const bool inside = underRoot(folder, path, resolved);
  // Descriptors opened only for reading are followed all the same: a folder is flushed through one.
  if (inside && (flags & (O_CREAT | O_TRUNC | O_WRONLY | O_RDWR)) != 0) count(call, resolved);
  const int descriptor = through(folder, path, flags, mode);
  if (inside) setTracked(descriptor, true);
  return descriptor;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openCounted("open", AT_FDCWD, path, flags, mode, real<OpenAtFunction>("openat"));
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openCounted("open", AT_FDCWD, path, flags, mode, real<OpenAtFunction>("openat64"));
}

int __open_2(const char* path, int flags) {
  return openCounted("open", AT_FDCWD, path, flags, 0, real<OpenAtFunction>("openat"));
}

int __open64_2(const char* path, int flags) {
  return openCounted("open", AT_FDCWD, path, flags, 0, real<OpenAtFunction>("openat64"));
}

int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openCounted("open", folder, path, flags, mode, real<OpenAtFunction>("openat"));
}

int openat64(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openCounted("open", folder, path, flags, mode, real<OpenAtFunction>("openat64"));
}

int __openat_2(int folder, const char* path, int flags) {
  return openCounted("open", folder, path, flags, 0, real<OpenAtFunction>("openat"));
}

int __openat64_2(int folder, const char* path, int flags) {
  return openCounted("open", folder, path, flags, 0, real<OpenAtFunction>("openat64"));
}

int creat(const char* path, mode_t mode) {
  return openCounted("open", AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode,
                     real<OpenAtFunction>("openat"));
}

int creat64(const char* path, mode_t mode) {
  return openCounted("open", AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode,
                     real<OpenAtFunction>("openat64"));
}

int close(int descriptor) {
  setTracked(descriptor, false);
  return real<CloseFunction>("close")(descriptor);
}

ssize_t write(int descriptor, const void* data, size_t length) {
  countDescriptor("write", descriptor);
  return real<WriteFunction>("write")(descriptor, data, length);
}

ssize_t pwrite(int descriptor, const void* data, size_t length, off_t offset) {
  countDescriptor("write", descriptor);
  return real<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite")(descriptor, data, length,
                                                                      offset);
}

ssize_t pwrite64(int descriptor, const void* data, size_t length, off64_t offset) {
  countDescriptor("write", descriptor);
  return real<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64")(descriptor, data, length,
                                                                          offset);
}

ssize_t writev(int descriptor, const struct iovec* pieces, int count) {
  countDescriptor("write", descriptor);
  return real<ssize_t (*)(int, const struct iovec*, int)>("writev")(descriptor, pieces, count);
}

int ftruncate(int descriptor, off_t length) {
  countDescriptor("ftruncate", descriptor);
  return real<int (*)(int, off_t)>("ftruncate")(descriptor, length);
}

int ftruncate64(int descriptor, off64_t length) {
  countDescriptor("ftruncate", descriptor);
  return real<int (*)(int, off64_t)>("ftruncate64")(descriptor, length);
}

int truncate(const char* path, off_t length) {
  countPath("truncate", AT_FDCWD, path);
  return real<int (*)(const char*, off_t)>("truncate")(path, length);
}

int rename(const char* from, const char* to) {
  countTwoPaths("rename", AT_FDCWD, from, AT_FDCWD, to);
  return real<int (*)(const char*, const char*)>("rename")(from, to);
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
  countTwoPaths("rename", fromFolder, from, toFolder, to);
  return real<int (*)(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder,
                                                                       to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  countTwoPaths("rename", fromFolder, from, toFolder, to);
  return real<int (*)(int, const char*, int, const char*, unsigned)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}

int unlink(const char* path) {
  countPath("unlink", AT_FDCWD, path);
  return real<int (*)(const char*)>("unlink")(path);
}

int unlinkat(int folder, const char* path, int flags) {
  countPath("unlink", folder, path);
  return real<int (*)(int, const char*, int)>("unlinkat")(folder, path, flags);
}

int remove(const char* path) {
  countPath("remove", AT_FDCWD, path);
  return real<int (*)(const char*)>("remove")(path);
}

int rmdir(const char* path) {
  countPath("rmdir", AT_FDCWD, path);
  return real<int (*)(const char*)>("rmdir")(path);
}

int mkdir(const char* path, mode_t mode) {
  countPath("mkdir", AT_FDCWD, path);
  return real<int (*)(const char*, mode_t)>("mkdir")(path, mode);
}

int mkdirat(int folder, const char* path, mode_t mode) {
  countPath("mkdir", folder, path);
  return real<int (*)(int, const char*, mode_t)>("mkdirat")(folder, path, mode);
}

int link(const char* from, const char* to) {
  countTwoPaths("link", AT_FDCWD, from, AT_FDCWD, to);
  return real<int (*)(const char*, const char*)>("link")(from, to);
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
  countTwoPaths("link", fromFolder, from, toFolder, to);
  return real<int (*)(int, const char*, int, const char*, int)>("linkat")(fromFolder, from,
                                                                          toFolder, to, flags);
}

int symlink(const char* target, const char* path) {
  countPath("symlink", AT_FDCWD, path);
  return real<int (*)(const char*, const char*)>("symlink")(target, path);
}

int symlinkat(const char* target, int folder, const char* path) {
  countPath("symlink", folder, path);
  return real<int (*)(const char*, int, const char*)>("symlinkat")(target, folder, path);
}

int fsync(int descriptor) {
  countDescriptor("fsync", descriptor);
  return real<int (*)(int)>("fsync")(descriptor);
}

int fdatasync(int descriptor) {
  countDescriptor("fdatasync", descriptor);
  return real<int (*)(int)>("fdatasync")(descriptor);
}

int syncfs(int descriptor) {
  countDescriptor("syncfs", descriptor);
  return real<int (*)(int)>("syncfs")(descriptor);
}

int flock(int descriptor, int operation) {
  countDescriptor((operation & LOCK_UN) != 0   ? "flock-unlock"
                  : (operation & LOCK_EX) != 0 ? "flock-exclusive"
                                               : "flock-shared",
                  descriptor);
  return real<int (*)(int, int)>("flock")(descriptor, operation);
}

}  // extern "C"
