// quillmere-bridge: looks at the REAPER side of the Quillmere bridge and talks to it through its
// folder, for producers, support and scripts.
#include <exception>
#include <iostream>

#include "quillmere_bridge/commands.h"
#include "quillmere_bridge/options.h"

int main(int argc, char** argv) {
  using namespace bridge_tool;
  try {
    const CommandLine line = readCommandLine(argc, argv);
    if (!line.invocation) return line.exitCode;
    switch (line.invocation->command) {
      case Command::Status:
        return runStatus(*line.invocation);
      case Command::Spot:
        return runSpot(*line.invocation);
      case Command::Send:
        return runSend(*line.invocation);
      case Command::Log:
        return runLog(*line.invocation);
    }
  } catch (const std::exception& error) {
    std::cerr << "quillmere-bridge: " << error.what() << "\n";
  } catch (...) {
    std::cerr << "quillmere-bridge: unexpected failure\n";
  }
  return kNoAnswer;
}
