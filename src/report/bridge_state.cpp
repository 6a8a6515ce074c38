#include "report/bridge_state.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iomanip>
#include <locale>
#include <sstream>

#include "host/host_api.h"
#include "report/json_escape.h"

namespace quillmere {

namespace {

constexpr const char* kExtensionVersion = "1.2.0";
constexpr int kMediaPathBufferSize = 4096;

}  // namespace

std::string bridgeStateJson() {
  char mediaPathBuffer[kMediaPathBufferSize] = {};
  GetProjectPathEx(nullptr, mediaPathBuffer, kMediaPathBufferSize);
  // Bounded by the buffer, in case the host filled it to the last byte without a terminator.
  const std::string mediaPath(
      mediaPathBuffer, std::find(mediaPathBuffer, mediaPathBuffer + kMediaPathBufferSize, '\0'));

  const std::int64_t timestampMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count();

  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << "{\"version\":2,\"mode\":\"native_extension\","
      << "\"extension_version\":\"" << kExtensionVersion << "\","
      << "\"timestamp_ms\":" << timestampMs << ",";
  // Separate statements keep the host's calls in their fixed order: track count, then cursor.
  out << "\"selected_tracks\":" << CountSelectedTracks(nullptr) << ",";
  out << "\"cursor\":" << std::fixed << std::setprecision(9) << GetCursorPositionEx(nullptr) << ",";
  out << "\"project_media_path\":\"" << jsonEscape(mediaPath) << "\"}\n";
  return out.str();
}

}  // namespace quillmere
