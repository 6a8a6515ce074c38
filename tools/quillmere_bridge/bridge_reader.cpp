#include "quillmere_bridge/bridge_reader.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "bridge/bridge_directory.h"
#include "platform/nonblocking_file.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace bridge_tool {

std::string withValidUtf8(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const auto byte = static_cast<unsigned char>(text[i]);
    std::size_t length = byte < 0x80                    ? 1
                         : byte >= 0xC2 && byte <= 0xDF ? 2
                         : byte >= 0xE0 && byte <= 0xEF ? 3
                         : byte >= 0xF0 && byte <= 0xF4 ? 4
                                                        : 0;
    if (length > 1 && i + length <= text.size()) {
      for (std::size_t k = 1; k < length; ++k) {
        if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) length = 0;
      }
    } else if (length > 1) {
      length = 0;
    }
    if (length == 0) {
      out += '?';
      ++i;
    } else {
      out.append(text, i, length);
      i += length;
    }
  }
  return out;
}

namespace {

json parseLenient(const std::string& text) {
  return json::parse(withValidUtf8(text), nullptr, false);
}

std::optional<std::int64_t> integerField(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  if (found->is_number_integer()) return found->get<std::int64_t>();
  return std::nullopt;
}

std::optional<double> numberField(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  return found->get<double>();
}

std::optional<std::string> stringField(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<bool> boolField(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_boolean()) return std::nullopt;
  return found->get<bool>();
}

bool olderThan(const fs::path& path, std::chrono::seconds age) {
  std::error_code error;
  const fs::file_time_type written = fs::last_write_time(path, error);
  if (error) return false;
  return fs::file_time_type::clock::now() - written > age;
}

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

fs::path locateBridge(const std::optional<std::string>& bridgeOption) {
  if (bridgeOption) return fs::path(*bridgeOption);
  return quillmere::locateBridgeDirectory();
}

std::string shownPath(const fs::path& path) {
  return path.empty() ? std::string(".") : path.string();
}

std::int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::optional<std::string> readRegularFile(const fs::path& path, std::uintmax_t limit) {
  // The extension's own open: a FIFO at the path, even one put there a moment ago, is refused.
  quillmere::NonblockingFile in(path, quillmere::NonblockingFile::Mode::read);
  if (!in.isOpen() || in.size() > limit) return std::nullopt;
  std::optional<std::string> text = in.readAtMost(static_cast<std::size_t>(limit) + 1);
  if (!text || text->size() > limit) return std::nullopt;
  return text;
}

Heartbeat readHeartbeat(const fs::path& bridge) {
  Heartbeat heartbeat;
  const fs::path path = bridge / "bridge_state.json";
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) return heartbeat;
  if (error || status.type() != fs::file_type::regular) {
    heartbeat.reading = Heartbeat::Reading::NotAFile;
    return heartbeat;
  }
  heartbeat.reading = Heartbeat::Reading::Unreadable;
  const std::optional<std::string> text = readRegularFile(path, 1024 * 1024);
  if (!text) {
    heartbeat.problem = "cannot be read";
    return heartbeat;
  }
  const json document = parseLenient(*text);
  if (!document.is_object()) {
    heartbeat.problem = text->empty() ? "is empty" : "is not a JSON object";
    return heartbeat;
  }
  const std::optional<std::int64_t> timestamp = integerField(document, "timestamp_ms");
  if (!timestamp) {
    heartbeat.problem = "has no whole-number timestamp_ms";
    return heartbeat;
  }
  heartbeat.reading = Heartbeat::Reading::Read;
  heartbeat.timestampMs = *timestamp;
  heartbeat.extensionVersion = stringField(document, "extension_version");
  heartbeat.selectedTracks = integerField(document, "selected_tracks");
  heartbeat.cursor = numberField(document, "cursor");
  heartbeat.mediaPath = stringField(document, "project_media_path");
  return heartbeat;
}

bool isAlive(const Heartbeat& heartbeat, std::int64_t now) {
  return heartbeat.reading == Heartbeat::Reading::Read &&
         now - heartbeat.timestampMs <=
             std::chrono::duration_cast<std::chrono::milliseconds>(kAliveWithin).count();
}

FolderScan scanFolder(const fs::path& folder) {
  FolderScan scan;
  std::error_code error;
  const fs::file_status status = fs::status(folder, error);
  if (status.type() == fs::file_type::not_found) {
    std::error_code linkError;
    if (fs::is_symlink(fs::symlink_status(folder, linkError))) {
      scan.state = FolderScan::State::NotAFolder;
      scan.problem = "a link to nothing";
    }
    return scan;
  }
  if (error) {
    scan.state = FolderScan::State::Unexaminable;
    scan.problem = error.message();
    return scan;
  }
  if (status.type() != fs::file_type::directory) {
    scan.state = FolderScan::State::NotAFolder;
    scan.problem =
        status.type() == fs::file_type::regular ? "a regular file" : "a FIFO, socket or device";
    return scan;
  }
  fs::directory_iterator entry(folder, error);
  if (error) {
    scan.state = FolderScan::State::Unexaminable;
    scan.problem = error.message();
    return scan;
  }
  scan.state = FolderScan::State::Present;
  scan.exists = true;
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const fs::path path = entry->path();
    const std::string name = path.filename().string();
    const bool requestName = name.size() > 5 && endsWith(name, ".json");
    std::error_code typeError;
    // Follows links, as the extension does; a looping link or an over-long name answers an error.
    const fs::file_status type = fs::status(path, typeError);
    if (typeError || type.type() != fs::file_type::regular) {
      if (requestName) ++scan.passedOver;
      continue;
    }
    if (requestName) {
      scan.documents.push_back(name);
      std::error_code sizeError;
      const std::uintmax_t size = fs::file_size(path, sizeError);
      if (!sizeError && size > kMaxDocumentBytes) ++scan.oversized;
    } else {
      ++scan.temporaries;
      if (olderThan(path, kStaleTemporaryAge)) ++scan.staleTemporaries;
    }
  }
  std::sort(scan.documents.begin(), scan.documents.end());
  return scan;
}

int staleTopLevelTemporaries(const fs::path& bridge) {
  int stale = 0;
  std::error_code error;
  fs::directory_iterator entry(bridge.empty() ? fs::path(".") : bridge, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code typeError;
    if (endsWith(entry->path().filename().string(), ".tmp") && entry->is_regular_file(typeError) &&
        !typeError && olderThan(entry->path(), kStaleTemporaryAge)) {
      ++stale;
    }
  }
  return stale;
}

LogEntry parseLogLine(const std::string& line) {
  LogEntry entry;
  entry.raw = line;
  const json document = parseLenient(line);
  if (!document.is_object()) return entry;
  const std::optional<std::int64_t> timestamp = integerField(document, "timestamp_ms");
  const std::optional<std::string> requestId = stringField(document, "request_id");
  const std::optional<bool> ok = boolField(document, "ok");
  const std::optional<std::string> message = stringField(document, "message");
  if (!timestamp || !requestId || !ok || !message) return entry;
  entry.readable = true;
  entry.timestampMs = *timestamp;
  entry.requestId = *requestId;
  entry.ok = *ok;
  entry.message = *message;
  return entry;
}

namespace {

// The last `count` complete lines of one log file, read backwards from its end a block at a time.
LogTail tailOf(const fs::path& path, std::size_t count) {
  LogTail tail;
  std::error_code error;
  const fs::file_status link = fs::symlink_status(path, error);
  if (link.type() == fs::file_type::not_found) return tail;
  const fs::file_status status = fs::status(path, error);
  if (error || fs::is_symlink(link) || status.type() != fs::file_type::regular) {
    tail.reading = LogTail::Reading::NotAFile;
    return tail;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    tail.reading = LogTail::Reading::Unreadable;
    return tail;
  }
  tail.reading = LogTail::Reading::Read;
  in.seekg(0, std::ios::end);
  std::streamoff position = in.tellg();
  if (position < 0) position = 0;
  const auto size = static_cast<std::uintmax_t>(position);
  std::string text;
  constexpr std::streamoff kBlock = 65536;
  while (position > 0 &&
         static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) <= count) {
    const std::streamoff blockSize = std::min(kBlock, position);
    position -= blockSize;
    std::string block(static_cast<std::size_t>(blockSize), '\0');
    in.seekg(position);
    in.read(block.data(), blockSize);
    if (!in) {
      tail.reading = LogTail::Reading::Unreadable;
      return tail;
    }
    text.insert(0, block);
  }
  // A last line without its line feed is still being written (or was cut short): left out.
  const std::size_t end = text.rfind('\n');
  if (end == std::string::npos) {
    tail.endOffset = static_cast<std::uintmax_t>(position);
    return tail;
  }
  tail.endOffset = size - (text.size() - (end + 1));
  text.resize(end + 1);
  std::vector<std::string> lines;
  std::size_t from = 0;
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', from)) {
    lines.push_back(text.substr(from, at - from));
    from = at + 1;
  }
  // The first line is partial when the reading stopped inside the file.
  if (position > 0 && !lines.empty()) lines.erase(lines.begin());
  // An empty line stands where the extension began a line after one that was cut short.
  lines.erase(std::remove(lines.begin(), lines.end(), std::string()), lines.end());
  const std::size_t first = lines.size() > count ? lines.size() - count : 0;
  for (std::size_t i = first; i < lines.size(); ++i) tail.entries.push_back(parseLogLine(lines[i]));
  return tail;
}

constexpr std::size_t kHeadBytes = 256;

std::string headOf(const fs::path& path) {
  quillmere::NonblockingFile in(path, quillmere::NonblockingFile::Mode::read);
  return in.readAtMost(kHeadBytes).value_or("");
}

bool startsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

// The complete lines of `path` from `offset` on; the offset just behind the last one.
std::uintmax_t readLinesFrom(const fs::path& path, std::uintmax_t offset,
                             std::vector<LogEntry>& entries) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return offset;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error || size <= offset) return offset;
  std::ifstream in(path, std::ios::binary);
  if (!in) return offset;
  in.seekg(static_cast<std::streamoff>(offset));
  std::string text(static_cast<std::size_t>(size - offset), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  std::size_t from = 0;
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', from)) {
    if (at > from) entries.push_back(parseLogLine(text.substr(from, at - from)));
    from = at + 1;
  }
  return offset + from;  // a line still being written is read whole next time
}

}  // namespace

LogTail readLogTail(const fs::path& bridge, std::size_t count) {
  LogTail tail = tailOf(bridge / "delivery.log", count);
  if (tail.reading == LogTail::Reading::NotAFile || tail.reading == LogTail::Reading::Unreadable ||
      tail.entries.size() >= count) {
    return tail;
  }
  LogTail older = tailOf(bridge / "delivery.log.1", count - tail.entries.size());
  if (older.reading != LogTail::Reading::Read) return tail;
  tail.entries.insert(tail.entries.begin(), older.entries.begin(), older.entries.end());
  tail.reading = LogTail::Reading::Read;
  return tail;
}

std::optional<LogEntry> lastLogEntryFor(const fs::path& bridge, const std::string& requestId) {
  constexpr std::size_t kLinesSearched = 1000;
  const LogTail tail = readLogTail(bridge, kLinesSearched);
  for (auto entry = tail.entries.rbegin(); entry != tail.entries.rend(); ++entry) {
    if (entry->readable && entry->requestId == requestId) return *entry;
  }
  return std::nullopt;
}

LogFollower::LogFollower(fs::path bridge, std::uintmax_t offset)
    : log_(bridge / "delivery.log"),
      rotated_(bridge / "delivery.log.1"),
      offset_(offset),
      head_(headOf(log_)) {}

std::vector<LogEntry> LogFollower::newEntries() {
  std::vector<LogEntry> entries;
  const std::string head = headOf(log_);
  if (!head_.empty() && !startsWith(head, head_)) {
    // Another file stands at delivery.log: the one followed was renamed away, or replaced.
    if (startsWith(headOf(rotated_), head_)) readLinesFrom(rotated_, offset_, entries);
    offset_ = 0;
    head_.clear();
  }
  std::error_code error;
  const std::uintmax_t size = fs::file_size(log_, error);
  if (!error && size < offset_) offset_ = 0;
  offset_ = readLinesFrom(log_, offset_, entries);
  if (head.size() > head_.size()) head_ = head;
  return entries;
}

}  // namespace bridge_tool
