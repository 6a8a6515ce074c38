#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace bridge_tool {

enum class Command { Status, Spot, Send, Log };

struct SpotOptions {
  std::string file;
  std::optional<std::string> name;
  double gainDb = 0.0;
  double rate = 1.0;
  std::optional<double> offset;  // given together with length, or not at all
  std::optional<double> length;
  std::optional<std::string> project;
  std::int64_t itemId = 0;
};

struct Invocation {
  Command command = Command::Status;
  std::optional<std::string> bridge;
  bool json = false;
  SpotOptions spot;
  std::string document;  // for send
  double timeoutSeconds = 10.0;
  bool follow = false;
  std::size_t last = 20;
};

struct CommandLine {
  std::optional<Invocation> invocation;  // empty: end at once with `exitCode`
  int exitCode = 0;
};

// Reads the arguments; prints help, or one line saying what is wrong with them.
CommandLine readCommandLine(int argc, char** argv);

}  // namespace bridge_tool
