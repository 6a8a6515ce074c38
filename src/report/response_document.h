#pragma once

#include <string>

#include "report/spot_result.h"
#include "request/spot_request.h"

namespace quillmere {

std::string responseJson(const SpotRequest& request, const SpotResult& result);

}  // namespace quillmere
