#include "bridge/claim_recovery.h"

#include <filesystem>
#include <optional>
#include <system_error>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "bridge/request_cycle.h"
#include "platform/directory_listing.h"

namespace fs = std::filesystem;

namespace quillmere {

void failInterruptedClaims() {
  const fs::path folder = queueDirectory("claimed");
  DirectoryListing listing(folder);
  // Every claimed file in one call, in listing order; there is deliberately no duplicate guard.
  // An entry whose type cannot be read is left where it is, like any file that is not a request.
  while (const std::optional<DirectoryListing::Name> name = listing.next()) {
    if (!isRequestName(*name)) continue;
    const DirectoryListing::Type type = listing.listedType();
    if (type == DirectoryListing::Type::other) continue;
    const fs::path path = folder / fs::path(*name);
    std::error_code error;
    if (type == DirectoryListing::Type::unknown &&
        (!fs::is_regular_file(fs::status(path, error)) || error)) {
      continue;
    }
    const std::optional<SpotRequest> parsed = parseRequest(readFile(path));
    const SpotRequest request = parsed ? *parsed : requestNamedAfter(path, "interrupted-request");
    SpotResult result;
    result.message =
        "Previous Quillmere delivery was interrupted; not retried to avoid a duplicate";
    answerClaimed(path, request, result);
  }
}

}  // namespace quillmere
