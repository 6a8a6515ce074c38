#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "request/spot_request.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::optional<quillmere::SpotRequest> request = quillmere::parseRequest(text);
  if (!request) return 0;
  require(quillmere::safeRequestId(request->request_id));
  require(request->version >= 1 && request->version <= 4);
  require(request->project_item_id >= 0);
  require(!request->source_path.empty());
  require(request->version != 4 || !request->expected_project_path.empty());
  require(request->gain_db >= -60.0 && request->gain_db <= 12.0);
  require(request->playback_rate >= 0.5 && request->playback_rate <= 2.0);
  require(std::isfinite(request->source_offset_seconds) && request->source_offset_seconds >= 0.0);
  require(std::isfinite(request->visible_length_seconds) && request->visible_length_seconds >= 0.0);
  return 0;
}
