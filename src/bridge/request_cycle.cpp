#include "bridge/request_cycle.h"

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "bridge/report_files.h"
#include "platform/utf8_path.h"
#include "report/response_document.h"
#include "spot/spot_operation.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

using Name = DirectoryListing::Name;

// Names are ordered by their UTF-8 bytes; Windows lists UTF-16 names, whose order differs.
#ifdef _WIN32
std::string orderOf(Name name) {
  return utf8FromPath(fs::path(name));
}
#else
Name orderOf(Name name) {
  return name;
}
#endif

// The smallest candidate name, compared byte by byte: the order of names is the order of work.
// Only a name that would win has its type read; an entry whose type cannot be read is passed
// over like one that is not a request, and so is one passed over earlier in this poll.
std::optional<fs::path> firstCandidate(const std::vector<fs::path>& passedOver) {
  std::optional<fs::path::string_type> first;
  decltype(orderOf(Name())) firstOrder{};
  DirectoryListing listing(queueDirectory("requests"));
  while (const std::optional<Name> name = listing.next()) {
    if (!isRequestName(*name)) continue;
    const auto order = orderOf(*name);
    if (first && !(order < firstOrder)) continue;
    if (std::any_of(passedOver.begin(), passedOver.end(),
                    [&](const fs::path& over) { return Name(over.native()) == *name; })) {
      continue;
    }
    if (listing.isRegularFile()) {
      first.emplace(*name);
      firstOrder = orderOf(Name(*first));
    }
  }
  if (!first) return std::nullopt;
  return fs::path(*first);
}

enum class Archived { no, yes, unknown };

// Tested in this order; an archive entry that cannot be examined (a link to itself) leaves the
// answer unknown.
Archived archivedAlready(const fs::path& name) {
  std::error_code error;
  for (const char* archive : {"completed", "failed"}) {
    const bool found = fs::exists(queueDirectory(archive) / name, error);
    if (error) return Archived::unknown;
    if (found) return Archived::yes;
  }
  return Archived::no;
}

SpotResult carryOut(const SpotRequest& request) {
  try {
    return spot(request);
  } catch (const fs::filesystem_error&) {
    // Only the source check lets this out, before anything in the project was touched.
    return sourceMissingResult(request);
  }
}

void claimAndAnswer(const fs::path& queued, const fs::path& name) {
  const fs::path claimed = queueDirectory("claimed") / name;
  std::error_code error;
  fs::rename(queued, claimed, error);
  if (error) return;

  if (const std::optional<SpotRequest> request = parseRequest(readFile(claimed))) {
    answerClaimed(claimed, *request, carryOut(*request));
    return;
  }
  SpotResult invalid;
  invalid.message = "Invalid Quillmere spot request";
  answerClaimed(claimed, requestNamedAfter(claimed, "invalid-request"), invalid);
}

}  // namespace

bool isRequestName(Name name) {
  // A name that is only ".json" has no extension at all.
  static constexpr fs::path::value_type kSuffix[] = {'.', 'j', 's', 'o', 'n'};
  const Name suffix(kSuffix, 5);
  return name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
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
  std::vector<fs::path> passedOver;
  while (const std::optional<fs::path> name = firstCandidate(passedOver)) {
    const Archived archived = archivedAlready(*name);
    if (archived == Archived::unknown) {
      passedOver.push_back(*name);
      continue;
    }
    const fs::path queued = queueDirectory("requests") / *name;
    if (archived == Archived::yes) {
      std::error_code error;
      fs::remove(queued, error);
    } else {
      claimAndAnswer(queued, *name);
    }
    return;
  }
}

}  // namespace quillmere
