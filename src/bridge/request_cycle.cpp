#include "bridge/request_cycle.h"

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "bridge/report_files.h"
#include "platform/utf8_path.h"
#include "report/response_document.h"
#include "spot/spot_operation.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

// The smallest candidate name, compared byte by byte: the order of names is the order of work.
std::optional<fs::path> firstCandidate() {
  std::optional<fs::path> first;
  std::string firstName;
  std::error_code error;
  fs::directory_iterator entry(queueDirectory("requests"), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (!isRequestFile(*entry)) continue;
    // UTF-8 bytes, not the native names: on Windows those are UTF-16, which orders differently.
    std::string name = utf8FromPath(entry->path().filename());
    if (!first || name < firstName) {
      first = entry->path();
      firstName = std::move(name);
    }
  }
  return first;
}

SpotResult carryOut(const SpotRequest& request) {
  try {
    return spot(request);
  } catch (const fs::filesystem_error&) {
    // Only the source check lets this out, before anything in the project was touched.
    return sourceMissingResult(request);
  }
}

}  // namespace

bool isRequestFile(const fs::directory_entry& entry) {
  return entry.is_regular_file() && utf8FromPath(entry.path().extension()) == ".json";
}

SpotRequest requestNamedAfter(const fs::path& file, const char* fallbackId) {
  SpotRequest request;
  request.request_id = utf8FromPath(file.stem());
  if (!safeRequestId(request.request_id)) request.request_id = fallbackId;
  return request;
}

void answerClaimed(const fs::path& claimedPath, const SpotRequest& request,
                   const SpotResult& result) {
  writeAtomic(queueDirectory("responses") / (request.request_id + ".json"),
              responseJson(request, result));
  appendDeliveryLog(request, result);
  archiveClaimed(claimedPath, result.ok);
}

void archiveClaimed(const fs::path& claimedPath, bool ok) {
  const fs::path target = queueDirectory(ok ? "completed" : "failed") / claimedPath.filename();
  std::error_code error;
  fs::remove(target, error);
  error.clear();
  fs::rename(claimedPath, target, error);
}

void processOneRequest() {
  const std::optional<fs::path> candidate = firstCandidate();
  if (!candidate) return;

  const fs::path name = candidate->filename();
  const fs::path claimed = queueDirectory("claimed") / name;
  std::error_code error;
  if (fs::exists(queueDirectory("completed") / name) ||
      fs::exists(queueDirectory("failed") / name)) {
    fs::remove(*candidate, error);
    return;
  }
  fs::rename(*candidate, claimed, error);
  if (error) return;

  if (const std::optional<SpotRequest> request = parseRequest(readFile(claimed))) {
    answerClaimed(claimed, *request, carryOut(*request));
    return;
  }
  SpotResult invalid;
  invalid.message = "Invalid Quillmere spot request";
  answerClaimed(claimed, requestNamedAfter(claimed, "invalid-request"), invalid);
}

}  // namespace quillmere
