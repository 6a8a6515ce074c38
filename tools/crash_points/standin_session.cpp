#include "crash_points/standin_session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "child_process/child_process.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace crash_points {

namespace {

bool holdsNothing(const fs::path& folder) {
  std::error_code error;
  return !fs::exists(folder, error) || (fs::is_empty(folder, error) && !error);
}

// The child's wait status if it has ended, without waiting.
std::optional<int> endedStatus(pid_t child) {
  int status = 0;
  pid_t got;
  do {
    got = ::waitpid(child, &status, WNOHANG);
  } while (got < 0 && errno == EINTR);
  if (got == child) return status;
  return std::nullopt;
}

bool loaded(const fs::path& log) {
  std::ifstream in(log);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  return text.find("load result: ") != std::string::npos;
}

}  // namespace

World::World(fs::path root, std::string tone, std::optional<fs::path> journal)
    : root_(std::move(root)),
      home_(root_ / "home"),
      bridge_(home_ / "Library" / "Application Support" / "Quillmere" / "reaper-bridge"),
      journal_(journal.value_or(root_ / "placements.journal")),
      tone_(std::move(tone)) {}

void World::reset(std::size_t queued) {
  std::error_code ignored;
  fs::remove_all(home_, ignored);
  fs::remove(journal_, ignored);
  queue_ = std::make_unique<kill_soak::SoakQueue>(bridge_, tone_);
  queue_->topUp(queued);
}

void World::claimFirst(std::size_t count, std::size_t placed) {
  fs::create_directories(bridge_ / "claimed");
  std::ofstream journal(journal_, std::ios::app | std::ios::binary);
  for (std::size_t i = 0; i < count && i < queued().size(); ++i) {
    const std::string& name = queued()[i].fileName;
    fs::rename(bridge_ / "requests" / name, bridge_ / "claimed" / name);
    if (i < placed) journal << queued()[i].takeName << "\n";
  }
}

bool World::finished() const {
  if (!holdsNothing(bridge_ / "requests") || !holdsNothing(bridge_ / "claimed")) return false;
  for (const kill_soak::QueuedRequest& request : queued()) {
    const std::string where = whereIs(request);
    if (where != "completed" && where != "failed") return false;
  }
  return true;
}

std::string World::whereIs(const kill_soak::QueuedRequest& request) const {
  for (const char* folder : {"requests", "claimed", "completed", "failed"}) {
    std::error_code error;
    if (fs::exists(bridge_ / folder / request.fileName, error)) return folder;
  }
  return "nowhere";
}

pid_t startStandin(const Programs& programs, const World& world, const fs::path& log,
                   const std::optional<Shim>& shim) {
  const std::vector<std::string> argv = {
      programs.standin, "--module", programs.module, "--journal", world.journal().string(),
      "--call-ms",      "0"};
  std::vector<std::string> settings;
  if (shim) {
    std::string roots;
    for (const fs::path& root : shim->roots) roots += (roots.empty() ? "" : ":") + root.string();
    settings = {"LD_PRELOAD=" + programs.shim, "QUILLMERE_SHIM_ROOTS=" + roots,
                "QUILLMERE_SHIM_END_AT=" + std::to_string(shim->endAt),
                "QUILLMERE_SHIM_END_HOW=" + shim->how};
    if (!shim->trace.empty()) settings.push_back("QUILLMERE_SHIM_TRACE=" + shim->trace.string());
  } else {
    settings = {"LD_PRELOAD="};
  }
  // Gone until the child makes it anew: an old log must not tell of this run's load.
  std::error_code ignored;
  fs::remove(log, ignored);
  return child_process::start(argv, log.string(), false, world.home().string(), settings);
}

RunEnd watch(pid_t child, const World& world, const fs::path& log, Clock::duration limit) {
  RunEnd end;
  if (child < 0) {
    end.trouble = "the stand-in could not be started";
    return end;
  }
  const auto deadline = Clock::now() + limit;
  std::optional<int> status;
  while (!(status = endedStatus(child))) {
    if (loaded(log) && world.finished()) {
      end.finished = true;
      ::kill(child, SIGTERM);
      status = child_process::wait(child);
      break;
    }
    if (Clock::now() > deadline) {
      ::kill(child, SIGKILL);
      child_process::wait(child);
      end.trouble = "the stand-in neither finished nor ended in time";
      return end;
    }
    std::this_thread::sleep_for(2ms);
  }
  if (WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL) {
    end.crashed = true;
  } else if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0 || !end.finished) {
    end.trouble = "the stand-in ended with " + child_process::describe(*status) +
                  (end.finished ? "" : " before the work was done");
  }
  return end;
}

RunEnd finishUndisturbed(const Programs& programs, const World& world, const fs::path& log) {
  RunEnd end = watch(startStandin(programs, world, log, std::nullopt), world, log, 30s);
  if (end.crashed) end.trouble = "the undisturbed run was killed";
  return end;
}

bool waitForStop(pid_t child, Clock::duration limit) {
  const auto deadline = Clock::now() + limit;
  while (Clock::now() < deadline) {
    int status = 0;
    const pid_t got = ::waitpid(child, &status, WNOHANG | WUNTRACED);
    if (got == child) return WIFSTOPPED(status);
    std::this_thread::sleep_for(1ms);
  }
  return false;
}

bool hasEnded(pid_t child) {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == child;
}

bool waiterPresent(const fs::path& bridge) {
  const int descriptor = ::open((bridge / "bridge.waiting").c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool held = ::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(descriptor);  // releases the attempt if it succeeded
  return held;
}

std::vector<TracedCall> readTrace(const fs::path& trace) {
  std::vector<TracedCall> calls;
  std::ifstream in(trace);
  std::string line;
  while (std::getline(in, line)) {
    // "N call path [second] [END]"; paths here hold no spaces but the bridge's own
    // "Application Support", so the fields are found around the known folder names.
    TracedCall call;
    std::istringstream fields(line);
    fields >> call.number >> call.call;
    std::string rest;
    std::getline(fields, rest);
    if (!rest.empty() && rest.front() == ' ') rest.erase(0, 1);
    const std::string endMark = " END";
    if (rest.size() >= endMark.size() &&
        rest.compare(rest.size() - endMark.size(), endMark.size(), endMark) == 0) {
      rest.erase(rest.size() - endMark.size());
    }
    // A second path starts with '/' after a space.
    const std::size_t split = rest.find(" /");
    if (split != std::string::npos && (call.call == "rename" || call.call == "link")) {
      call.path = rest.substr(0, split);
      call.second = rest.substr(split + 1);
    } else {
      call.path = rest;
    }
    calls.push_back(call);
  }
  return calls;
}

std::string describe(const TracedCall& call, const fs::path& base) {
  const auto shown = [&](const std::string& path) {
    const std::string prefix = base.string() + "/";
    return path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
  };
  std::string text = call.call + " " + shown(call.path);
  if (!call.second.empty()) text += " -> " + shown(call.second);
  return text;
}

std::filesystem::path makeScratchFolder(const std::string& prefix) {
  std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) return {};
  return pattern;
}

bool takeProgramOption(const std::string& flag, const std::string& value, Programs& programs) {
  if (flag == "--standin") {
    programs.standin = value;
  } else if (flag == "--module") {
    programs.module = value;
  } else if (flag == "--shim") {
    programs.shim = value;
  } else {
    return false;
  }
  return true;
}

long long secondsSince(std::chrono::steady_clock::time_point started) {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                          started)
      .count();
}

}  // namespace crash_points
