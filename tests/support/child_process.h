#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

struct Finished {
  int exitCode = -1;  // 128 + the signal when a signal ended it
  std::string out;
  std::string err;
  bool timedOut = false;  // killed at the limit
};

// Runs a program with this process's environment and waits for it, at most `limit`.
Finished runProgram(const std::vector<std::string>& argv,
                    std::chrono::milliseconds limit = std::chrono::seconds(30));

// A program running beside the test, its standard output and error going to `outputFile`;
// stopped with SIGINT (then SIGKILL after a few seconds) at the latest when destroyed.
class Background {
 public:
  Background(const std::vector<std::string>& argv, const std::filesystem::path& outputFile);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  int stop(int signal = 2);  // the exit code, as runProgram gives it
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int exitCode_ = -1;
};

// Waits for `done` to hold, checking every few milliseconds, at most `limit`; whether it holds.
template <typename Done>
bool eventually(Done done, std::chrono::milliseconds limit = std::chrono::seconds(10));

}  // namespace testing_support

#include <thread>

template <typename Done>
bool testing_support::eventually(Done done, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}
