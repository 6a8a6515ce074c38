#include "report/delivery_log.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <locale>

#include "bridge/bridge_directory.h"
#include "report/json_escape.h"

namespace quillmere {

void appendDeliveryLog(const SpotRequest& request, const SpotResult& result) {
  std::ofstream out;
  out.imbue(std::locale::classic());
  // Opening creates the log but never its folder: without a bridge folder there is no log.
  out.open(bridgeDirectory() / "delivery.log", std::ios::binary | std::ios::app);
  if (!out) return;

  const std::int64_t timestampMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count();
  out << "{\"timestamp_ms\":" << timestampMs << ",\"request_id\":\""
      << jsonEscape(request.request_id) << "\",\"ok\":" << (result.ok ? "true" : "false")
      << ",\"message\":\"" << jsonEscape(result.message) << "\"}\n";
}

}  // namespace quillmere
