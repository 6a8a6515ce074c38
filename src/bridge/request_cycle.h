#pragma once

#include <filesystem>

namespace quillmere {

// One turn of the mailbox: at most one request claimed, carried out, answered, logged, archived.
void processOneRequest();

void archiveClaimed(const std::filesystem::path& claimedPath, bool ok);

}  // namespace quillmere
