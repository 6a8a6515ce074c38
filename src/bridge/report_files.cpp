#include "bridge/report_files.h"

#include <optional>
#include <string>
#include <system_error>

#include "bridge/bridge_directory.h"
#include "bridge/file_primitives.h"
#include "platform/nonblocking_file.h"
#include "report/bridge_state.h"
#include "report/delivery_log.h"

namespace fs = std::filesystem;

namespace quillmere {

void appendDeliveryLog(const SpotRequest& request, const SpotResult& result) {
  const std::string line = deliveryLogLine(request, result);
  const fs::path log = bridgeDirectory() / "delivery.log";
  // Opening creates the log but never its folder: without a bridge folder there is no log. What
  // is not a regular file there, a FIFO nobody reads or a link to anywhere, is refused at once,
  // and the line is lost rather than written elsewhere.
  std::optional<NonblockingFile> out;
  out.emplace(log, NonblockingFile::Mode::append);
  if (!out->isOpen()) return;
  // A line cut short by a full disk must not swallow the next one.
  const auto textFor = [&line](NonblockingFile& file) {
    return file.size() > 0 && file.lastByte() != '\n' ? "\n" + line : line;
  };
  std::string text = textFor(*out);
  if (out->size() > 0 && out->size() + text.size() > kLargestDeliveryLog) {
    fs::path older = log;
    older += ".1";
    std::error_code error;
    out.reset();
    fs::rename(log, older, error);
    // A log that cannot be put aside (a reader on Windows holding it without delete sharing)
    // grows on rather than lose the line, and is put aside at a later append.
    out.emplace(log, NonblockingFile::Mode::append);
    if (!out->isOpen()) return;
    text = textFor(*out);
  }
  out->writeAll(text.data(), text.size());
}

void writeHeartbeat() {
  writeAtomic(bridgeDirectory() / "bridge_state.json", bridgeStateJson());
}

}  // namespace quillmere
