// The few calls the standard library cannot make: a flush to disk, a terminal test, the
// process id and local time.
#pragma once

#include <ctime>
#include <filesystem>
#include <string>

namespace bridge_tool {

// Creates `path` (which must not exist), writes `contents`, flushes them to the disk and closes
// the file. False, with the file removed, when any step fails.
bool writeDurably(const std::filesystem::path& path, const std::string& contents);

// Whether standard error is a terminal, for progress that only a person watching should see.
bool stderrIsTerminal();

long processId();

// The calendar fields of a time in the local time zone; false when they cannot be had.
bool localCalendar(std::time_t time, std::tm& fields);

}  // namespace bridge_tool
