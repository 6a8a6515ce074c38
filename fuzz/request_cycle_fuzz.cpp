// One whole turn of the mailbox per input: the input is dropped as a request file into a scratch
// HOME and processOneRequest claims, reads, parses, spots (against the stand-in host, in this
// process), answers, logs and archives it. Every document written must be one line of JSON that
// carries back the request's id and one message, and the host must be left settled.
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "bridge/bridge_directory.h"
#include "bridge/request_cycle.h"
#include "fake_reaper/fake_reaper.h"
#include "host/host_api.h"
#include "request/spot_request.h"

namespace fs = std::filesystem;

namespace {

const char kInvalid[] = "Invalid Quillmere spot request";
const char* const kQueues[] = {"requests", "claimed", "responses", "completed", "failed"};
// Each input goes under one of these names, picked by its length: a safe stem, a safe stem with
// a hyphen, and two stems that cannot name a response (a space, a dot).
const char* const kFileNames[] = {"request.json", "job-7.json", "a b.json", "x.y.json"};

const std::string* currentInput = nullptr;
fs::path scratchHome;

void removeScratchHome() {
  std::error_code ignored;
  fs::current_path(scratchHome.parent_path(), ignored);
  fs::remove_all(scratchHome, ignored);
}

void require(bool condition, const char* what, const std::string& detail = "") {
  if (condition) return;
  std::fprintf(stderr, "request_cycle_fuzz: %s\n  %s\n  input: %s\n", what, detail.c_str(),
               currentInput ? currentInput->c_str() : "");
  std::abort();
}

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Bytes above 0x7F pass through the extension unvalidated (paths are bytes), and the parser wants
// UTF-8; they cannot end a string or a token, so masking them keeps the structure under test.
std::string masked(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) c = '?';
  }
  return text;
}

// The document when `text` is one JSON object on one line ending in a line feed.
nlohmann::json oneLine(const std::string& text, const char* what) {
  require(!text.empty() && text.find('\n') == text.size() - 1, what, text);
  nlohmann::json document = nlohmann::json::parse(masked(text), nullptr, false);
  require(!document.is_discarded() && document.is_object(), what, text);
  return document;
}

void emptyQueues() {
  for (const char* name : kQueues) {
    for (const auto& entry : fs::directory_iterator(quillmere::queueDirectory(name))) {
      fs::remove_all(entry.path());
    }
  }
  fs::remove(quillmere::bridgeDirectory() / "delivery.log");
}

fake_reaper::Host& freshHost() {
  fake_reaper::Host& host = fake_reaper::Host::instance();
  host.reset();
  host.addTrack(false);
  host.addTrack(true);
  host.cursor = 12.5;
  host.projectFile = "project.rpp";
  return host;
}

// The fuzzer reads its arguments after this initialisation, which changes the working folder, so
// relative corpus folders and artifact paths are made absolute first.
void absoluteArguments(int argc, char** argv) {
  static std::vector<std::string> rewritten;
  rewritten.reserve(static_cast<std::size_t>(argc));
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    for (const std::string flag : {"", "-artifact_prefix=", "-exact_artifact_path="}) {
      const bool isPath = flag.empty() ? arg[0] != '-' : arg.rfind(flag, 0) == 0;
      if (!isPath || arg.size() == flag.size()) continue;
      // fs::absolute drops a trailing separator, which an artifact prefix needs.
      const bool folder = arg.back() == '/';
      arg = flag + fs::absolute(arg.substr(flag.size())).string() + (folder ? "/" : "");
      rewritten.push_back(arg);
      argv[i] = rewritten.back().data();
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  absoluteArguments(*argc, *argv);
  // Each input costs a dozen file-system calls: a folder in memory, where there is one, keeps
  // the fuzzer's pace up.
  std::error_code error;
  const fs::path base =
      fs::is_directory("/dev/shm", error) ? "/dev/shm" : fs::temp_directory_path();
  std::string home = (base / "quillmere-cycle-fuzz-XXXXXX").string();
  require(::mkdtemp(home.data()) != nullptr, "cannot make a scratch HOME");
  ::setenv("HOME", home.c_str(), 1);
  scratchHome = home;
  std::atexit(removeScratchHome);
  // Seeds name their audio and project files relative to here.
  fs::current_path(home);
  require(fake_reaper::writeTestTone("tone.wav", 0.25, 8000), "cannot write tone.wav");
  std::ofstream("project.rpp") << "project\n";
  require(quillmere::REAPERAPI_LoadAPI(fake_reaper::getFunc) == 0, "a host function is missing");
  require(quillmere::ensureDirectories(), "cannot make the bridge folders");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  currentInput = &text;
  fake_reaper::Host& host = freshHost();
  emptyQueues();
  const fs::path name = kFileNames[size % std::size(kFileNames)];
  std::ofstream(quillmere::queueDirectory("requests") / name, std::ios::binary) << text;

  quillmere::processOneRequest(std::chrono::steady_clock::now());

  const std::optional<quillmere::SpotRequest> request = quillmere::parseRequest(text);
  std::string id = request ? request->request_id : name.stem().string();
  if (!request && !quillmere::safeRequestId(id)) id = "invalid-request";

  const fs::path responses = quillmere::queueDirectory("responses");
  require(fs::exists(responses / (id + ".json")), "no response named after the id", id);
  require(std::distance(fs::directory_iterator(responses), fs::directory_iterator()) == 1,
          "more than one response");
  const std::string responseText = readAll(responses / (id + ".json"));
  const nlohmann::json response = oneLine(responseText, "the response is not one JSON line");
  require(response["request_id"] == id, "the response carries another id", responseText);
  require(response["message"].is_string() && !response["message"].get<std::string>().empty(),
          "the response carries no message", responseText);
  require(response["ok"].is_boolean(), "the response carries no outcome", responseText);
  if (request) {
    require(response["project_item_id"] == request->project_item_id &&
                response["output_path"] == masked(request->source_path),
            "the response does not answer the request", responseText);
  } else {
    require(response["message"] == kInvalid && response["ok"] == false,
            "an unreadable request is not answered as invalid", responseText);
  }

  const std::string logText = readAll(quillmere::bridgeDirectory() / "delivery.log");
  const nlohmann::json logLine = oneLine(logText, "the log is not one JSON line");
  require(logLine["request_id"] == id && logLine["ok"] == response["ok"] &&
              logLine["message"] == response["message"],
          "the log line does not match the response", logText + responseText);

  const bool ok = response["ok"].get<bool>();
  require(fs::is_empty(quillmere::queueDirectory("requests")) &&
              fs::is_empty(quillmere::queueDirectory("claimed")) &&
              fs::exists(quillmere::queueDirectory(ok ? "completed" : "failed") / name),
          "the request is not archived where its outcome says");
  require(host.checkSettled().empty(), "the host is left unsettled",
          host.violations.empty() ? "" : host.violations.front());
  currentInput = nullptr;
  return 0;
}
