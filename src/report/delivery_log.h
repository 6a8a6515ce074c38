#pragma once

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

void appendDeliveryLog(const SpotRequest& request, const SpotResult& result);

}  // namespace quillmere
