#pragma once

#include <cstdint>

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

// The log is begun anew, its lines so far kept as "delivery.log.1", before it would grow past this.
constexpr std::uintmax_t kLargestDeliveryLog = std::uintmax_t{8} << 20;

// Appends one line to delivery.log in the bridge folder; without that folder there is no log.
// A line that cannot be written (the process's file-size limit, a link in the log's place) is
// lost silently, and one cut short by a full disk is ended by the next line's start.
void appendDeliveryLog(const SpotRequest& request, const SpotResult& result);

// Rewrites bridge_state.json; a heartbeat that cannot be written is written again next second.
void writeHeartbeat();

}  // namespace quillmere
