#pragma once

namespace quillmere {

// Fails every request left in "claimed" by an earlier run; it is never carried out again.
void failInterruptedClaims();

}  // namespace quillmere
