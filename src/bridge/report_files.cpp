#include "bridge/report_files.h"

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "platform/nonblocking_file.h"
#include "report/bridge_state.h"
#include "report/delivery_log.h"

namespace quillmere {

void appendDeliveryLog(const SpotRequest& request, const SpotResult& result) {
  const std::string line = deliveryLogLine(request, result);
  // Opening creates the log but never its folder: without a bridge folder there is no log. A log
  // that is not a regular file (a FIFO nobody reads) is refused at once rather than waited on.
  NonblockingFile out(bridgeDirectory() / "delivery.log", NonblockingFile::Mode::append);
  out.writeAll(line.data(), line.size());
}

void writeHeartbeat() {
  writeAtomic(bridgeDirectory() / "bridge_state.json", bridgeStateJson());
}

}  // namespace quillmere
