#include "kill_soak/soak_checks.h"

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include <nlohmann/json.hpp>

namespace fs = std::filesystem;

namespace kill_soak {

namespace {

const char kSpotted[] = "Spotted to selected REAPER track";
const char kInterrupted[] =
    "Previous Quillmere delivery was interrupted; not retried to avoid a duplicate";

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The document when `text` is exactly one JSON object followed by one line feed.
std::optional<nlohmann::json> oneLine(const std::string& text) {
  if (text.empty() || text.back() != '\n' || text.find('\n') != text.size() - 1) return {};
  nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
  if (document.is_discarded() || !document.is_object()) return {};
  return document;
}

// Splits at line feeds; a last piece without one is a cut line and kept as it is.
std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> pieces;
  std::size_t from = 0;
  while (from < text.size()) {
    const std::size_t end = text.find('\n', from);
    if (end == std::string::npos) {
      pieces.push_back(text.substr(from));
      break;
    }
    pieces.push_back(text.substr(from, end + 1 - from));
    from = end + 1;
  }
  return pieces;
}

std::set<std::string> namesIn(const fs::path& folder) {
  std::set<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    names.insert(entry->path().filename().string());
  }
  return names;
}

class Checker {
 public:
  Checker(const fs::path& bridge, const fs::path& journal, const std::vector<QueuedRequest>& queued,
          bool answersMayBeLost)
      : bridge_(bridge), queued_(queued), answersMayBeLost_(answersMayBeLost) {
    for (const std::string& line : lines(readAll(journal))) {
      if (line.back() != '\n') {
        problem("journal: a cut line \"" + line + "\"");
        continue;
      }
      ++placements_[line.substr(0, line.size() - 1)];
    }
  }

  SoakOutcome run() {
    checkQueuesEmpty();
    checkPlacementsKnown();
    const std::map<std::string, std::vector<nlohmann::json>> logLines = readLog();
    for (const QueuedRequest& request : queued_) checkRequest(request, logLines);
    checkNoStrayResponses();
    if (!oneLine(readAll(bridge_ / "bridge_state.json"))) {
      problem("bridge_state.json is not one complete JSON line");
    }
    checkNoTemporaries();
    return std::move(outcome_);
  }

 private:
  void problem(std::string what) { outcome_.problems.push_back(std::move(what)); }
  void lostAnswer(std::string what) {
    (answersMayBeLost_ ? outcome_.lostAnswers : outcome_.problems).push_back(std::move(what));
  }

  void checkQueuesEmpty() {
    for (const char* folder : {"requests", "claimed"}) {
      for (const std::string& name : namesIn(bridge_ / folder)) {
        problem(std::string(folder) + "/" + name + " left behind");
      }
    }
  }

  void checkPlacementsKnown() {
    std::set<std::string> known;
    for (const QueuedRequest& request : queued_) known.insert(request.takeName);
    for (const auto& [name, count] : placements_) {
      if (known.count(name) == 0) problem("placed a take no request asked for: \"" + name + "\"");
      if (count > 1) {
        ++outcome_.placedTwice;
        problem("\"" + name + "\" placed " + std::to_string(count) + " times");
      }
    }
  }

  // The log lines of every request id, in order; every line must be complete JSON.
  std::map<std::string, std::vector<nlohmann::json>> readLog() {
    std::map<std::string, std::vector<nlohmann::json>> byId;
    for (const std::string& line : lines(readAll(bridge_ / "delivery.log"))) {
      const std::optional<nlohmann::json> entry = oneLine(line);
      if (!entry || !(*entry)["request_id"].is_string()) {
        lostAnswer("delivery.log: not one complete JSON line: " + line);
        continue;
      }
      byId[(*entry)["request_id"].get<std::string>()].push_back(*entry);
    }
    return byId;
  }

  void checkRequest(const QueuedRequest& request,
                    const std::map<std::string, std::vector<nlohmann::json>>& logLines) {
    const std::string& name = request.fileName;
    const bool completed = fs::exists(bridge_ / "completed" / name);
    const bool failed = fs::exists(bridge_ / "failed" / name);
    if (completed == failed) {
      problem(name + (completed ? " archived twice" : " never archived"));
      return;
    }
    const fs::path archived = bridge_ / (completed ? "completed" : "failed") / name;
    if (readAll(archived) != request.document) problem(archived.string() + " changed");

    const auto placed = placements_.find(request.takeName);
    const int placements = placed == placements_.end() ? 0 : placed->second;
    const char* const message = completed ? kSpotted : kInterrupted;
    if (completed) {
      ++outcome_.completed;
      if (placements != 1)
        problem(name + " completed but placed " + std::to_string(placements) + " times");
    } else {
      ++outcome_.interrupted;
      if (placements > 0) ++outcome_.placedThenInterrupted;
    }

    const std::string responseText = readAll(bridge_ / "responses" / (request.id + ".json"));
    const std::optional<nlohmann::json> response = oneLine(responseText);
    if (!response) {
      lostAnswer("response " + request.id + ".json is not one complete JSON line: " + responseText);
    } else if ((*response)["request_id"] != request.id || (*response)["ok"] != completed ||
               (*response)["message"] != message) {
      problem("response " + request.id + ".json does not match " + archived.string() + ": " +
              responseText);
    }

    const auto logged = logLines.find(request.id);
    if (logged == logLines.end()) {
      lostAnswer(request.id + " has no delivery.log line");
      return;
    }
    checkAnswers(request.id, logged->second, completed, archived);
  }

  // Answered twice: a completed request logged more than once, a second success, a success after
  // the interrupted answer, or a last line that contradicts the archive.
  void checkAnswers(const std::string& id, const std::vector<nlohmann::json>& answers,
                    bool completed, const fs::path& archived) {
    const std::size_t before = outcome_.problems.size();
    const nlohmann::json& last = answers.back();
    if (last["ok"] != completed || last["message"] != (completed ? kSpotted : kInterrupted)) {
      problem(id + "'s last delivery.log line does not match " + archived.string() + ": " +
              last.dump());
    }
    if (answers.size() > 1 && completed) {
      problem(id + " completed but answered " + std::to_string(answers.size()) + " times");
    } else if (answers.size() > 1) {
      ++outcome_.loggedMoreThanOnce;
      for (std::size_t i = 0; i < answers.size(); ++i) {
        const bool success = answers[i]["ok"] == true && answers[i]["message"] == kSpotted;
        const bool interrupted = answers[i]["ok"] == false && answers[i]["message"] == kInterrupted;
        if (!interrupted && !(i == 0 && success)) {
          problem(id + " answered again after its first answer: " + answers[i].dump());
        }
      }
    }
    if (outcome_.problems.size() != before) ++outcome_.answeredTwice;
  }

  void checkNoStrayResponses() {
    std::set<std::string> expected;
    for (const QueuedRequest& request : queued_) expected.insert(request.id + ".json");
    for (const std::string& name : namesIn(bridge_ / "responses")) {
      if (expected.count(name) == 0) problem("responses/" + name + " answers no queued request");
    }
  }

  void checkNoTemporaries() {
    for (const auto& entry : fs::recursive_directory_iterator(bridge_)) {
      if (entry.path().extension() == ".tmp") problem(entry.path().string() + " left behind");
    }
  }

  const fs::path& bridge_;
  const std::vector<QueuedRequest>& queued_;
  const bool answersMayBeLost_;
  std::map<std::string, int> placements_;  // take name: times placed
  SoakOutcome outcome_;
};

}  // namespace

SoakOutcome checkSoak(const fs::path& bridge, const fs::path& journal,
                      const std::vector<QueuedRequest>& queued, bool answersMayBeLost) {
  return Checker(bridge, journal, queued, answersMayBeLost).run();
}

}  // namespace kill_soak
