#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "child_process/child_process.h"

namespace testing_support {

namespace {

std::vector<char*> argumentVector(const std::vector<std::string>& argv) {
  std::vector<char*> out;
  for (const std::string& argument : argv) out.push_back(const_cast<char*>(argument.c_str()));
  out.push_back(nullptr);
  return out;
}

}  // namespace

Finished runProgram(const std::vector<std::string>& argv, std::chrono::milliseconds limit) {
  Finished finished;
  int out[2], err[2];
  if (::pipe(out) != 0 || ::pipe(err) != 0) return finished;
  std::vector<char*> arguments = argumentVector(argv);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::close(out[0]), ::close(out[1]), ::close(err[0]), ::close(err[1]);
    const int nothing = ::open("/dev/null", O_RDONLY);
    ::dup2(nothing, 0);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(out[1]), ::close(err[1]);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* sinks[2] = {&finished.out, &finished.err};
  int open = 2;
  while (open > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      finished.timedOut = true;
      ::kill(pid, SIGKILL);
      break;
    }
    if (::poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      char buffer[4096];
      const ssize_t count = ::read(fds[i].fd, buffer, sizeof buffer);
      if (count > 0) {
        sinks[i]->append(buffer, static_cast<std::size_t>(count));
      } else {
        ::close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (pollfd& fd : fds) {
    if (fd.fd >= 0) ::close(fd.fd);
  }
  finished.exitCode = child_process::exitCodeOf(child_process::wait(pid));
  return finished;
}

Background::Background(const std::vector<std::string>& argv,
                       const std::filesystem::path& outputFile)
    : pid_(child_process::start(argv, outputFile.string(), false)) {}

Background::~Background() {
  stop();
}

int Background::stop(int signal) {
  if (pid_ <= 0) return exitCode_;
  ::kill(pid_, signal);
  int status = 0;
  const bool ended = eventually([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; },
                                std::chrono::seconds(5));
  if (!ended) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status, 0);
  }
  exitCode_ = child_process::exitCodeOf(status);
  pid_ = -1;
  return exitCode_;
}

}  // namespace testing_support
