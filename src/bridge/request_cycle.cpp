#include "bridge/request_cycle.h"

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "bridge/bridge_directory.h"
#include "bridge/deferred_entries.h"
#include "bridge/file_primitives.h"
#include "bridge/report_files.h"
#include "platform/folder_flush.h"
#include "platform/utf8_path.h"
#include "report/response_document.h"
#include "spot/spot_operation.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

using Name = DirectoryListing::Name;
using SteadyTime = std::chrono::steady_clock::time_point;

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

// Every status query costs at least one of the poll's few, so no more candidates are kept.
constexpr std::size_t kCandidatesPerPoll = kStatusQueriesPerPoll;

struct Candidate {
  fs::path::string_type name;
  bool listedRegular;  // the listing said so; otherwise its type costs a status query
};

// The first candidate names in byte order (the order of names is the order of work), from one
// listing and nothing else: entries set aside and those the listing tells are not files are left
// out.
std::vector<Candidate> firstCandidates(const fs::path& requests, SteadyTime now) {
  std::vector<Candidate> chosen;
  chosen.reserve(kCandidatesPerPoll + 1);
  decltype(orderOf(Name())) lastOrder{};  // of chosen.back(), kept while chosen is full
  DirectoryListing listing(requests);
  while (const std::optional<Name> name = listing.next()) {
    if (!isRequestName(*name)) continue;
    const auto order = orderOf(*name);
    if (chosen.size() == kCandidatesPerPoll && !(order < lastOrder)) continue;
    if (isDeferred(requests, *name, now)) continue;
    const DirectoryListing::Type type = listing.listedType();
    if (type == DirectoryListing::Type::other) continue;
    const auto later = std::find_if(chosen.begin(), chosen.end(), [&](const Candidate& c) {
      return order < orderOf(Name(c.name));
    });
    chosen.insert(later,
                  {fs::path::string_type(*name), type == DirectoryListing::Type::regularFile});
    if (chosen.size() > kCandidatesPerPoll) chosen.pop_back();
    if (chosen.size() == kCandidatesPerPoll) lastOrder = orderOf(Name(chosen.back().name));
  }
  return chosen;
}

enum class Verdict { request, archived, setAside, unfinished };

// A regular file not yet archived is a request. Each status query is taken from `queries`; with
// none left the verdict is unfinished, to be reached at a later poll.
Verdict judge(const fs::path& queued, const Candidate& candidate, int& queries) {
  std::error_code error;
  if (!candidate.listedRegular) {
    if (queries == 0) return Verdict::unfinished;
    --queries;
    if (!fs::is_regular_file(fs::status(queued, error)) || error) return Verdict::setAside;
  }
  for (const char* archive : {"completed", "failed"}) {
    if (queries == 0) return Verdict::unfinished;
    --queries;
    const bool found = fs::exists(queueDirectory(archive) / queued.filename(), error);
    if (error) return Verdict::setAside;
    if (found) return Verdict::archived;
  }
  return Verdict::request;
}

SpotResult carryOut(const SpotRequest& request) {
  try {
    return spot(request);
  } catch (const fs::filesystem_error&) {
    // Only the source check lets this out, before anything in the project was touched.
    return sourceMissingResult(request);
  }
}

// False when the request could not be claimed and stays queued.
bool claimAndAnswer(const fs::path& requests, const fs::path& queued) {
  const fs::path claimedFolder = queueDirectory("claimed");
  const fs::path claimed = claimedFolder / queued.filename();
  std::error_code error;
  fs::create_directory(claimedFolder, error);
  error.clear();
  fs::rename(queued, claimed, error);
  if (error) return false;
  // Once placed, a request must not come back to "requests" after a power cut. A file system
  // that will not flush folders (a share, some FUSE mounts) is carried on from, as durable as it
  // makes renames: refusing there would serve nothing ever, and the claim holds for this run.
  flushFolders({claimedFolder, requests});

  if (const std::optional<SpotRequest> request = parseRequest(readFile(claimed))) {
    answerClaimed(claimed, *request, carryOut(*request));
    return true;
  }
  SpotResult invalid;
  invalid.message = "Invalid Quillmere spot request";
  answerClaimed(claimed, requestNamedAfter(claimed, "invalid-request"), invalid);
  return true;
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
  const fs::path folder = queueDirectory(ok ? "completed" : "failed");
  const fs::path target = folder / claimedPath.filename();
  std::error_code error;
  fs::create_directory(folder, error);
  error.clear();
  fs::remove(target, error);
  error.clear();
  fs::rename(claimedPath, target, error);
}

void processOneRequest(SteadyTime now) {
  const fs::path requests = queueDirectory("requests");
  int queries = kStatusQueriesPerPoll;
  for (const Candidate& candidate : firstCandidates(requests, now)) {
    const fs::path queued = requests / candidate.name;
    bool taken = false;
    switch (judge(queued, candidate, queries)) {
      case Verdict::unfinished:
        return;
      case Verdict::setAside:
        deferEntry(requests, candidate.name, now);
        continue;
      case Verdict::archived: {
        std::error_code error;
        taken = fs::remove(queued, error) || !error;
        break;
      }
      case Verdict::request:
        taken = claimAndAnswer(requests, queued);
        break;
    }
    // Left where it is, it would hold up every later poll.
    if (!taken) deferEntry(requests, candidate.name, now);
    return;
  }
}

}  // namespace quillmere
