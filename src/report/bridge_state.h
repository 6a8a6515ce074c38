#pragma once

#include <string>

namespace quillmere {

// The heartbeat document from the active project and the wall clock; calls bound host functions
// in a fixed order: media path, then track count, then cursor.
std::string bridgeStateJson();

}  // namespace quillmere
