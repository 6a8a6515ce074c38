#include "child_process/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace child_process {

pid_t start(const std::vector<std::string>& argv, const std::string& outputPath, bool append,
            const std::optional<std::string>& home, const std::vector<std::string>& settings) {
  // Everything the child needs is prepared before the fork: after it, only async-signal-safe calls.
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  std::vector<std::string> added = settings;
  if (home) added.push_back("HOME=" + *home);
  const auto replaced = [&](const char* variable) {
    for (const std::string& setting : added) {
      const std::size_t name = setting.find('=') + 1;
      if (std::strncmp(variable, setting.c_str(), name) == 0) return true;
    }
    return false;
  };
  std::vector<char*> environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!replaced(*variable)) environment.push_back(*variable);
  }
  for (std::string& setting : added) environment.push_back(setting.data());
  environment.push_back(nullptr);
  const int outputFlags = O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC);

  const pid_t child = ::fork();
  if (child != 0) return child;
  const int nothing = ::open("/dev/null", O_RDONLY);
  if (nothing >= 0) ::dup2(nothing, STDIN_FILENO);
  const int output = ::open(outputPath.c_str(), outputFlags, 0644);
  if (output >= 0) {
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
  }
  ::execve(args[0], args.data(), environment.data());
  ::_exit(127);
}

int wait(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

int exitCodeOf(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

std::string describe(int status) {
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  return "status " + std::to_string(status);
}

}  // namespace child_process
