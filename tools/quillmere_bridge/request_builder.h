#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace bridge_tool {

struct SpotSettings {
  std::string requestId;
  std::int64_t projectItemId = 0;
  std::string sourcePath;
  std::string expectedProjectPath;  // empty: any project
  std::string displayName;
  double gainDb = 0.0;
  double playbackRate = 1.0;
  bool fullHandles = false;
  double sourceOffsetSeconds = 0.0;
  double visibleLengthSeconds = 0.0;
};

struct BuiltRequest {
  std::string document;  // empty when `problem` says why none could be made
  std::string problem;
};

// Writes the request document and reads it back with the extension's own reader: the document is
// returned only when the extension would read every field exactly as set.
BuiltRequest buildSpotRequest(const SpotSettings& settings);

// A JSON string, quotes included, whose written form can never be taken for a quoted key name.
std::string jsonStringLiteral(const std::string& value);

// A JSON number that reads back as exactly this double, in the classic locale.
std::string jsonNumberLiteral(double value);

}  // namespace bridge_tool
