#pragma once

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

// Appends one line to delivery.log in the bridge folder; without that folder there is no log,
// and a line that cannot be written is lost silently.
void appendDeliveryLog(const SpotRequest& request, const SpotResult& result);

// Rewrites bridge_state.json; a heartbeat that cannot be written is written again next second.
void writeHeartbeat();

}  // namespace quillmere
