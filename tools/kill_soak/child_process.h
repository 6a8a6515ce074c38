// A child program started, killed and waited for, POSIX only.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kill_soak {

// Starts `argv` with HOME set to `home`, its output and errors going to `outputPath` (appended).
// Returns the child's id, or -1 when it cannot be started.
pid_t startChild(const std::vector<std::string>& argv, const std::string& home,
                 const std::string& outputPath);

// Waits for the child to end; returns its wait status.
int waitChild(pid_t child);

// "exit 0", "killed by signal 9", ...
std::string describeStatus(int status);

}  // namespace kill_soak
