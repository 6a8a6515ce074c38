#pragma once

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

SpotResult spot(const SpotRequest& request);

// The answer to a request whose source file is not there; also given when the file system
// cannot tell, which `spot` leaves to its caller by throwing.
SpotResult sourceMissingResult(const SpotRequest& request);

}  // namespace quillmere
