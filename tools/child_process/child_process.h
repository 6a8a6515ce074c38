// A child program started, waited for and described, POSIX only: for the kill soak and for the
// tests that run programs beside them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace child_process {

// Starts `argv` (its first element a path) with standard input from /dev/null and its output and
// errors going to `outputPath`, appended to or truncated; with HOME set to `home` when one is
// given, this process's environment otherwise, and each "NAME=value" of `settings` added in place
// of any variable of that name. Returns the child's id, or -1.
pid_t start(const std::vector<std::string>& argv, const std::string& outputPath, bool append,
            const std::optional<std::string>& home = std::nullopt,
            const std::vector<std::string>& settings = {});

// Waits for the child to end; returns its wait status.
int wait(pid_t child);

// The status as an exit code: the program's own, or 128 + the signal that ended it.
int exitCodeOf(int status);

// "exit 0", "killed by signal 9", ...
std::string describe(int status);

}  // namespace child_process
