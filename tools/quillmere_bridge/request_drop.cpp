#include "quillmere_bridge/request_drop.h"

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "quillmere_bridge/bridge_reader.h"
#include "quillmere_bridge/platform.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace bridge_tool {

namespace {

constexpr auto kPollEvery = 5ms;
constexpr auto kHeartbeatEvery = 1s;
constexpr std::uintmax_t kMaxResponseBytes = 1024 * 1024;

// UTC calendar fields from days since the epoch, without the platform's time functions.
void civilFromDays(std::int64_t days, int& year, unsigned& month, unsigned& day) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
  day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
}

std::string stemAt(std::chrono::system_clock::time_point when) {
  const std::int64_t micros =
      std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
  const std::int64_t days = micros / 86400000000LL;
  const std::int64_t inDay = micros % 86400000000LL;
  int year = 0;
  unsigned month = 0, day = 0;
  civilFromDays(days, year, month, day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d%02u%02uT%02d%02d%02d%06dZ-%ld", year, month, day,
                static_cast<int>(inDay / 3600000000LL), static_cast<int>(inDay / 60000000 % 60),
                static_cast<int>(inDay / 1000000 % 60), static_cast<int>(inDay % 1000000),
                processId());
  return text;
}

// A folder that cannot be examined answers nothing; the stem holds the time and this process, so
// it is still unique.
bool standsAnywhere(const fs::path& bridge, const std::string& stem) {
  const std::string name = stem + ".json";
  std::error_code error;
  for (const char* folder : {"requests", "claimed", "completed", "failed", "responses"}) {
    if (fs::exists(bridge / folder / name, error)) return true;
  }
  return false;
}

bool isWholeDocument(const std::string& text) {
  return nlohmann::json::parse(text, nullptr, false).is_object();
}

std::optional<std::string> archiveOf(const fs::path& bridge, const std::string& name) {
  std::error_code error;
  for (const char* archive : {"completed", "failed"}) {
    if (fs::exists(bridge / archive / name, error)) return std::string(archive);
  }
  return std::nullopt;
}

// Once the request is archived: its response, else its log line.
void readAnswer(Wait& wait, const fs::path& bridge, const std::string& stem,
                const std::string& responseId) {
  for (const std::string& id : {responseId, stem}) {
    std::optional<std::string> text =
        readRegularFile(bridge / "responses" / (id + ".json"), kMaxResponseBytes);
    if (text && isWholeDocument(*text)) {
      wait.response = std::move(*text);
      return;
    }
  }
  wait.logged = lastLogEntryFor(bridge, responseId);
  if (!wait.logged && stem != responseId) wait.logged = lastLogEntryFor(bridge, stem);
}

}  // namespace

std::string freshStem(const fs::path& bridge) {
  std::string stem = stemAt(std::chrono::system_clock::now());
  while (standsAnywhere(bridge, stem)) {
    std::this_thread::sleep_for(1us);
    stem = stemAt(std::chrono::system_clock::now());
  }
  return stem;
}

Drop dropRequest(const fs::path& bridge, const std::string& stem, const std::string& document) {
  Drop drop;
  const fs::path requests = bridge / "requests";
  std::error_code error;
  if (!fs::is_directory(requests, error)) {
    drop.problem = "there is no \"requests\" folder in " + shownPath(bridge);
    return drop;
  }
  const fs::path partial = requests / (stem + ".json.partial");
  if (!writeDurably(partial, document)) {
    drop.problem = "cannot write " + shownPath(partial);
    return drop;
  }
  fs::rename(partial, requests / (stem + ".json"), error);
  if (error) {
    fs::remove(partial, error);
    drop.problem = "cannot rename the request into place in " + shownPath(requests);
    return drop;
  }
  drop.dropped = true;
  drop.at = std::chrono::steady_clock::now();
  return drop;
}

Wait awaitAnswer(const fs::path& bridge, const std::string& stem, const std::string& responseId,
                 const Drop& drop, std::chrono::steady_clock::duration timeout,
                 const Progress& progress) {
  Wait wait;
  const std::string name = stem + ".json";
  auto nextHeartbeatLook = drop.at + kHeartbeatEvery;
  const auto answered = [&](std::chrono::steady_clock::time_point now) {
    const std::optional<std::string> archive = archiveOf(bridge, name);
    if (!archive) return false;
    wait.end = Wait::End::Answered;
    wait.archive = *archive;
    wait.roundTrip = now - drop.at;
    readAnswer(wait, bridge, stem, responseId);
    return true;
  };
  while (true) {
    const auto now = std::chrono::steady_clock::now();
    if (answered(now)) return wait;
    if (now - drop.at >= timeout) break;
    if (now >= nextHeartbeatLook) {
      nextHeartbeatLook = now + kHeartbeatEvery;
      // A REAPER that still holds the lock is busy (a render, a dialog), not gone.
      if (!isAlive(readHeartbeat(bridge), nowMs()) &&
          probeLock(bridge / "bridge.lock") != LockProbe::Held) {
        wait.end = Wait::End::Stopped;
        break;
      }
    }
    if (progress) {
      std::error_code error;
      progress(fs::exists(bridge / "claimed" / name, error) ? "claimed" : "queued", now - drop.at);
    }
    std::this_thread::sleep_for(kPollEvery);
  }
  const Wait::End end = wait.end;
  std::error_code error;
  // Unclaimed, it can still be taken back so that it is not carried out long after the user
  // gave up; once claimed, the extension answers it, now or at its next start.
  wait.withdrawn = fs::remove(bridge / "requests" / name, error) && !error;
  if (!wait.withdrawn && answered(std::chrono::steady_clock::now())) return wait;
  wait.end = end;
  wait.roundTrip = std::chrono::steady_clock::now() - drop.at;
  wait.claimed = fs::exists(bridge / "claimed" / name, error);
  return wait;
}

}  // namespace bridge_tool
