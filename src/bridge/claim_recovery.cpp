#include "bridge/claim_recovery.h"

#include <filesystem>
#include <optional>
#include <system_error>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "bridge/request_cycle.h"

namespace fs = std::filesystem;

namespace quillmere {

void failInterruptedClaims() {
  std::error_code error;
  fs::directory_iterator entry(queueDirectory("claimed"), error);
  // Every claimed file in one call, in listing order; there is deliberately no duplicate guard.
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (!isRequestFile(*entry)) continue;
    const fs::path path = entry->path();
    const std::optional<SpotRequest> parsed = parseRequest(readFile(path));
    const SpotRequest request = parsed ? *parsed : requestNamedAfter(path, "interrupted-request");
    SpotResult result;
    result.message =
        "Previous Quillmere delivery was interrupted; not retried to avoid a duplicate";
    answerClaimed(path, request, result);
  }
}

}  // namespace quillmere
