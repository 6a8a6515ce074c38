// The timer runs on the host's UI thread, so every job it paces must stay far below a frame. Each
// benchmark runs beside its floor: the plainest code that does the same file-system work, so the
// ratio of the two is what the bridge adds.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "bridge/deferred_entries.h"
#include "bridge/file_primitives.h"
#include "bridge/report_files.h"
#include "bridge/request_cycle.h"
#include "fake_reaper/fake_reaper.h"
#include "host/host_api.h"
#include "platform/folder_flush.h"
#include "report/response_document.h"
#include "request/spot_request.h"

namespace fs = std::filesystem;

namespace {

using SteadyClock = std::chrono::steady_clock;

void poll(SteadyClock::time_point now = SteadyClock::now()) {
  quillmere::processOneRequest(now);
}

// The longest single poll of a run, beside the median the library reports.
class WorstPoll {
 public:
  void time(SteadyClock::time_point now) {
    const auto started = SteadyClock::now();
    poll(now);
    worst_ = std::max(worst_, SteadyClock::now() - started);
  }
  void report(benchmark::State& state) const {
    state.counters["worst_ms"] = std::chrono::duration<double, std::milli>(worst_).count();
  }

 private:
  SteadyClock::duration worst_{};
};

const std::string kRequest =
    R"({"version":4,"command":"spot","request_id":"d1f0-77a","project_item_id":17,)"
    R"("source_path":"/Volumes/Audio/Takes/take.wav","expected_project_path":"/p/song.rpp",)"
    R"("display_name":"Kick 01","gain_db":-6,"playback_rate":1.25,"full_handles":true,)"
    R"("source_offset_seconds":0.5,"visible_length_seconds":1.5})";

class ScratchHome {
 public:
  ScratchHome() {
    root_ = fs::temp_directory_path() / ("quillmere-bench-" + std::to_string(std::rand()));
    fs::create_directories(root_);
    setenv("HOME", root_.c_str(), 1);
  }
  ~ScratchHome() { fs::remove_all(root_); }
  fs::path bridge() const {
    return root_ / "Library" / "Application Support" / "Quillmere" / "reaper-bridge";
  }
  fs::path queue(const char* name) const { return bridge() / name; }

 private:
  fs::path root_;
};

void writeFile(const fs::path& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

// The floor of every write: create, write, close, rename.
void writeAndRename(const fs::path& target, const std::string& contents) {
  const fs::path temporary = fs::path(target) += ".tmp";
  const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  benchmark::DoNotOptimize(::write(descriptor, contents.data(), contents.size()));
  ::close(descriptor);
  ::rename(temporary.c_str(), target.c_str());
}

// The floor of every read: open, read, close.
std::string plainRead(const fs::path& path) {
  std::string contents(64 * 1024, '\0');
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t length = ::read(descriptor, contents.data(), contents.size());
  ::close(descriptor);
  contents.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return contents;
}

// The floor of the durable claim: each folder opened, flushed and closed.
void fsyncFolders(std::initializer_list<fs::path> folders) {
  for (const fs::path& folder : folders) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::fsync(descriptor);
    ::close(descriptor);
  }
}

// A backlog of requests that cannot be claimed (a file stands where "claimed" would be made):
// every poll lists the whole queue, picks the first name, tests the archives and fails its rename.
void queueBacklog(const ScratchHome& home, int64_t count) {
  for (const char* name : {"requests", "completed", "failed", "responses"})
    fs::create_directories(home.queue(name));
  writeFile(home.queue("claimed"), "");
  for (int64_t i = 0; i < count; ++i)
    writeFile(home.queue("requests") / ("r" + std::to_string(i) + ".json"), kRequest);
}

void BM_PollOverBacklog(benchmark::State& state) {
  ScratchHome home;
  queueBacklog(home, state.range(0));
  WorstPoll worst;
  for (auto _ : state) worst.time(SteadyClock::now());
  worst.report(state);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_PollOverBacklog)->Arg(1000)->Arg(10000);
// The same with the memo of entries set aside emptied before each poll: above, every refused
// claim sets its entry aside, and once 256 are, every name that would be chosen is looked up.
void BM_PollOverBacklogEmptyMemo(benchmark::State& state) {
  ScratchHome home;
  queueBacklog(home, state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    quillmere::forgetDeferredEntries();
    state.ResumeTiming();
    poll();
  }
}
BENCHMARK(BM_PollOverBacklogEmptyMemo)->Arg(1000)->Arg(10000);

// What every floor of a poll does: one readdir over the queue, keeping the smallest name.
std::string smallestListedName(const std::string& folder) {
  std::string smallest;
  DIR* listing = ::opendir(folder.c_str());
  while (const dirent* entry = ::readdir(listing)) {
    if (entry->d_name[0] == '.') continue;
    if (smallest.empty() || std::strcmp(entry->d_name, smallest.c_str()) < 0)
      smallest = entry->d_name;
  }
  ::closedir(listing);
  return smallest;
}

void BM_PollOverBacklogFloor(benchmark::State& state) {
  ScratchHome home;
  queueBacklog(home, state.range(0));
  const std::string folder = home.queue("requests").string();
  for (auto _ : state) {
    const std::string smallest = smallestListedName(folder);
    benchmark::DoNotOptimize(smallest);
  }
}
BENCHMARK(BM_PollOverBacklogFloor)->Arg(1000)->Arg(10000);

void BM_ReadAndParseRequest(benchmark::State& state) {
  ScratchHome home;
  fs::create_directories(home.bridge());
  const fs::path file = home.bridge() / "r.json";
  writeFile(file, kRequest);
  for (auto _ : state) benchmark::DoNotOptimize(quillmere::parseRequest(quillmere::readFile(file)));
}
BENCHMARK(BM_ReadAndParseRequest);

void BM_ReadAndParseRequestFloor(benchmark::State& state) {
  ScratchHome home;
  fs::create_directories(home.bridge());
  const fs::path file = home.bridge() / "r.json";
  writeFile(file, kRequest);
  for (auto _ : state) benchmark::DoNotOptimize(plainRead(file));
}
BENCHMARK(BM_ReadAndParseRequestFloor);

void BM_WriteResponse(benchmark::State& state) {
  ScratchHome home;
  const quillmere::SpotRequest request = *quillmere::parseRequest(kRequest);
  quillmere::SpotResult result;
  result.ok = true;
  result.message = "Spotted to selected REAPER track";
  result.position_seconds = 12.5;
  result.output_path = request.source_path;
  const fs::path target = home.queue("responses") / "d1f0-77a.json";
  for (auto _ : state) quillmere::writeAtomic(target, quillmere::responseJson(request, result));
}
BENCHMARK(BM_WriteResponse);

void BM_WriteResponseFloor(benchmark::State& state) {
  ScratchHome home;
  fs::create_directories(home.queue("responses"));
  const fs::path target = home.queue("responses") / "d1f0-77a.json";
  const std::string document(220, 'r');  // about a response's length
  for (auto _ : state) writeAndRename(target, document);
}
BENCHMARK(BM_WriteResponseFloor);

void BM_Heartbeat(benchmark::State& state) {
  ScratchHome home;
  fake_reaper::Host::instance().reset();
  fake_reaper::Host::instance().addTrack(true);
  quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc);
  for (auto _ : state) quillmere::writeHeartbeat();
}
BENCHMARK(BM_Heartbeat);

void BM_HeartbeatFloor(benchmark::State& state) {
  ScratchHome home;
  fs::create_directories(home.bridge());
  const fs::path target = home.bridge() / "bridge_state.json";
  const std::string document(160, 'h');  // about a state file's length
  for (auto _ : state) writeAndRename(target, document);
}
BENCHMARK(BM_HeartbeatFloor);

struct EndToEnd {
  ScratchHome home;
  fs::path tone = home.bridge() / "tone.wav";
  std::string document;
  std::int64_t serial = 0;

  EndToEnd() {
    for (const char* name : {"requests", "claimed", "responses", "completed", "failed"})
      fs::create_directories(home.queue(name));
    fake_reaper::writeTestTone(tone.string(), 2.0);
    document = R"({"version":3,"command":"spot","request_id":"r","project_item_id":1,)"
               R"("source_path":")" +
               tone.string() + "\"}";
  }
  std::string drop() {
    const std::string name = std::to_string(++serial) + ".json";
    writeFile(home.queue("requests") / name, document);
    return name;
  }
};

// One whole request: claim, spot into the stand-in project, response, log line, archive.
void BM_OneRequestEndToEnd(benchmark::State& state) {
  EndToEnd run;
  fake_reaper::Host& host = fake_reaper::Host::instance();
  host.reset();
  host.addTrack(true);
  quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc);
  for (auto _ : state) {
    state.PauseTiming();
    run.drop();
    state.ResumeTiming();
    poll();
  }
  host.reset();
}
BENCHMARK(BM_OneRequestEndToEnd);

// The same files moved, flushed, read, written and appended with nothing decided in between.
void BM_OneRequestEndToEndFloor(benchmark::State& state) {
  EndToEnd run;
  const fs::path log = run.home.bridge() / "delivery.log";
  const std::string line(100, 'l');
  for (auto _ : state) {
    state.PauseTiming();
    const std::string name = run.drop();
    state.ResumeTiming();
    const fs::path claimed = run.home.queue("claimed") / name;
    ::rename((run.home.queue("requests") / name).c_str(), claimed.c_str());
    fsyncFolders({run.home.queue("claimed"), run.home.queue("requests")});
    benchmark::DoNotOptimize(plainRead(claimed));
    writeAndRename(run.home.queue("responses") / "r.json", std::string(220, 'r'));
    const int descriptor = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    benchmark::DoNotOptimize(::write(descriptor, line.data(), line.size()));
    ::close(descriptor);
    ::rename(claimed.c_str(), (run.home.queue("completed") / name).c_str());
  }
}
BENCHMARK(BM_OneRequestEndToEndFloor);

// Hostile ground: what a producer, a broken disk or a careless hand can leave in the bridge folder.

constexpr std::size_t kLargestRequest = 1024 * 1024;

enum class Hostile { quotes, nearMissKeys, escapes, controlBytes };

std::string repeatedTo(const std::string& unit, std::size_t length) {
  std::string text;
  text.reserve(length + unit.size());
  while (text.size() < length) text += unit;
  text.resize(length);
  return text;
}

// A request document of exactly 1 MiB, the largest that is read: repetitive text first (quotes,
// or near misses of every key), then a valid request; or a valid request whose source path is a
// long run of escapes or of raw control bytes.
std::string hostileDocument(Hostile kind) {
  const std::string head = R"({"version":3,"command":"spot","request_id":"hostile",)"
                           R"("project_item_id":1,"source_path":")";
  const std::string tail = "\"}";
  const std::string valid = head + "/nowhere/take.wav" + tail;
  switch (kind) {
    case Hostile::quotes:
      return repeatedTo("\"", kLargestRequest - valid.size()) + valid;
    case Hostile::nearMissKeys: {
      std::string misses;
      for (const char* key : {"version", "command", "request_id", "project_item_id", "source_path",
                              "expected_project_path", "display_name", "gain_db", "playback_rate",
                              "full_handles", "source_offset_seconds", "visible_length_seconds"}) {
        misses += '"' + std::string(key, std::strlen(key) - 1);
      }
      return repeatedTo(misses, kLargestRequest - valid.size()) + valid;
    }
    case Hostile::escapes:
      return head + repeatedTo("\\\\", kLargestRequest - head.size() - tail.size()) + tail;
    case Hostile::controlBytes: {
      std::string bytes;
      for (char c = 1; c < 0x20; ++c) bytes += c;
      return head + repeatedTo(bytes, kLargestRequest - head.size() - tail.size()) + tail;
    }
  }
  return {};
}

struct HostileQueue {
  ScratchHome home;
  std::string document;
  fs::path queued = home.queue("requests") / "hostile.json";

  explicit HostileQueue(Hostile kind) : document(hostileDocument(kind)) {
    for (const char* name : {"requests", "claimed", "responses", "completed", "failed"})
      fs::create_directories(home.queue(name));
    fake_reaper::Host::instance().reset();
    fake_reaper::Host::instance().addTrack(true);
    quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc);
  }
  // The request queued again, its archived copy gone (an archived name would be a duplicate).
  void drop() {
    for (const char* archive : {"completed", "failed"})
      fs::remove(home.queue(archive) / "hostile.json");
    writeFile(queued, document);
  }
  // What the bridge wrote for it: the response's and the log's sizes.
  std::pair<std::size_t, std::size_t> answerSizes() const {
    std::size_t response = 0;
    for (const auto& entry : fs::directory_iterator(home.queue("responses")))
      response = std::max<std::size_t>(response, fs::file_size(entry.path()));
    const fs::path log = home.bridge() / "delivery.log";
    return {response, fs::exists(log) ? fs::file_size(log) : 0};
  }
};

// One poll that claims a 1 MiB hostile request, reads and parses it, answers, logs and archives.
void BM_PollHostileRequest(benchmark::State& state, Hostile kind) {
  HostileQueue queue(kind);
  WorstPoll worst;
  for (auto _ : state) {
    state.PauseTiming();
    queue.drop();
    state.ResumeTiming();
    worst.time(SteadyClock::now());
  }
  worst.report(state);
  const auto [response, log] = queue.answerSizes();
  state.counters["response_bytes"] = static_cast<double>(response);
  fake_reaper::Host::instance().reset();
}
BENCHMARK_CAPTURE(BM_PollHostileRequest, quotes, Hostile::quotes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequest, nearMissKeys, Hostile::nearMissKeys)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequest, escapes, Hostile::escapes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequest, controlBytes, Hostile::controlBytes)
    ->Unit(benchmark::kMillisecond);

// The same moves, read and writes with raw system calls: the response and the log line as long
// as the bridge's own for that document.
void BM_PollHostileRequestFloor(benchmark::State& state, Hostile kind) {
  HostileQueue queue(kind);
  queue.drop();
  poll();
  const auto [responseSize, logSize] = queue.answerSizes();
  const std::string response(responseSize, 'r');
  const std::string line(logSize, 'l');
  const fs::path claimed = queue.home.queue("claimed") / "hostile.json";
  const fs::path failed = queue.home.queue("failed") / "hostile.json";
  const fs::path log = queue.home.bridge() / "delivery.log.floor";
  for (auto _ : state) {
    state.PauseTiming();
    queue.drop();
    fs::remove(log);
    state.ResumeTiming();
    ::rename(queue.queued.c_str(), claimed.c_str());
    fsyncFolders({queue.home.queue("claimed"), queue.home.queue("requests")});
    const int in = ::open(claimed.c_str(), O_RDONLY | O_CLOEXEC);
    std::string contents(kLargestRequest + 1, '\0');
    benchmark::DoNotOptimize(::read(in, contents.data(), contents.size()));
    ::close(in);
    writeAndRename(queue.home.queue("responses") / "hostile.json", response);
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    benchmark::DoNotOptimize(::write(out, line.data(), line.size()));
    ::close(out);
    ::rename(claimed.c_str(), failed.c_str());
  }
  fake_reaper::Host::instance().reset();
}
BENCHMARK_CAPTURE(BM_PollHostileRequestFloor, quotes, Hostile::quotes)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequestFloor, nearMissKeys, Hostile::nearMissKeys)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequestFloor, escapes, Hostile::escapes)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_PollHostileRequestFloor, controlBytes, Hostile::controlBytes)
    ->Unit(benchmark::kMillisecond);

// 600 requests queued while "completed" cannot be examined (a link to itself): none can be judged
// a duplicate or not, so none may be carried out. Polls come 50 ms apart on the steady clock.
void queueBehindLoopingArchive(const ScratchHome& home, int64_t count) {
  for (const char* name : {"requests", "claimed", "responses", "failed"})
    fs::create_directories(home.queue(name));
  fs::create_directory_symlink("completed", home.queue("completed"));
  for (int64_t i = 0; i < count; ++i)
    writeFile(home.queue("requests") / ("r" + std::to_string(i) + ".json"), kRequest);
}

void BM_PollBehindUnexaminableArchive(benchmark::State& state) {
  ScratchHome home;
  queueBehindLoopingArchive(home, state.range(0));
  WorstPoll worst;
  SteadyClock::time_point now{};
  for (auto _ : state) {
    now += std::chrono::milliseconds(50);
    worst.time(now);
  }
  worst.report(state);
}
BENCHMARK(BM_PollBehindUnexaminableArchive)->Arg(600)->Unit(benchmark::kMillisecond);

// The least such a poll must do: list the queue once and learn that the archive cannot be
// examined.
void BM_PollBehindUnexaminableArchiveFloor(benchmark::State& state) {
  ScratchHome home;
  queueBehindLoopingArchive(home, state.range(0));
  const std::string folder = home.queue("requests").string();
  for (auto _ : state) {
    const std::string smallest = smallestListedName(folder);
    struct stat status;
    benchmark::DoNotOptimize(::stat((home.queue("completed") / smallest).c_str(), &status));
  }
}
BENCHMARK(BM_PollBehindUnexaminableArchiveFloor)->Arg(600)->Unit(benchmark::kMillisecond);

// The claim made durable: the rename into "claimed", then both folders flushed to disk, against
// the plain rename it was before and the same rename and two fsyncs made with raw system calls.
// Each claimed request goes back to the queue between iterations, so every flush has a change
// to commit. Meaningful on a disk-backed file system (tmpfs flushes nothing).
struct ClaimFolders {
  ScratchHome home;
  fs::path requests = home.queue("requests"), claimed = home.queue("claimed");
  fs::path queued = requests / "r.json", taken = claimed / "r.json";
  ClaimFolders() {
    fs::create_directories(requests);
    fs::create_directories(claimed);
    writeFile(queued, kRequest);
  }
  void requeue() { ::rename(taken.c_str(), queued.c_str()); }
};

void BM_DurableClaim(benchmark::State& state) {
  ClaimFolders folders;
  for (auto _ : state) {
    state.PauseTiming();
    folders.requeue();
    state.ResumeTiming();
    std::error_code error;
    fs::rename(folders.queued, folders.taken, error);
    quillmere::flushFolders({folders.claimed, folders.requests});
  }
}
BENCHMARK(BM_DurableClaim)->Unit(benchmark::kMicrosecond);

void BM_DurableClaimFloor(benchmark::State& state) {
  ClaimFolders folders;
  for (auto _ : state) {
    state.PauseTiming();
    folders.requeue();
    state.ResumeTiming();
    ::rename(folders.queued.c_str(), folders.taken.c_str());
    fsyncFolders({folders.claimed, folders.requests});
  }
}
BENCHMARK(BM_DurableClaimFloor)->Unit(benchmark::kMicrosecond);

// What the claim cost before it was made durable.
void BM_ClaimRenameFloor(benchmark::State& state) {
  ClaimFolders folders;
  for (auto _ : state) {
    state.PauseTiming();
    folders.requeue();
    state.ResumeTiming();
    ::rename(folders.queued.c_str(), folders.taken.c_str());
  }
}
BENCHMARK(BM_ClaimRenameFloor)->Unit(benchmark::kMicrosecond);

}  // namespace
