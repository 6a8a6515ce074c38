#pragma once

#include <cstdint>
#include <string>

namespace quillmere {

struct SpotResult {
  bool ok = false;
  std::string message;
  std::int32_t track_index = 0;
  double position_seconds = 0.0;
  std::string output_path;
};

}  // namespace quillmere
