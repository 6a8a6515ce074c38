#include "quillmere_bridge/output.h"

#include <cctype>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <locale>
#include <nlohmann/json.hpp>
#include <sstream>

#include "quillmere_bridge/advice.h"
#include "quillmere_bridge/platform.h"
#include "quillmere_bridge/status_report.h"

using nlohmann::json;

namespace bridge_tool {

namespace {

std::string dump(const json& document) {
  return document.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Control bytes in a message would break the table's lines.
std::string printable(const std::string& text) {
  std::string out = text;
  for (char& c : out) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return out;
}

std::string fixed(double value, int decimals) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << std::fixed << std::setprecision(decimals) << value;
  return out.str();
}

std::string counted(std::int64_t count, const char* unit) {
  return std::to_string(count) + " " + unit + (count == 1 ? "" : "s") + " ago";
}

std::string padded(const std::string& text, std::size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::int64_t milliseconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

json logEntryJson(const LogEntry& entry) {
  if (!entry.readable) return json{{"unreadable", true}, {"line", entry.raw}};
  return json{{"timestamp_ms", entry.timestampMs},
              {"local_time", localTime(entry.timestampMs)},
              {"request_id", entry.requestId},
              {"ok", entry.ok},
              {"message", entry.message}};
}

const char* readingName(Heartbeat::Reading reading) {
  switch (reading) {
    case Heartbeat::Reading::Missing:
      return "missing";
    case Heartbeat::Reading::NotAFile:
      return "not_a_file";
    case Heartbeat::Reading::Unreadable:
      return "unreadable";
    case Heartbeat::Reading::Read:
      return "read";
  }
  return "unreadable";
}

const char* folderStateName(FolderScan::State state) {
  switch (state) {
    case FolderScan::State::Present:
      return "present";
    case FolderScan::State::Missing:
      return "MISSING";
    case FolderScan::State::NotAFolder:
      return "NOT A FOLDER";
    case FolderScan::State::Unexaminable:
      return "CANNOT BE EXAMINED";
  }
  return "CANNOT BE EXAMINED";
}

const char* lockName(LockProbe probe) {
  switch (probe) {
    case LockProbe::Absent:
      return "absent";
    case LockProbe::Free:
      return "free";
    case LockProbe::Held:
      return "held";
    case LockProbe::Unknown:
      return "unknown";
  }
  return "unknown";
}

std::string ownerWords(const StatusReport& report) {
  switch (report.owner) {
    case LockProbe::Held:
      return (report.ownerPid ? "process " + std::to_string(*report.ownerPid)
                              : std::string("a process")) +
             " holds bridge.lock";
    case LockProbe::Free:
      return "none (bridge.lock is not held)";
    case LockProbe::Absent:
      return "none (no bridge.lock)";
    case LockProbe::Unknown:
      return "unknown (bridge.lock cannot be tested)";
  }
  return "unknown";
}

}  // namespace

std::string ageInWords(std::int64_t ageMs) {
  if (ageMs < -1000) return "in the future (is the clock right?)";
  if (ageMs < 0) ageMs = 0;
  if (ageMs < 10000) return fixed(static_cast<double>(ageMs) / 1000.0, 1) + " seconds ago";
  const std::int64_t seconds = ageMs / 1000;
  if (seconds < 120) return counted(seconds, "second");
  if (seconds < 7200) return counted(seconds / 60, "minute");
  if (seconds < 2 * 86400) return counted(seconds / 3600, "hour");
  return counted(seconds / 86400, "day");
}

std::string localTime(std::int64_t timestampMs) {
  std::int64_t seconds = timestampMs / 1000;
  std::int64_t millis = timestampMs % 1000;
  if (millis < 0) millis += 1000, seconds -= 1;
  std::tm fields{};
  if (!localCalendar(static_cast<std::time_t>(seconds), fields)) return std::to_string(timestampMs);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", fields.tm_year + 1900,
                fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                static_cast<int>(millis));
  return text;
}

void printStatus(std::ostream& out, const StatusReport& report) {
  out << "Bridge folder  " << shownPath(report.bridge) << "\n";
  if (!report.bridgeExists) {
    out << "Problem: " << report.problems.front() << "\n";
    return;
  }
  const Heartbeat& heartbeat = report.heartbeat;
  out << "Extension      ";
  if (heartbeat.reading == Heartbeat::Reading::Read) {
    out << (report.alive ? "running" : "NOT RUNNING") << ", version "
        << heartbeat.extensionVersion.value_or("unknown") << ", heartbeat "
        << ageInWords(report.heartbeatAgeMs) << "\n";
    out << "REAPER         ";
    if (heartbeat.selectedTracks) {
      out << *heartbeat.selectedTracks << " selected track"
          << (*heartbeat.selectedTracks == 1 ? "" : "s");
    } else {
      out << "selected tracks unknown";
    }
    out << ", edit cursor at "
        << (heartbeat.cursor ? fixed(*heartbeat.cursor, 3) + " s" : std::string("unknown")) << "\n";
    out << "Media path     "
        << (heartbeat.mediaPath ? (heartbeat.mediaPath->empty() ? std::string("(none reported)")
                                                                : printable(*heartbeat.mediaPath))
                                : std::string("unknown"))
        << "\n";
  } else {
    out << "NOT RUNNING (no readable heartbeat)\n";
  }
  out << "Owner          " << ownerWords(report) << "\n";
  out << "Second REAPER  " << (report.secondWaiting ? "WAITING for the lock" : "none") << "\n";
  out << "Folders        ";
  for (std::size_t i = 0; i < kQueueFolders.size(); ++i) {
    const FolderScan& scan = report.folders[i];
    out << (i ? ", " : "") << kQueueFolders[i] << " ";
    if (scan.state == FolderScan::State::Present)
      out << scan.documents.size();
    else
      out << folderStateName(scan.state);
  }
  out << "\n";
  out << "Passed over    " << report.passedOver << " unreadable entr"
      << (report.passedOver == 1 ? "y" : "ies") << " in requests and claimed\n";
  out << "Temporaries    " << folder(report, "requests").temporaries << " unfinished in requests ("
      << report.staleRequestTemporaries << " over a minute old), "
      << report.staleExtensionTemporaries << " stale .tmp of the extension\n";
  out << "Stuck claims   " << report.stuckClaims.size() << "\n";
  if (report.recentLog.reading == LogTail::Reading::Read && !report.recentLog.entries.empty()) {
    out << "Recent deliveries\n";
    std::ostringstream table;
    printLogTable(table, report.recentLog.entries, false);
    std::istringstream rows(table.str());
    for (std::string row; std::getline(rows, row);) out << "  " << row << "\n";
  } else {
    out << "Recent deliveries  none\n";
  }
  if (report.problems.empty()) {
    out << "All is well.\n";
  } else {
    out << "Problem: " << report.problems.front();
    if (report.problems.size() > 1) {
      out << " (" << report.problems.size() - 1 << " more: see --json)";
    }
    out << "\n";
  }
}

void printStatusJson(std::ostream& out, const StatusReport& report) {
  json document;
  document["bridge"] = shownPath(report.bridge);
  document["bridge_exists"] = report.bridgeExists;
  document["alive"] = report.alive;
  const Heartbeat& heartbeat = report.heartbeat;
  json beat{{"reading", readingName(heartbeat.reading)}};
  if (heartbeat.reading == Heartbeat::Reading::Read) {
    beat["timestamp_ms"] = heartbeat.timestampMs;
    beat["age_ms"] = report.heartbeatAgeMs;
    beat["extension_version"] =
        heartbeat.extensionVersion ? json(*heartbeat.extensionVersion) : json();
    beat["selected_tracks"] = heartbeat.selectedTracks ? json(*heartbeat.selectedTracks) : json();
    beat["cursor"] = heartbeat.cursor ? json(*heartbeat.cursor) : json();
    beat["project_media_path"] = heartbeat.mediaPath ? json(*heartbeat.mediaPath) : json();
  }
  document["heartbeat"] = beat;
  document["owner"] = {{"lock", lockName(report.owner)},
                       {"pid", report.ownerPid ? json(*report.ownerPid) : json()}};
  document["second_instance_waiting"] = report.secondWaiting;
  json folders = json::object();
  for (std::size_t i = 0; i < kQueueFolders.size() && report.bridgeExists; ++i) {
    const FolderScan& scan = report.folders[i];
    std::string state = folderStateName(scan.state);
    for (char& c : state) c = c == ' ' ? '_' : static_cast<char>(std::tolower(c));
    folders[kQueueFolders[i]] = {{"state", state},
                                 {"problem", scan.problem},
                                 {"exists", scan.exists},
                                 {"documents", scan.documents.size()},
                                 {"oversized", scan.oversized},
                                 {"temporaries", scan.temporaries},
                                 {"stale_temporaries", scan.staleTemporaries},
                                 {"passed_over", scan.passedOver}};
  }
  document["folders"] = folders;
  document["passed_over"] = report.passedOver;
  document["stale_temporaries"] = {{"requests", report.staleRequestTemporaries},
                                   {"extension", report.staleExtensionTemporaries}};
  document["stuck_claims"] = report.stuckClaims;
  json recent = json::array();
  for (const LogEntry& entry : report.recentLog.entries) recent.push_back(logEntryJson(entry));
  document["recent_log"] = recent;
  document["problems"] = report.problems;
  out << dump(document) << "\n";
}

void printLogTable(std::ostream& out, const std::vector<LogEntry>& entries, bool header) {
  std::size_t idWidth = 10;
  for (const LogEntry& entry : entries) idWidth = std::max(idWidth, entry.requestId.size());
  const std::size_t timeWidth = 23;
  if (header) {
    out << padded("time", timeWidth) << "  " << padded("request", idWidth) << "  "
        << padded("result", 6) << "  message\n";
  }
  for (const LogEntry& entry : entries) {
    if (!entry.readable) {
      std::string raw = printable(entry.raw);
      if (raw.size() > 60) raw = raw.substr(0, 57) + "...";
      out << padded("?", timeWidth) << "  " << padded("?", idWidth) << "  " << padded("?", 6)
          << "  (unreadable log line: " << raw << ")\n";
      continue;
    }
    out << padded(localTime(entry.timestampMs), timeWidth) << "  "
        << padded(printable(entry.requestId), idWidth) << "  "
        << padded(entry.ok ? "ok" : "FAILED", 6) << "  " << printable(entry.message) << "\n";
  }
}

void printLogJson(std::ostream& out, const std::vector<LogEntry>& entries) {
  for (const LogEntry& entry : entries) out << dump(logEntryJson(entry)) << "\n";
}

bool responseOk(const std::string& response) {
  const json document = json::parse(withValidUtf8(response), nullptr, false);
  return document.is_object() && document.contains("ok") && document["ok"].is_boolean() &&
         document["ok"].get<bool>();
}

bool printResponse(std::ostream& out, const std::string& response,
                   std::chrono::steady_clock::duration roundTrip, const std::string& requestId) {
  const json document = json::parse(withValidUtf8(response), nullptr, false);
  if (!document.is_object() || !document.contains("ok") || !document["ok"].is_boolean() ||
      !document.contains("message") || !document["message"].is_string()) {
    return false;
  }
  const std::string message = document["message"].get<std::string>();
  const std::string trip =
      "request " + requestId + ", round trip " + std::to_string(milliseconds(roundTrip)) + " ms";
  if (document["ok"].get<bool>()) {
    out << message;
    if (document.contains("track_index") && document["track_index"].is_number() &&
        document.contains("position_seconds") && document["position_seconds"].is_number()) {
      out << ": track " << document["track_index"].get<std::int64_t>() << " at "
          << fixed(document["position_seconds"].get<double>(), 3) << " s";
    }
    out << " (" << trip << ")\n";
  } else {
    out << "Failed: " << printable(message) << " (" << trip << ")\n" << adviceFor(message) << "\n";
  }
  return true;
}

void printResponseJson(std::ostream& out, const std::string& response,
                       std::chrono::steady_clock::duration roundTrip, const std::string& requestId,
                       const std::string& archive) {
  json document{{"request_id", requestId},
                {"round_trip_ms", milliseconds(roundTrip)},
                {"archive", archive},
                {"response", json::parse(withValidUtf8(response), nullptr, false)}};
  if (document["response"].is_discarded()) document["response"] = nullptr;
  out << dump(document) << "\n";
}

void printLogged(std::ostream& out, const LogEntry& entry,
                 std::chrono::steady_clock::duration roundTrip) {
  const std::string trip = "request " + printable(entry.requestId) + ", round trip " +
                           std::to_string(milliseconds(roundTrip)) +
                           " ms; no response could be written, this is its log line";
  if (entry.ok) {
    out << entry.message << " (" << trip << ")\n";
  } else {
    out << "Failed: " << printable(entry.message) << " (" << trip << ")\n"
        << adviceFor(entry.message) << "\n";
  }
}

void printLoggedJson(std::ostream& out, const LogEntry& entry,
                     std::chrono::steady_clock::duration roundTrip, const std::string& archive) {
  out << dump(json{{"request_id", entry.requestId},
                   {"round_trip_ms", milliseconds(roundTrip)},
                   {"archive", archive},
                   {"response", nullptr},
                   {"log_line", logEntryJson(entry)}})
      << "\n";
}

}  // namespace bridge_tool
