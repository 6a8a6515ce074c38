#include "request/spot_request.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

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

char upperAscii(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// Windows opens these names, in any letter case, as devices wherever they stand in a path, so a
// response named after one would never reach a file.
bool isDeviceName(const std::string& id) {
  if (id.size() != 3 && id.size() != 4) return false;
  std::string name;
  std::transform(id.begin(), id.end(), std::back_inserter(name), upperAscii);
  if (name.size() == 3) return name == "CON" || name == "PRN" || name == "AUX" || name == "NUL";
  const std::string_view prefix(name.data(), 3);
  return (prefix == "COM" || prefix == "LPT") && name[3] >= '0' && name[3] <= '9';
}

bool isVersion(double value) {
  return value == 1.0 || value == 2.0 || value == 3.0 || value == 4.0;
}

}  // namespace

bool isRequestKey(std::string_view value) {
  return std::find(std::begin(kRequestKeys), std::end(kRequestKeys), value) !=
         std::end(kRequestKeys);
}

bool safeRequestId(const std::string& id) {
  return !id.empty() && id.size() <= kMaxRequestIdLength &&
         std::all_of(id.begin(), id.end(), isRequestIdByte) && !isDeviceName(id);
}

std::optional<SpotRequest> parseRequest(const std::string& text) {
  const JsonFields fields(text, kRequestKeys);
  const std::optional<double> version = fields.number("version");
  const std::optional<std::string> command = fields.string("command");
  std::optional<std::string> requestId = fields.string("request_id");
  const std::optional<double> itemId = fields.number("project_item_id");
  std::optional<std::string> sourcePath = fields.string("source_path");

  if (!version || !isVersion(*version)) return std::nullopt;
  if (!command || *command != "spot") return std::nullopt;
  if (!requestId || !safeRequestId(*requestId) || isRequestKey(*requestId)) return std::nullopt;
  if (!itemId || *itemId < 0.0 || *itemId >= kItemIdLimit) return std::nullopt;
  if (!sourcePath || sourcePath->empty()) return std::nullopt;

  SpotRequest request;
  request.version = static_cast<std::int32_t>(*version);
  request.request_id = std::move(*requestId);
  request.project_item_id = static_cast<std::int64_t>(*itemId);
  request.source_path = std::move(*sourcePath);

  request.expected_project_path = fields.string("expected_project_path").value_or("");
  if (request.version == 4 && request.expected_project_path.empty()) return std::nullopt;

  request.display_name = fields.string("display_name").value_or("Quillmere");
  request.gain_db = std::clamp(fields.number("gain_db").value_or(0.0), -60.0, 12.0);
  request.playback_rate = std::clamp(fields.number("playback_rate").value_or(1.0), 0.5, 2.0);
  request.full_handles = fields.boolean("full_handles").value_or(false);
  request.source_offset_seconds =
      std::max(0.0, fields.number("source_offset_seconds").value_or(0.0));
  request.visible_length_seconds =
      std::max(0.0, fields.number("visible_length_seconds").value_or(0.0));
  return request;
}

}  // namespace quillmere
