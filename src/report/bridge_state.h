#pragma once

namespace quillmere {

// Rewrites bridge_state.json from the active project; calls bound host functions.
void writeHeartbeat();

}  // namespace quillmere
