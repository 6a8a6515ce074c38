// The few calls the standard library cannot make: a flush to disk, a lock test, a terminal test,
// the process id and local time.
#pragma once

#include <ctime>
#include <filesystem>
#include <string>

namespace bridge_tool {

// Creates `path` (which must not exist), writes `contents`, flushes them to the disk and closes
// the file. False, with the file removed, when any step fails.
bool writeDurably(const std::filesystem::path& path, const std::string& contents);

enum class LockProbe { Absent, Free, Held, Unknown };

// Whether another process holds a lock on `file`: an exclusive lock is tried without waiting and
// released at once (flock on POSIX, LockFileEx over every byte on Windows, so that a range the
// owner locks anywhere is met). Absent when there is no such file; Unknown when it cannot be
// opened or locked for another reason. The file is never created.
LockProbe probeLock(const std::filesystem::path& file);

// Whether standard error is a terminal, for progress that only a person watching should see.
bool stderrIsTerminal();

long processId();

// The calendar fields of a time in the local time zone; false when they cannot be had.
bool localCalendar(std::time_t time, std::tm& fields);

}  // namespace bridge_tool
