// What the stand-in noted of the extension's calls, and the faults it was told to inject.
#pragma once

#include <chrono>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace fake_reaper {

struct Call {
  std::string name;  // the host function's name
  std::string args;  // its arguments, rendered for reading ("P_SOURCE", "D_LENGTH=20", ...)
  std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now();  // when it came
};

struct CallRecord {
  std::vector<Call> calls;
  std::vector<std::string> violations;                       // host rules broken, in words
  std::vector<std::pair<std::string, void*>> registrations;  // every Register call, in order
  void (*timer)() = nullptr;  // the registered "timer", until "-timer" removes it

  std::vector<std::string> callNames() const;
  std::vector<std::string> trace() const;  // "Name args" per call, or "Name" when it had none
};

// What GetMediaSourceLength reports.
enum class SourceLength { FromFile, QuarterNotes, NotANumber, Zero };

struct Faults {
  // These functions answer null, false or 0 and change nothing; a void one is only recorded. An
  // entry "Name PARAM" (e.g. "SetMediaItemInfo_Value D_LENGTH") fails that parameter alone.
  std::set<std::string> failing;
  std::set<std::string> missing;  // GetFunc answers null for these names
  // These functions raise an exception, as no real host does: for what must contain it.
  std::set<std::string> raising;
  SourceLength sourceLength = SourceLength::FromFile;
  bool takesComeWithSource = false;  // AddTakeToMediaItem gives a take that already holds one
  int registerAnswer = 1;            // what Register answers
  // EnumProjects and GetProjectPathEx fill the caller's buffer to its last byte and write no
  // terminator when their text is that long.
  bool unterminatedStrings = false;
  // How long every host function takes, as a busy host's would.
  std::chrono::microseconds callDuration{0};

  // Whether `name` (or `name` for parameter `parmname` alone) is to fail.
  bool fails(const std::string& name, const char* parmname = nullptr) const;
};

}  // namespace fake_reaper
