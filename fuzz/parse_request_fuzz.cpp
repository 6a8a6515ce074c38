#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "request/json_fields.h"
#include "request/spot_request.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

// The request's keys and a few short ones that random bytes hit more often.
const std::vector<std::string_view> kKeys = [] {
  std::vector<std::string_view> keys(std::begin(quillmere::kRequestKeys),
                                     std::end(quillmere::kRequestKeys));
  keys.insert(keys.end(), {"", "a", "aa"});
  return keys;
}();

// The lookup as plainly written: a search for the quoted key from the start of the text.
std::optional<std::size_t> searchedValueStart(const std::string& text, std::string_view key) {
  const std::size_t match = text.find('"' + std::string(key) + '"');
  if (match == std::string::npos) return std::nullopt;
  const std::size_t colon = text.find(':', match + key.size() + 2);
  if (colon == std::string::npos) return std::nullopt;
  std::size_t position = colon + 1;
  while (position < text.size() &&
         std::string_view(" \t\r\n").find(text[position]) != std::string_view::npos)
    ++position;
  if (position >= text.size()) return std::nullopt;
  return position;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const quillmere::JsonFields fields(text, kKeys.data(), kKeys.size());
  for (const std::string_view key : kKeys)
    require(fields.valueStart(key) == searchedValueStart(text, key));

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
