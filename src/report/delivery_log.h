#pragma once

#include <string>

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

// One line of the delivery log, stamped with the wall clock, ending in a line feed.
std::string deliveryLogLine(const SpotRequest& request, const SpotResult& result);

}  // namespace quillmere
