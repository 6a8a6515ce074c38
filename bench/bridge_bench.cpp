// The timer runs on the host's UI thread, so every job it paces must stay far below a frame. Each
// benchmark runs beside its floor: the plainest code that does the same file-system work, so the
// ratio of the two is what the bridge adds.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "bridge/file_primitives.h"
#include "bridge/report_files.h"
#include "bridge/request_cycle.h"
#include "fake_reaper/fake_reaper.h"
#include "host/host_api.h"
#include "report/response_document.h"
#include "request/spot_request.h"

namespace fs = std::filesystem;

namespace {

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
  for (auto _ : state) quillmere::processOneRequest(std::chrono::steady_clock::now());
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_PollOverBacklog)->Arg(1000)->Arg(10000);

void BM_PollOverBacklogFloor(benchmark::State& state) {
  ScratchHome home;
  queueBacklog(home, state.range(0));
  const std::string folder = home.queue("requests").string();
  for (auto _ : state) {
    std::string smallest;
    DIR* listing = ::opendir(folder.c_str());
    while (const dirent* entry = ::readdir(listing)) {
      if (entry->d_name[0] == '.') continue;
      if (smallest.empty() || std::strcmp(entry->d_name, smallest.c_str()) < 0)
        smallest = entry->d_name;
    }
    ::closedir(listing);
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
    quillmere::processOneRequest(std::chrono::steady_clock::now());
  }
  host.reset();
}
BENCHMARK(BM_OneRequestEndToEnd);

// The same files moved, read, written and appended with nothing decided in between.
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
    benchmark::DoNotOptimize(plainRead(claimed));
    writeAndRename(run.home.queue("responses") / "r.json", std::string(220, 'r'));
    const int descriptor = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    benchmark::DoNotOptimize(::write(descriptor, line.data(), line.size()));
    ::close(descriptor);
    ::rename(claimed.c_str(), (run.home.queue("completed") / name).c_str());
  }
}
BENCHMARK(BM_OneRequestEndToEndFloor);

}  // namespace
