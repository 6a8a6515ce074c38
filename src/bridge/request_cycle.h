#pragma once

#include <chrono>
#include <filesystem>

#include "platform/directory_listing.h"
#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

// One turn of the mailbox: at most one request claimed, carried out, answered, logged, archived.
// "requests" is listed once; the first few candidates in name order are examined, at most
// kStatusQueriesPerPoll status queries in all, and one that cannot be judged is set aside
// (deferred_entries.h). A request whose archive cannot be examined is never carried out: it waits.
void processOneRequest(std::chrono::steady_clock::time_point now);

// A regular file costs one status query per archive it is looked for in, a link one more for its
// type: four let one poll pass over an entry whose archive cannot be examined and still carry out
// the request behind it, and let the first candidate of every poll be judged whole.
constexpr int kStatusQueriesPerPoll = 4;

void archiveClaimed(const std::filesystem::path& claimedPath, bool ok);

// A name whose last extension is exactly ".json"; whether it is a regular file is asked apart.
bool isRequestName(DirectoryListing::Name name);

// A default request named after the file's stem, or after `fallbackId` when the stem cannot
// name a response file.
SpotRequest requestNamedAfter(const std::filesystem::path& file, const char* fallbackId);

// Response first, then the log line, then the archive: once the claimed file has left
// "claimed", its response is already in place.
void answerClaimed(const std::filesystem::path& claimedPath, const SpotRequest& request,
                   const SpotResult& result);

}  // namespace quillmere
