// quillmere_kill_soak: feeds the bridge a stream of valid requests while the stand-in host, running
// the real extension module, is killed (SIGKILL) at seeded random moments and started again; with
// --instances 2, two of them share the bridge, each killed and restarted on its own schedule. Once
// the kills are done it lets the queue drain, loads the extension once more cleanly, and checks
// that no request was placed twice, answered twice, lost, or left unanswered.
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "child_process/child_process.h"
#include "fake_reaper/audio_sources.h"
#include "kill_soak/soak_checks.h"
#include "kill_soak/soak_queue.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

struct Options {
  std::uint64_t seed = std::random_device{}();
  int kills = 30;
  int instances = 1;
  int backlog = 8;     // requests kept waiting before each start
  int maxGapMs = 400;  // a kill comes 0 to this many milliseconds after a start
  std::string callMs = "2";
  std::string standin = QUILLMERE_STANDIN_PATH;
  std::string module = QUILLMERE_MODULE_PATH;
  bool keep = false;
};

const char kUsage[] =
    "usage: quillmere_kill_soak [--seed N] [--kills N] [--instances 1|2] [--backlog N]\n"
    "                           [--max-gap-ms MS] [--call-ms MS] [--standin PATH]\n"
    "                           [--module PATH] [--keep]\n"
    "  defaults: a random seed (printed), 30 kills in all, one instance, 8 requests waiting,\n"
    "  each instance killed 0-400 ms after its start, host calls of 2 ms; --keep keeps the\n"
    "  scratch folder (kept anyway on failure)\n";

template <typename Number>
bool parseWhole(const std::string& text, Number& value, Number least) {
  const char* end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && at == end && value >= least;
}

// Fills `options`; an empty string on success, otherwise what was wrong.
std::string parseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--keep") {
      options.keep = true;
      continue;
    }
    if (i + 1 >= argc) return flag + " needs a value";
    const std::string value = argv[++i];
    bool good = true;
    if (flag == "--seed") {
      good = parseWhole<std::uint64_t>(value, options.seed, 0);
    } else if (flag == "--kills") {
      good = parseWhole(value, options.kills, 0);
    } else if (flag == "--instances") {
      good = parseWhole(value, options.instances, 1) && options.instances <= 2;
    } else if (flag == "--backlog") {
      good = parseWhole(value, options.backlog, 1);
    } else if (flag == "--max-gap-ms") {
      good = parseWhole(value, options.maxGapMs, 1) && options.maxGapMs <= 60000;
    } else if (flag == "--call-ms") {
      options.callMs = value;
    } else if (flag == "--standin") {
      options.standin = value;
    } else if (flag == "--module") {
      options.module = value;
    } else {
      return "unknown option " + flag;
    }
    if (!good) return "bad " + flag + ": " + value;
  }
  return {};
}

bool holdsNothing(const fs::path& folder) {
  std::error_code error;
  return fs::is_empty(folder, error) && !error;
}

class Soak {
 public:
  Soak(const Options& options, const fs::path& scratch)
      : options_(options),
        scratch_(scratch),
        home_(scratch / "home"),
        bridge_(home_ / "Library" / "Application Support" / "Quillmere" / "reaper-bridge"),
        journal_(scratch / "placements.journal"),
        queue_(bridge_, (scratch / "take.wav").string()) {}

  bool run() {
    const auto started = Clock::now();
    if (!fake_reaper::writeTestTone((scratch_ / "take.wav").string(), 0.5, 8000)) {
      return fail("cannot write the test tone");
    }
    std::mt19937_64 random(options_.seed);
    std::uniform_int_distribution<int> gapUs(0, options_.maxGapMs * 1000);
    const auto nextKill = [&] { return Clock::now() + std::chrono::microseconds(gapUs(random)); };
    std::vector<Instance> instances(static_cast<std::size_t>(options_.instances));
    for (std::size_t slot = 0; slot < instances.size() && options_.kills > 0; ++slot) {
      queue_.topUp(static_cast<std::size_t>(options_.backlog));
      if (!startInstance(instances, slot)) return false;
      instances[slot].killAt = nextKill();
    }
    for (int kill = 0; kill < options_.kills; ++kill) {
      Instance& due = *std::min_element(
          instances.begin(), instances.end(),
          [](const Instance& a, const Instance& b) { return a.killAt < b.killAt; });
      std::this_thread::sleep_until(due.killAt);
      ::kill(due.child, SIGKILL);
      const int status = child_process::wait(due.child);
      if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
        return fail("a run ended before its kill (" + child_process::describe(status) + "); see " +
                    (scratch_ / due.log).string());
      }
      due.child = -1;
      if (kill + static_cast<int>(instances.size()) >= options_.kills) {
        due.killAt = Clock::time_point::max();  // its last kill: it drains with the others
        continue;
      }
      queue_.topUp(static_cast<std::size_t>(options_.backlog));
      if (!startInstance(instances, static_cast<std::size_t>(&due - instances.data()))) {
        return false;
      }
      due.killAt = nextKill();
    }
    if (!drain(instances)) return false;
    if (!loadCleanly()) return false;

    const kill_soak::SoakOutcome outcome = kill_soak::checkSoak(bridge_, journal_, queue_.all());
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    std::cout << "kill soak: seed " << options_.seed << ", " << options_.instances
              << (options_.instances == 1 ? " instance, " : " instances on one bridge, ")
              << options_.kills << " kills, " << runs_ - 1 << " restarts, " << queue_.all().size()
              << " requests: " << outcome.completed << " completed, " << outcome.interrupted
              << " failed as interrupted (" << outcome.placedThenInterrupted
              << " of them placed before the kill, " << outcome.loggedMoreThanOnce
              << " logged more than once), placed twice: " << outcome.placedTwice
              << ", answered twice: " << outcome.answeredTwice << ", wall time " << std::fixed
              << std::setprecision(1) << seconds << " s" << std::endl;
    for (const std::string& problem : outcome.problems)
      std::cout << "  problem: " << problem << "\n";
    if (!outcome.problems.empty()) {
      return fail(std::to_string(outcome.problems.size()) + " problem(s)");
    }
    return true;
  }

 private:
  struct Instance {
    pid_t child = -1;
    Clock::time_point killAt = Clock::time_point::max();
    std::string log;
  };

  bool fail(const std::string& why) {
    std::cout << "kill soak FAILED (seed " << options_.seed << "): " << why << std::endl;
    return false;
  }

  bool startInstance(std::vector<Instance>& instances, std::size_t slot) {
    Instance& instance = instances[slot];
    instance.log = "standin-" + std::to_string(slot + 1) + ".log";
    instance.child = start({}, instance.log.c_str());
    if (instance.child < 0) return fail("cannot start " + options_.standin);
    return true;
  }

  pid_t start(const std::vector<std::string>& extra, const char* log) {
    std::vector<std::string> argv = {options_.standin,  "--module",  options_.module, "--journal",
                                     journal_.string(), "--call-ms", options_.callMs};
    argv.insert(argv.end(), extra.begin(), extra.end());
    ++runs_;
    return child_process::start(argv, (scratch_ / log).string(), true, home_.string());
  }

  // Every instance runs uninterrupted until nothing waits in "requests" or "claimed", then each
  // stops cleanly.
  bool drain(std::vector<Instance>& instances) {
    for (std::size_t slot = 0; slot < instances.size(); ++slot) {
      if (instances[slot].child < 0 && !startInstance(instances, slot)) return false;
    }
    // Generous: a request takes well under half a second even on a loaded machine, and a waiting
    // instance takes over within about a second.
    const auto deadline = Clock::now() + 30s + queue_.all().size() * 500ms;
    while (!(holdsNothing(bridge_ / "requests") && holdsNothing(bridge_ / "claimed")) &&
           Clock::now() < deadline) {
      std::this_thread::sleep_for(20ms);
    }
    for (const Instance& instance : instances) ::kill(instance.child, SIGTERM);
    for (const Instance& instance : instances) {
      const int status = child_process::wait(instance.child);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return fail("a draining run ended with " + child_process::describe(status) + "; see " +
                    (scratch_ / instance.log).string());
      }
    }
    return true;
  }

  // A last load and unload with nothing to do; the stand-in reports the host rules kept.
  bool loadCleanly() {
    const pid_t child = start({"--seconds", "0.3"}, "final.log");
    if (child < 0) return fail("cannot start " + options_.standin);
    const int status = child_process::wait(child);
    const fs::path log = scratch_ / "final.log";
    std::ifstream in(log);
    const std::string account{std::istreambuf_iterator<char>(in), {}};
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
        account.find("\nviolations: 0\n") == std::string::npos) {
      return fail("the clean load ended with " + child_process::describe(status) + "; see " +
                  log.string());
    }
    return true;
  }

  const Options& options_;
  const fs::path scratch_, home_, bridge_, journal_;
  kill_soak::SoakQueue queue_;
  int runs_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::string problem = parseOptions(argc, argv, options);
  if (!problem.empty()) {
    std::cerr << "quillmere_kill_soak: " << problem << "\n" << kUsage;
    return 2;
  }
  std::string pattern = (fs::temp_directory_path() / "quillmere-soak-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    std::cerr << "quillmere_kill_soak: cannot make a scratch folder\n";
    return 2;
  }
  const fs::path scratch = pattern;
  // The path goes into request documents unescaped.
  if (pattern.find_first_of("\"\\") != std::string::npos) {
    std::cerr << "quillmere_kill_soak: the scratch folder's path needs escaping: " << pattern
              << "\n";
    return 2;
  }
  std::cout << "kill soak: seed " << options.seed << " (rerun with --seed " << options.seed
            << "), scratch " << scratch.string() << std::endl;
  const bool passed = Soak(options, scratch).run();
  if (passed && !options.keep) {
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
  } else {
    std::cout << "kill soak: scratch folder kept: " << scratch.string() << std::endl;
  }
  return passed ? 0 : 1;
}
