#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "quillmere_bridge/bridge_reader.h"

namespace bridge_tool {

struct StatusReport;

// "0.4 seconds ago", "3 minutes ago", "in the future" for a clock set back.
std::string ageInWords(std::int64_t ageMs);

// A wall-clock time stamp as local time, "2026-11-23 17:02:03.456".
std::string localTime(std::int64_t timestampMs);

void printStatus(std::ostream& out, const StatusReport& report);
void printStatusJson(std::ostream& out, const StatusReport& report);

// The table's header, then one row per entry; widths fit the entries given.
void printLogTable(std::ostream& out, const std::vector<LogEntry>& entries, bool header);
void printLogJson(std::ostream& out, const std::vector<LogEntry>& entries);

// Whether a response document says the audio was placed.
bool responseOk(const std::string& response);

// A response document as a person reads it; false when it is no response document.
bool printResponse(std::ostream& out, const std::string& response,
                   std::chrono::steady_clock::duration roundTrip, const std::string& requestId);
void printResponseJson(std::ostream& out, const std::string& response,
                       std::chrono::steady_clock::duration roundTrip, const std::string& requestId,
                       const std::string& archive);

// The outcome as the log line tells it, for a request answered without a readable response.
void printLogged(std::ostream& out, const LogEntry& entry,
                 std::chrono::steady_clock::duration roundTrip);
void printLoggedJson(std::ostream& out, const LogEntry& entry,
                     std::chrono::steady_clock::duration roundTrip, const std::string& archive);

}  // namespace bridge_tool
