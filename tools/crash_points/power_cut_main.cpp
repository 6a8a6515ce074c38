// quillmere_power_cut: the bridge on a loop-mounted ext4 image; the stand-in host runs the request
// cycle under the crash shim, which at each counted file-system call in turn shuts the file system
// down without flushing its journal (as a power cut would) and kills the process. The image is
// unmounted and mounted again (the journal replayed), and then a request whose claim was complete
// before the cut must not be back in "requests"; a restart finishes the work and nothing may be
// placed twice, answered twice or lost (a response or log line the cut took is counted and shown
// apart: nothing flushes them). Needs root and loop devices; exits 77, saying why, where
// mounting is refused.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "child_process/child_process.h"
#include "crash_points/standin_session.h"
#include "fake_reaper/audio_sources.h"
#include "kill_soak/soak_checks.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using crash_points::RunEnd;
using crash_points::Shim;
using crash_points::World;

namespace {

constexpr int kSkipped = 77;

struct Options {
  crash_points::Programs programs{QUILLMERE_STANDIN_PATH, QUILLMERE_MODULE_PATH,
                                  QUILLMERE_SHIM_PATH};
  std::size_t requests = 2;
  bool answersMustSurvive = false;
  bool keep = false;
};

const char kUsage[] =
    "usage: quillmere_power_cut [--requests N] [--answers-must-survive] [--keep]\n"
    "                           [--standin PATH] [--module PATH] [--shim PATH]\n"
    "  --answers-must-survive: a response or log line lost to a cut is a problem, not a note\n";

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs a system program found on the usual administrator's path; its output goes to `log`.
bool runProgram(const std::vector<std::string>& arguments, const fs::path& log) {
  std::vector<std::string> argv = {"/usr/bin/env"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const pid_t child = child_process::start(argv, log.string(), false, std::nullopt,
                                           {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LD_PRELOAD="});
  return child >= 0 && child_process::exitCodeOf(child_process::wait(child)) == 0;
}

class PowerCut {
 public:
  PowerCut(const Options& options, const fs::path& scratch)
      : options_(options),
        scratch_(scratch),
        image_(scratch / "bridge.img"),
        mount_(scratch / "mnt"),
        world_(mount_, (scratch / "take.wav").string(),
               scratch / "journal" / "placements.journal") {}

  ~PowerCut() {
    if (mounted_) unmount();
  }

  // An empty string when the image is mounted, otherwise why it cannot be.
  std::string prepare() {
    if (::geteuid() != 0) return "mounting needs root";
    if (!fake_reaper::writeTestTone((scratch_ / "take.wav").string(), 0.5, 8000)) {
      return "cannot write the test tone";
    }
    fs::create_directories(mount_);
    fs::create_directories(scratch_ / "journal");
    std::ofstream(image_, std::ios::binary).close();
    fs::resize_file(image_, 32u << 20);
    const fs::path log = scratch_ / "mkfs.log";
    if (!runProgram({"mkfs.ext4", "-q", "-F", image_.string()}, log)) {
      return "mkfs.ext4 failed (is e2fsprogs installed?): " + readAll(log);
    }
    const std::string refused = mount();
    if (!refused.empty()) return "mounting a loop device refused: " + refused;
    return {};
  }

  bool run() {
    const std::vector<crash_points::TracedCall> calls = countRun();
    if (calls.empty()) return false;
    const std::map<std::string, long> claimed = claimCompletePoints(calls);
    std::cout << "power cut: " << calls.size() << " cut points on ext4 (" << image_.string()
              << ")\n";
    for (const auto& call : calls) cutAt(call, claimed);
    std::cout << "power cut: " << calls.size() << " cuts, " << problems_ << " problem(s), "
              << lostAnswers_ << " response(s) or log line(s) lost to a cut" << std::endl;
    return problems_ == 0;
  }

 private:
  void problem(const std::string& what) {
    ++problems_;
    std::cout << "  problem: " << what << "\n";
  }

  std::string mount() {
    const fs::path log = scratch_ / "mount.log";
    if (!runProgram({"mount", "-o", "loop", image_.string(), mount_.string()}, log)) {
      return readAll(log);
    }
    mounted_ = true;
    return {};
  }

  bool unmount() {
    const fs::path log = scratch_ / "umount.log";
    for (int attempt = 0; attempt < 50; ++attempt) {
      if (runProgram({"umount", mount_.string()}, log)) {
        mounted_ = false;
        return true;
      }
      std::this_thread::sleep_for(100ms);
    }
    problem("cannot unmount " + mount_.string() + ": " + readAll(log));
    return false;
  }

  // The queue written and on disk before the stand-in starts, so that only its own work is cut.
  void resetWorld() {
    world_.reset(options_.requests);
    const int folder = ::open(mount_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::syncfs(folder);
    ::close(folder);
  }

  std::vector<crash_points::TracedCall> countRun() {
    resetWorld();
    const fs::path trace = scratch_ / "count.trace";
    const fs::path log = scratch_ / "subject.log";
    const RunEnd end = crash_points::watch(
        crash_points::startStandin(options_.programs, world_, log, shim(trace, 0)), world_, log,
        30s);
    if (!end.finished || end.crashed || !end.trouble.empty()) {
      problem("the uncut run: " + end.trouble);
      return {};
    }
    return crash_points::readTrace(trace);
  }

  // For each request file, the first cut point at which its claim is complete: the first counted
  // call after its rename into "claimed" that is not a flush.
  std::map<std::string, long> claimCompletePoints(
      const std::vector<crash_points::TracedCall>& calls) {
    std::map<std::string, long> points;
    for (const kill_soak::QueuedRequest& request : world_.queued()) {
      const std::string from = (world_.bridge() / "requests" / request.fileName).string();
      const std::string to = (world_.bridge() / "claimed" / request.fileName).string();
      bool renamed = false;
      for (const auto& call : calls) {
        if (call.call == "rename" && call.path == from && call.second == to) {
          renamed = true;
        } else if (renamed && call.call != "fsync" && call.call != "fdatasync") {
          points[request.fileName] = call.number;
          break;
        }
      }
      if (points.count(request.fileName) == 0) {
        problem(request.fileName + ": no claim, or nothing after it, in the uncut run");
      }
    }
    return points;
  }

  Shim shim(const fs::path& trace, long endAt) const {
    return Shim{{mount_, scratch_ / "journal"}, trace, endAt, "cut:" + mount_.string()};
  }

  void cutAt(const crash_points::TracedCall& at, const std::map<std::string, long>& claimed) {
    resetWorld();
    const std::string label =
        "cut " + std::to_string(at.number) + " at " + crash_points::describe(at, world_.bridge());
    const fs::path log = scratch_ / "subject.log";
    const fs::path trace = scratch_ / "point.trace";
    fs::remove(trace);
    const RunEnd end = crash_points::watch(
        crash_points::startStandin(options_.programs, world_, log, shim(trace, at.number)), world_,
        log, 30s);
    if (!end.trouble.empty()) return problem(label + ": " + end.trouble);
    if (!end.crashed) {
      std::cout << "  " << label << ": not reached in this run\n";
      return;
    }
    // A file system that was shut down refuses every change.
    const fs::path probe = mount_ / "after-the-cut";
    const int written = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (written >= 0) {
      ::close(written);
      return problem(label + ": the file system still takes writes; no power cut happened");
    }
    if (!unmount()) return;
    const std::string refused = mount();
    if (!refused.empty()) return problem(label + ": cannot mount the image again: " + refused);

    std::string places;
    for (const kill_soak::QueuedRequest& request : world_.queued()) {
      const std::string where = world_.whereIs(request);
      places += (places.empty() ? " " : ", ") + request.fileName + " in " + where;
      const auto complete = claimed.find(request.fileName);
      if (complete != claimed.end() && at.number >= complete->second && where == "requests") {
        problem(label + ": " + request.fileName +
                " was claimed before the cut and is back in "
                "\"requests\" after it");
      }
    }
    std::cout << "  " << label << ":" << places << std::endl;

    const RunEnd restart =
        crash_points::finishUndisturbed(options_.programs, world_, scratch_ / "restart.log");
    if (!restart.trouble.empty()) return problem(label + ", the restart: " + restart.trouble);
    const kill_soak::SoakOutcome outcome = kill_soak::checkSoak(
        world_.bridge(), world_.journal(), world_.queued(), !options_.answersMustSurvive);
    for (const std::string& broken : outcome.problems) problem(label + ": " + broken);
    for (const std::string& lost : outcome.lostAnswers) {
      ++lostAnswers_;
      std::cout << "    lost to the cut: " << lost << "\n";
    }
  }

  const Options& options_;
  const fs::path scratch_, image_, mount_;
  World world_;
  bool mounted_ = false;
  int problems_ = 0;
  int lostAnswers_ = 0;
};

std::string parseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--keep" || flag == "--answers-must-survive") {
      (flag == "--keep" ? options.keep : options.answersMustSurvive) = true;
      continue;
    }
    if (i + 1 >= argc) return flag + " needs a value";
    const std::string value = argv[++i];
    if (flag == "--requests") {
      options.requests = std::strtoul(value.c_str(), nullptr, 10);
      if (options.requests < 1 || options.requests > 20) return "bad --requests: " + value;
    } else if (!crash_points::takeProgramOption(flag, value, options.programs)) {
      return "unknown option " + flag;
    }
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::string problem = parseOptions(argc, argv, options);
  if (!problem.empty()) {
    std::cerr << "quillmere_power_cut: " << problem << "\n" << kUsage;
    return 2;
  }
  const fs::path scratch = crash_points::makeScratchFolder("quillmere-power");
  if (scratch.empty()) {
    std::cerr << "quillmere_power_cut: cannot make a scratch folder\n";
    return 2;
  }
  const auto started = std::chrono::steady_clock::now();
  int status = 0;
  {
    PowerCut cut(options, scratch);
    const std::string refused = cut.prepare();
    if (!refused.empty()) {
      std::cout << "power cut: skipped: " << refused << std::endl;
      status = kSkipped;
    } else {
      status = cut.run() ? 0 : 1;
    }
  }
  std::cout << "power cut: wall time " << crash_points::secondsSince(started) << " s" << std::endl;
  if (status != 1 && !options.keep) {
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
  } else {
    std::cout << "power cut: scratch folder kept: " << scratch.string() << std::endl;
  }
  return status;
}
