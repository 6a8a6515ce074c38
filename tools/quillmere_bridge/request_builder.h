#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "request/spot_request.h"

namespace bridge_tool {

struct BuiltRequest {
  std::string document;  // empty when `problem` says why none could be made
  std::string problem;
};

// Writes the request document for every field of `settings` but its version (4 when a project is
// bound, 3 otherwise) and reads it back with the extension's own reader: the document is returned
// only when the extension would read every field exactly as set.
BuiltRequest buildSpotRequest(const quillmere::SpotRequest& settings);

// A JSON string, quotes included, whose written form can never be taken for a quoted key name.
std::string jsonStringLiteral(const std::string& value);

// A JSON number that reads back as exactly this double, in the classic locale.
std::string jsonNumberLiteral(double value);

}  // namespace bridge_tool
