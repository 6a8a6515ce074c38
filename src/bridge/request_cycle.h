#pragma once

#include <filesystem>

#include "platform/directory_listing.h"
#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

// One turn of the mailbox: at most one request claimed, carried out, answered, logged, archived.
void processOneRequest();

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
