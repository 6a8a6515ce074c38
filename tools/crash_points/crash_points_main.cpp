// quillmere_crash_points: ends the stand-in host, running the real module under the crash shim, at
// each file-system call of a scenario in turn (see crash_shim.cpp for the calls counted), starts
// it again to finish the work, and checks at every one that nothing was placed twice, answered
// twice or lost, that every request was archived once with its response, and that no ".tmp" was
// left. Scenarios: one request cycle, one load with claims waiting, one takeover of a bridge whose
// owner died.
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
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

struct Options {
  std::vector<std::string> scenarios;
  crash_points::Programs programs{QUILLMERE_STANDIN_PATH, QUILLMERE_MODULE_PATH,
                                  QUILLMERE_SHIM_PATH};
  bool list = false;
  bool keep = false;
};

const char kUsage[] =
    "usage: quillmere_crash_points [--scenario cycle|recovery|takeover]... [--list] [--keep]\n"
    "                              [--standin PATH] [--module PATH] [--shim PATH]\n"
    "  every scenario by default; --list prints each scenario's counted calls\n";

class Sweep {
 public:
  Sweep(const Options& options, const fs::path& scratch, const std::string& tone)
      : options_(options), scratch_(scratch), world_(scratch / "world", tone) {}

  // Runs one scenario; true when every crash point kept every guarantee.
  bool run(const std::string& scenario) {
    scenario_ = scenario;
    problems_ = 0;
    if (scenario == "takeover" && !findHolderStop()) return false;

    const fs::path trace = scratch_ / "count.trace";
    fs::remove(trace);
    RunEnd undisturbed = runSubject(Shim{{world_.root()}, trace, 0, "kill"});
    if (!undisturbed.trouble.empty() || undisturbed.crashed || !undisturbed.finished) {
      return problem(0, "the undisturbed run: " + undisturbed.trouble);
    }
    checkWorld(0, "the undisturbed run");
    const std::vector<crash_points::TracedCall> calls = crash_points::readTrace(trace);
    if (options_.list) {
      for (const auto& call : calls) {
        std::cout << "  " << call.number << " " << crash_points::describe(call, world_.bridge())
                  << "\n";
      }
    }

    long crashed = 0;
    for (long point = 1; point <= static_cast<long>(calls.size()); ++point) {
      const fs::path pointTrace = scratch_ / "point.trace";
      fs::remove(pointTrace);
      const RunEnd end = runSubject(Shim{{world_.root()}, pointTrace, point, "kill"});
      const std::string where = endingCall(pointTrace, point);
      if (!end.trouble.empty()) {
        problem(point, where + ": " + end.trouble);
        continue;
      }
      if (end.crashed) {
        ++crashed;
        const RunEnd restart =
            finishUndisturbed(options_.programs, world_, scratch_ / "restart.log");
        if (!restart.trouble.empty()) {
          problem(point, where + ", the restart: " + restart.trouble);
          continue;
        }
      }
      checkWorld(point, where);
    }
    std::cout << scenario << ": " << calls.size() << " crash points (" << crashed
              << " reached; each run ended there and restarted), " << problems_ << " problem(s)"
              << std::endl;
    return problems_ == 0;
  }

 private:
  bool problem(long point, const std::string& what) {
    ++problems_;
    std::cout << "  " << scenario_ << ", crash point " << point << ": " << what << "\n";
    return false;
  }

  void checkWorld(long point, const std::string& where) {
    const kill_soak::SoakOutcome outcome =
        kill_soak::checkSoak(world_.bridge(), world_.journal(), world_.queued());
    for (const std::string& broken : outcome.problems) problem(point, where + ": " + broken);
  }

  // The call the run ended at, as the point's trace names it.
  std::string endingCall(const fs::path& trace, long point) {
    for (const auto& call : crash_points::readTrace(trace)) {
      if (call.number == point) return crash_points::describe(call, world_.bridge());
    }
    return "(never reached)";
  }

  void prepare() {
    if (scenario_ == "recovery") {
      world_.reset(3);
      world_.claimFirst(2, 1);
    } else {
      world_.reset(scenario_ == "takeover" ? 2 : 1);
    }
  }

  // Prepares the world and runs the scenario's subject under `shim` until it dies or is done.
  RunEnd runSubject(const Shim& shim) {
    prepare();
    const fs::path log = scratch_ / "subject.log";
    if (scenario_ != "takeover") {
      return crash_points::watch(crash_points::startStandin(options_.programs, world_, log, shim),
                                 world_, log, 30s);
    }
    // The first instance stops after placing its first request, owning the bridge; the second
    // starts, waits, and takes the bridge over once the first is killed.
    const pid_t holder =
        crash_points::startStandin(options_.programs, world_, scratch_ / "holder.log",
                                   Shim{{world_.root()}, {}, holderStop_, "stop"});
    RunEnd end;
    if (!crash_points::waitForStop(holder, 10s)) {
      ::kill(holder, SIGKILL);
      child_process::wait(holder);
      end.trouble = "the first instance did not stop at call " + std::to_string(holderStop_);
      return end;
    }
    const pid_t second = crash_points::startStandin(options_.programs, world_, log, shim);
    const auto deadline = std::chrono::steady_clock::now() + 3s;
    // Before the bridge has an owner's lock, the second instance goes straight to work.
    const kill_soak::QueuedRequest& first = world_.queued().front();
    while (!crash_points::waiterPresent(world_.bridge()) && world_.whereIs(first) == "claimed" &&
           !crash_points::hasEnded(second) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(1ms);
    }
    ::kill(holder, SIGKILL);
    child_process::wait(holder);
    return crash_points::watch(second, world_, log, 30s);
  }

  // The first instance's stop: the call after the placement of its first request.
  bool findHolderStop() {
    scenario_ = "takeover";
    const fs::path trace = scratch_ / "holder.trace";
    fs::remove(trace);
    prepare();
    const fs::path log = scratch_ / "holder.log";
    const RunEnd end = crash_points::watch(
        crash_points::startStandin(options_.programs, world_, log, Shim{{world_.root()}, trace}),
        world_, log, 30s);
    if (!end.finished) return problem(0, "the first instance's own run: " + end.trouble);
    for (const auto& call : crash_points::readTrace(trace)) {
      if (call.call == "write" && call.path == world_.journal().string()) {
        holderStop_ = call.number + 1;
        return true;
      }
    }
    return problem(0, "the first instance never journaled a placement");
  }

  const Options& options_;
  const fs::path scratch_;
  World world_;
  std::string scenario_;
  long holderStop_ = 0;
  int problems_ = 0;
};

std::string parseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--list" || flag == "--keep") {
      (flag == "--list" ? options.list : options.keep) = true;
      continue;
    }
    if (i + 1 >= argc) return flag + " needs a value";
    const std::string value = argv[++i];
    if (flag == "--scenario") {
      if (value != "cycle" && value != "recovery" && value != "takeover") {
        return "unknown scenario " + value;
      }
      options.scenarios.push_back(value);
    } else if (!crash_points::takeProgramOption(flag, value, options.programs)) {
      return "unknown option " + flag;
    }
  }
  if (options.scenarios.empty()) options.scenarios = {"cycle", "recovery", "takeover"};
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::string problem = parseOptions(argc, argv, options);
  if (!problem.empty()) {
    std::cerr << "quillmere_crash_points: " << problem << "\n" << kUsage;
    return 2;
  }
  const fs::path scratch = crash_points::makeScratchFolder("quillmere-crash");
  if (scratch.empty()) {
    std::cerr << "quillmere_crash_points: cannot make a scratch folder\n";
    return 2;
  }
  const std::string tone = (scratch / "take.wav").string();
  if (!fake_reaper::writeTestTone(tone, 0.5, 8000)) {
    std::cerr << "quillmere_crash_points: cannot write the test tone\n";
    return 2;
  }
  const auto started = std::chrono::steady_clock::now();
  bool passed = true;
  Sweep sweep(options, scratch, tone);
  for (const std::string& scenario : options.scenarios) passed = sweep.run(scenario) && passed;
  std::cout << "crash points: " << (passed ? "every point kept every guarantee" : "FAILED")
            << ", wall time " << crash_points::secondsSince(started) << " s" << std::endl;
  if (passed && !options.keep) {
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
  } else {
    std::cout << "crash points: scratch folder kept: " << scratch.string() << std::endl;
  }
  return passed ? 0 : 1;
}
