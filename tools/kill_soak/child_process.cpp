#include "kill_soak/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kill_soak {

pid_t startChild(const std::vector<std::string>& argv, const std::string& home,
                 const std::string& outputPath) {
  // Everything the child needs is prepared before the fork: after it, only async-signal-safe calls.
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const std::string homeVariable = "HOME=" + home;
  std::vector<char*> environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "HOME=", 5) != 0) environment.push_back(*variable);
  }
  environment.push_back(const_cast<char*>(homeVariable.c_str()));
  environment.push_back(nullptr);

  const pid_t child = ::fork();
  if (child != 0) return child;
  const int output = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (output >= 0) {
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::close(output);
  }
  ::execve(args[0], args.data(), environment.data());
  ::_exit(127);
}

int waitChild(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

std::string describeStatus(int status) {
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  return "status " + std::to_string(status);
}

}  // namespace kill_soak
