#pragma once

namespace quillmere {

// Whether this process serves the bridge. One process at a time does: the one holding the lock on
// "bridge.lock" in the bridge folder, which the system releases when the process ends.
bool ownsBridge();

// Tries once to become the bridge's owner, unless this process already is and its lock file is
// still in place (it has to try again when it is not). With the lock taken,
// bridge.lock is made to hold this process's id, the waiting marker is given up, and the requests
// that an earlier owner left in "claimed" are failed before anything new is taken. Otherwise the
// process waits, holding a shared lock on "bridge.waiting" that shows others it does. True when
// this process owns the bridge now.
bool takeOverBridge();

// Gives the bridge up, owned or waited for.
void leaveBridge();

}  // namespace quillmere
