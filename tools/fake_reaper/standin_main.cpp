// quillmere_standin: loads an extension module into the stand-in host the way the host does,
// drives its timer, unloads it and prints what the extension did to the project.
#include <charconv>
#include <chrono>
#include <cmath>
#include <csignal>
#include <exception>
#include <iostream>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fake_reaper/fake_reaper.h"
#include "fake_reaper/module_loader.h"
#include "fake_reaper/placement_journal.h"
#include "fake_reaper/utf8_arguments.h"

namespace {

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void requestStop(int) {
  stopRequested = 1;
}

struct Options {
  std::string module;
  std::optional<double> seconds;  // none: until a signal
  int tracks = 1;
  std::vector<int> selected;
  bool selectionGiven = false;
  double cursor = 0.0;
  std::string projectFile;
  std::string mediaPath;
  std::string journal;
  double callMilliseconds = 0.0;
  bool help = false;
};

const char kUsage[] =
    "usage: quillmere_standin --module PATH [--seconds S] [--tracks N] [--select K[,K...]|none]\n"
    "                         [--cursor SEC] [--project-file PATH] [--media-path PATH]\n"
    "                         [--journal FILE] [--call-ms MS]\n"
    "       quillmere_standin --help\n"
    "  loads the module, calls its timer about 30 times a second, unloads it and prints an\n"
    "  account (load result, items placed, undo history, host calls, broken rules); the\n"
    "  extension keeps its bridge folder under $HOME, so give it a temporary HOME\n"
    "  runs until S seconds have passed, or until SIGINT/SIGTERM without --seconds;\n"
    "  defaults: one track, track 1 selected, cursor 0, a project never saved\n"
    "  --journal: appends the take name of every item placed, before the call that commits it\n"
    "             (the closing of its undo block) returns\n"
    "  --call-ms: every host function takes this long, as on a busy host\n";

bool parseNumber(const std::string& text, double& value) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  in >> value;
  return !in.fail() && in.peek() == std::char_traits<char>::eof() && std::isfinite(value);
}

bool parseWhole(const std::string& text, int& value) {
  const char* end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && at == end;
}

bool parseSelection(const std::string& text, std::vector<int>& selected) {
  selected.clear();
  if (text == "none") return true;
  std::size_t from = 0;
  while (true) {
    const std::size_t comma = text.find(',', from);
    int number = 0;
    if (!parseWhole(text.substr(from, comma - from), number)) return false;
    selected.push_back(number);
    if (comma == std::string::npos) return true;
    from = comma + 1;
  }
}

// Fills `options`; an empty string on success, otherwise what was wrong.
std::string parseOptions(const std::vector<std::string>& arguments, Options& options) {
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& flag = arguments[i];
    if (flag == "--help" || flag == "-h") {
      options.help = true;
      return {};
    }
    if (i + 1 >= arguments.size()) return flag + " needs a value";
    const std::string& value = arguments[++i];
    double seconds = 0.0;
    if (flag == "--module") {
      options.module = value;
    } else if (flag == "--seconds") {
      if (!parseNumber(value, seconds) || seconds < 0.0) return "bad --seconds: " + value;
      options.seconds = seconds;
    } else if (flag == "--tracks") {
      if (!parseWhole(value, options.tracks) || options.tracks < 0 || options.tracks > 10000) {
        return "bad --tracks: " + value;
      }
    } else if (flag == "--select") {
      if (!parseSelection(value, options.selected)) return "bad --select: " + value;
      options.selectionGiven = true;
    } else if (flag == "--cursor") {
      if (!parseNumber(value, options.cursor)) return "bad --cursor: " + value;
    } else if (flag == "--project-file") {
      options.projectFile = value;
    } else if (flag == "--media-path") {
      options.mediaPath = value;
    } else if (flag == "--journal") {
      options.journal = value;
    } else if (flag == "--call-ms") {
      if (!parseNumber(value, options.callMilliseconds) || options.callMilliseconds < 0.0 ||
          options.callMilliseconds > 10000.0) {
        return "bad --call-ms: " + value;
      }
    } else {
      return "unknown option " + flag;
    }
  }
  if (options.module.empty()) return "--module is required";
  if (!options.selectionGiven && options.tracks >= 1) options.selected = {1};
  for (int number : options.selected) {
    if (number < 1 || number > options.tracks) {
      return "--select names track " + std::to_string(number) + ", which does not exist";
    }
  }
  return {};
}

void buildProject(const Options& options) {
  fake_reaper::Host& host = fake_reaper::Host::instance();
  host.reset();
  for (int number = 1; number <= options.tracks; ++number) host.addTrack(false);
  for (int number : options.selected) host.trackByNumber(number)->selected = true;
  host.cursor = options.cursor;
  host.projectFile = options.projectFile;
  host.mediaPath = options.mediaPath;
  host.callDuration = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::duration<double, std::milli>(options.callMilliseconds));
}

// Prints what changed since the last look: closed undo blocks and newly broken rules.
class Progress {
 public:
  void report(const fake_reaper::Host& host) {
    for (; undoSeen_ < host.undoHistory.size(); ++undoSeen_) {
      std::cout << "undo point: " << host.undoHistory[undoSeen_].label << "\n";
    }
    for (; violationsSeen_ < host.violations.size(); ++violationsSeen_) {
      std::cout << "violation: " << host.violations[violationsSeen_] << "\n";
    }
    std::cout.flush();
  }

 private:
  std::size_t undoSeen_ = 0;
  std::size_t violationsSeen_ = 0;
};

void runTimer(const Options& options, Progress& progress) {
  fake_reaper::Host& host = fake_reaper::Host::instance();
  const auto start = std::chrono::steady_clock::now();
  const auto limit = std::chrono::duration<double>(options.seconds.value_or(0.0));
  while (stopRequested == 0 &&
         (!options.seconds || std::chrono::steady_clock::now() - start < limit)) {
    if (host.timer != nullptr) {
      try {
        host.timer();
      } catch (const std::exception& error) {
        // The real host would not survive this; stop and show it.
        host.violations.push_back(std::string("the timer raised an exception: ") + error.what());
        progress.report(host);
        return;
      }
    }
    progress.report(host);
    std::this_thread::sleep_for(std::chrono::milliseconds(33));
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::string problem = parseOptions(fake_reaper::utf8Arguments(argc, argv), options);
  if (!problem.empty()) {
    std::cerr << "quillmere_standin: " << problem << "\n" << kUsage;
    return 2;
  }
  if (options.help) {
    std::cout << kUsage;
    return 0;
  }
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);
  buildProject(options);
  fake_reaper::Host& host = fake_reaper::Host::instance();
  std::unique_ptr<fake_reaper::PlacementJournal> journal;
  if (!options.journal.empty()) {
    journal = std::make_unique<fake_reaper::PlacementJournal>(options.journal);
    if (!journal->isOpen()) {
      std::cerr << "quillmere_standin: " << journal->error() << "\n";
      return 2;
    }
    host.undoBlockClosed = [&](const fake_reaper::UndoBlock&) { journal->recordNewItems(host); };
  }

  fake_reaper::LoadedModule module(options.module);
  if (module.entry() == nullptr) {
    std::cerr << "quillmere_standin: " << module.error() << "\n";
    return 2;
  }
  const fake_reaper::PluginEntry entry = module.entry();

  const int loaded = entry(module.handle(), &host.record);
  std::cout << "load result: " << loaded << std::endl;
  Progress progress;
  progress.report(host);
  if (loaded == 1) runTimer(options, progress);

  entry(module.handle(), nullptr);
  const bool timerLeft = host.timer != nullptr;
  host.timer = nullptr;

  std::cout << "\n== Account\nload result: " << loaded
            << "\nregistrations: " << host.registrations.size() << "\n";
  for (const auto& registration : host.registrations) {
    std::cout << "  " << registration.first << "\n";
  }
  std::cout << "timer after unload: " << (timerLeft ? "still registered" : "none") << "\n"
            << fake_reaper::describeProject(host) << "host calls: " << host.calls.size() << "\n";
  const std::vector<std::string>& violations = host.checkSettled();
  std::cout << "violations: " << violations.size() << "\n";
  for (const std::string& violation : violations) std::cout << "  " << violation << "\n";
  std::cout.flush();
  return loaded == 1 ? 0 : 1;
}
