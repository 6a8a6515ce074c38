#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

struct SpotRequest {
  std::int32_t version = 0;
  std::string request_id;
  std::int64_t project_item_id = 0;
  std::string source_path;
  std::string expected_project_path;
  std::string display_name;
  double gain_db = 0.0;
  double playback_rate = 1.0;
  bool full_handles = false;
  double source_offset_seconds = 0.0;
  double visible_length_seconds = 0.0;
};

// The twelve keys a request is read by, in the order they are read.
inline constexpr std::string_view kRequestKeys[] = {"version",
                                                    "command",
                                                    "request_id",
                                                    "project_item_id",
                                                    "source_path",
                                                    "expected_project_path",
                                                    "display_name",
                                                    "gain_db",
                                                    "playback_rate",
                                                    "full_handles",
                                                    "source_offset_seconds",
                                                    "visible_length_seconds"};

// A value spelt like a key stands quoted like that key, and the lookup would take it for the key.
bool isRequestKey(std::string_view value);

std::optional<SpotRequest> parseRequest(const std::string& text);

// True when the id may stand in a file name as it is, on every platform: 1 to 128 bytes of
// [A-Za-z0-9_-], and no device name (CON, NUL, COM1, lpt9, ...).
bool safeRequestId(const std::string& id);

}  // namespace quillmere
