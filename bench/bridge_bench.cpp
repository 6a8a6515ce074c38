// The timer runs on the host's UI thread, so every job it paces must stay far below a frame.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

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

 private:
  fs::path root_;
};

void BM_ParseRequest(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quillmere::parseRequest(kRequest));
}
BENCHMARK(BM_ParseRequest);

void BM_ResponseJson(benchmark::State& state) {
  const quillmere::SpotRequest request = *quillmere::parseRequest(kRequest);
  quillmere::SpotResult result;
  result.ok = true;
  result.message = "Spotted to selected REAPER track";
  result.position_seconds = 12.5;
  result.output_path = request.source_path;
  for (auto _ : state) benchmark::DoNotOptimize(quillmere::responseJson(request, result));
}
BENCHMARK(BM_ResponseJson);

// A poll that finds only files still being written: the cost of listing a backlog of that size.
void BM_PollOverWaitingFiles(benchmark::State& state) {
  ScratchHome home;
  const fs::path requests = home.bridge() / "requests";
  fs::create_directories(requests);
  for (int64_t i = 0; i < state.range(0); ++i) {
    std::ofstream(requests / ("r" + std::to_string(i) + ".json.partial")) << kRequest;
  }
  for (auto _ : state) quillmere::processOneRequest();
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_PollOverWaitingFiles)->Range(8, 8192)->Complexity();

// One whole request: claim, spot into the stand-in project, response, log line, archive.
void BM_OneRequestEndToEnd(benchmark::State& state) {
  ScratchHome home;
  fake_reaper::Host& host = fake_reaper::Host::instance();
  host.reset();
  host.addTrack(true);
  quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc);
  for (const char* name : {"requests", "claimed", "responses", "completed", "failed"}) {
    fs::create_directories(home.bridge() / name);
  }
  const fs::path tone = home.bridge() / "tone.wav";
  fake_reaper::writeTestTone(tone.string(), 2.0);
  const std::string document = R"({"version":3,"command":"spot","request_id":"r",)"
                               R"("project_item_id":1,"source_path":")" +
                               tone.string() + "\"}";
  std::int64_t serial = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::ofstream(home.bridge() / "requests" / (std::to_string(++serial) + ".json")) << document;
    state.ResumeTiming();
    quillmere::processOneRequest();
  }
  host.reset();
}
BENCHMARK(BM_OneRequestEndToEnd);

void BM_Heartbeat(benchmark::State& state) {
  ScratchHome home;
  fake_reaper::Host::instance().reset();
  fake_reaper::Host::instance().addTrack(true);
  quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc);
  for (auto _ : state) quillmere::writeHeartbeat();
}
BENCHMARK(BM_Heartbeat);

}  // namespace
