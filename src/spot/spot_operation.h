#pragma once

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

SpotResult spot(const SpotRequest& request);

}  // namespace quillmere
