#include "bridge/report_files.h"

#include <fstream>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "report/bridge_state.h"
#include "report/delivery_log.h"

namespace quillmere {

void appendDeliveryLog(const SpotRequest& request, const SpotResult& result) {
  const std::string line = deliveryLogLine(request, result);
  // Opening creates the log but never its folder: without a bridge folder there is no log.
  std::ofstream out(bridgeDirectory() / "delivery.log", std::ios::binary | std::ios::app);
  if (!out) return;
  out.write(line.data(), static_cast<std::streamsize>(line.size()));
}

void writeHeartbeat() {
  writeAtomic(bridgeDirectory() / "bridge_state.json", bridgeStateJson());
}

}  // namespace quillmere
