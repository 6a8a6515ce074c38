#include "request/spot_request.h"

#include <algorithm>

#include "request/json_fields.h"

namespace quillmere {

namespace {

// 2^63: the first double whose conversion to a signed 64-bit integer has no defined result.
constexpr double kItemIdLimit = 9223372036854775808.0;

constexpr std::size_t kMaxRequestIdLength = 128;

bool isRequestIdByte(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool isVersion(double value) {
  return value == 1.0 || value == 2.0 || value == 3.0 || value == 4.0;
}

}  // namespace

bool safeRequestId(const std::string& id) {
  return !id.empty() && id.size() <= kMaxRequestIdLength &&
         std::all_of(id.begin(), id.end(), isRequestIdByte);
}

std::optional<SpotRequest> parseRequest(const std::string& text) {
  SpotRequest request;
  const std::optional<double> version = jsonNumber(text, "version");
  const std::optional<std::string> command = jsonString(text, "command");
  const std::optional<std::string> requestId = jsonString(text, "request_id");
  const std::optional<double> itemId = jsonNumber(text, "project_item_id");
  const std::optional<std::string> sourcePath = jsonString(text, "source_path");

  if (!version || !isVersion(*version)) return std::nullopt;
  if (!command || *command != "spot") return std::nullopt;
  if (!requestId || !safeRequestId(*requestId)) return std::nullopt;
  if (!itemId || *itemId < 0.0 || *itemId >= kItemIdLimit) return std::nullopt;
  if (!sourcePath || sourcePath->empty()) return std::nullopt;

  request.version = static_cast<std::int32_t>(*version);
  request.request_id = *requestId;
  request.project_item_id = static_cast<std::int64_t>(*itemId);
  request.source_path = *sourcePath;

  request.expected_project_path = jsonString(text, "expected_project_path").value_or("");
  if (request.version == 4 && request.expected_project_path.empty()) return std::nullopt;

  request.display_name = jsonString(text, "display_name").value_or("Quillmere");
  request.gain_db = std::clamp(jsonNumber(text, "gain_db").value_or(0.0), -60.0, 12.0);
  request.playback_rate = std::clamp(jsonNumber(text, "playback_rate").value_or(1.0), 0.5, 2.0);
  request.full_handles = jsonBool(text, "full_handles").value_or(false);
  request.source_offset_seconds =
      std::max(0.0, jsonNumber(text, "source_offset_seconds").value_or(0.0));
  request.visible_length_seconds =
      std::max(0.0, jsonNumber(text, "visible_length_seconds").value_or(0.0));
  return request;
}

}  // namespace quillmere
