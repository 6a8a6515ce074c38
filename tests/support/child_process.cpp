#include "support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "child_process/child_process.h"

namespace testing_support {

namespace {

std::string contents(std::FILE* file) {
  std::string text;
  std::rewind(file);
  for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
  std::fclose(file);
  return text;
}

}  // namespace

// Into files rather than pipes, so that nothing the program leaves running can hold the wait.
Finished runProgram(const std::vector<std::string>& argv, std::chrono::milliseconds limit) {
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(::open("/dev/null", O_RDONLY), 0);
    ::dup2(::fileno(out), 1);
    ::dup2(::fileno(err), 2);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  Finished finished;
  int status = 0;
  finished.timedOut = !eventually([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, limit);
  if (finished.timedOut) ::kill(pid, SIGKILL), ::waitpid(pid, &status, 0);
  finished.exitCode = child_process::exitCodeOf(status);
  finished.out = contents(out);
  finished.err = contents(err);
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
