#include "report/delivery_log.h"

#include <chrono>
#include <cstdint>
#include <locale>
#include <sstream>

#include "report/json_escape.h"

namespace quillmere {

std::string deliveryLogLine(const SpotRequest& request, const SpotResult& result) {
  const std::int64_t timestampMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count();
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << "{\"timestamp_ms\":" << timestampMs << ",\"request_id\":\""
      << jsonEscape(request.request_id) << "\",\"ok\":" << (result.ok ? "true" : "false")
      << ",\"message\":\"" << jsonEscape(result.message) << "\"}\n";
  return out.str();
}

}  // namespace quillmere
