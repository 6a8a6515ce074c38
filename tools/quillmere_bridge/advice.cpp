#include "quillmere_bridge/advice.h"

#include <utility>

namespace bridge_tool {

namespace {

const std::pair<const char*, const char*> kAdvice[] = {
    {"Spotted to selected REAPER track", ""},
    {"REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp",
     "Open the project the request was made for in REAPER (or bind the project open in REAPER "
     "again), then send the request again."},
    {"Quillmere source file is missing",
     "Check that the audio file exists at that absolute path and that REAPER may read it, then "
     "send the request again."},
    {"Select a REAPER track first", "Select a track in REAPER, then send the request again."},
    {"REAPER selected track is unavailable",
     "Select the track again in REAPER, then send the request again."},
    {"REAPER cannot open the Quillmere audio file",
     "REAPER cannot read this file: check that it is a complete audio file in a format REAPER "
     "knows (WAV always works)."},
    {"Quillmere audio duration is invalid",
     "The file has no length in seconds that REAPER can use (empty or damaged); export it again."},
    {"Quillmere visible handle range is invalid",
     "The offset lies at or beyond the end of the file, or the visible length is 0: ask for a "
     "range inside the file."},
    {"Cannot create a REAPER media item",
     "REAPER refused to add an item to the track (is it locked?); nothing was placed. Unlock it "
     "and send the request again."},
    {"Cannot create a REAPER media take",
     "REAPER refused to add a take; nothing was placed. Send the request again, and report it if "
     "it repeats."},
    {"Cannot configure the REAPER media item",
     "REAPER refused a position, length, offset or rate; nothing was placed. Send the request "
     "again, and report it if it repeats."},
    {"Cannot configure the REAPER take gain",
     "REAPER refused the gain; nothing was placed. Send the request again, and report it if it "
     "repeats."},
    {"Cannot name the REAPER media take",
     "REAPER refused the take name; nothing was placed. Send the request again, and report it if "
     "it repeats."},
    {"Invalid Quillmere spot request",
     "The extension could not read the document: fix the producer (see docs/protocol.md: "
     "required keys, a safe request_id, plain JSON numbers, at most 1 MiB)."},
    {"Previous Quillmere delivery was interrupted; not retried to avoid a duplicate",
     "REAPER stopped while this request was being carried out: look in REAPER whether the item "
     "is there, and send the request again only if it is not."},
};

}  // namespace

std::string adviceFor(const std::string& message) {
  for (const auto& [known, advice] : kAdvice) {
    if (message == known) return advice;
  }
  return "An unexpected error inside REAPER; nothing was placed. Send the request again, and "
         "report it if it repeats.";
}

}  // namespace bridge_tool
