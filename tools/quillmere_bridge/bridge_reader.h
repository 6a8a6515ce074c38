#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "bridge/file_primitives.h"

namespace bridge_tool {

// A heartbeat older than this means the extension is not running: it writes one every second.
constexpr std::chrono::seconds kAliveWithin{5};
// A file in "requests" whose name does not end in ".json" and is this old was left by a producer
// that stopped between writing and renaming: a request of a few kilobytes is written, flushed and
// renamed within milliseconds, and within seconds even on a slow share, so a minute is far past
// any writer still at work yet soon enough for someone looking after a failed drop to see it.
constexpr std::chrono::seconds kStaleTemporaryAge{60};
// The extension answers a larger request document invalid without reading it.
constexpr std::uintmax_t kMaxDocumentBytes = quillmere::kLargestReadableFile;

// The bridge folder: --bridge when given, otherwise where the extension puts it: under HOME, else
// (on Windows) USERPROFILE, else the working folder.
std::filesystem::path locateBridge(const std::optional<std::string>& bridgeOption);

// How a path reads for a person: "." for the working folder.
std::string shownPath(const std::filesystem::path& path);

struct Heartbeat {
  enum class Reading { Missing, NotAFile, Unreadable, Read } reading = Reading::Missing;
  std::string problem;  // why it is unreadable
  std::int64_t timestampMs = 0;
  std::optional<std::string> extensionVersion;
  std::optional<std::int64_t> selectedTracks;
  std::optional<double> cursor;
  std::optional<std::string> mediaPath;
};

Heartbeat readHeartbeat(const std::filesystem::path& bridge);

std::int64_t nowMs();  // wall clock, milliseconds since the Unix epoch

// Alive: read, and written no more than kAliveWithin ago (a time stamp ahead of the clock counts).
bool isAlive(const Heartbeat& heartbeat, std::int64_t nowMs);

// One folder of the bridge, looked at once.
struct FolderScan {
  enum class State { Present, Missing, NotAFolder, Unexaminable } state = State::Missing;
  std::string problem;                 // why it cannot be examined, as the system says it
  bool exists = false;                 // present: a folder that could be listed
  std::vector<std::string> documents;  // regular ".json" files, sorted byte by byte
  int oversized = 0;                   // documents over kMaxDocumentBytes
  int temporaries = 0;                 // other regular files
  int staleTemporaries = 0;            // of those, older than kStaleTemporaryAge
  int passedOver = 0;  // ".json" entries that are not regular files or whose type cannot be read
};

FolderScan scanFolder(const std::filesystem::path& folder);

// Stale "*.tmp" files beside the bridge's own top-level files.
int staleTopLevelTemporaries(const std::filesystem::path& bridge);

struct LogEntry {
  bool readable = false;
  std::int64_t timestampMs = 0;
  std::string requestId;
  bool ok = false;
  std::string message;
  std::string raw;  // the line as it stands, for unreadable ones
};

LogEntry parseLogLine(const std::string& line);

struct LogTail {
  // Of delivery.log itself; NotAFile also for a link, which the extension never writes through.
  enum class Reading { Missing, NotAFile, Unreadable, Read } reading = Reading::Missing;
  std::vector<LogEntry> entries;
  std::uintmax_t endOffset = 0;  // in delivery.log, just behind the last complete line read
};

// The last `count` complete lines of the log: delivery.log, preceded by delivery.log.1 (the
// older lines, renamed away when the log grew past 8 MiB) when delivery.log has fewer. Never
// opens anything but a regular file, so a FIFO standing there cannot block.
LogTail readLogTail(const std::filesystem::path& bridge, std::size_t count);

// The last line for `requestId` among the last lines of the log; after a crash that line, not an
// earlier one, tells how the request ended.
std::optional<LogEntry> lastLogEntryFor(const std::filesystem::path& bridge,
                                        const std::string& requestId);

// Reads the lines appended to delivery.log since the last call, from `offset` at first. When the
// log was renamed to delivery.log.1 since, the rest of that file is read first, then the new log
// from its start; a log that shrank or was replaced otherwise is read again from its start.
class LogFollower {
 public:
  LogFollower(std::filesystem::path bridge, std::uintmax_t offset);
  std::vector<LogEntry> newEntries();

 private:
  std::filesystem::path log_;
  std::filesystem::path rotated_;
  std::uintmax_t offset_ = 0;
  std::string head_;  // the first bytes of the file followed, to know it again after a rename
};

// The text with every byte that is not part of valid UTF-8 replaced by a question mark: the
// extension copies paths byte for byte, and the JSON reader refuses what is not UTF-8.
std::string withValidUtf8(const std::string& text);

// Reads a whole regular file of at most `limit` bytes; empty when it is not one or cannot be read.
std::optional<std::string> readRegularFile(const std::filesystem::path& path, std::uintmax_t limit);

}  // namespace bridge_tool
