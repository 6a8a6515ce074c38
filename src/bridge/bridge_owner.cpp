#include "bridge/bridge_owner.h"

#include <string>

#include "bridge/bridge_directory.h"
#include "bridge/claim_recovery.h"
#include "platform/file_lock.h"
#include "platform/process_id.h"

namespace quillmere {

namespace {

FileLock ownerLock;
FileLock waitingMarker;

void waitForBridge() {
  if (!waitingMarker.stillAtItsPath())
    waitingMarker.tryTake(bridgeDirectory() / "bridge.waiting", FileLock::Kind::shared);
}

}  // namespace

bool ownsBridge() {
  return ownerLock.held();
}

bool takeOverBridge() {
  if (ownerLock.stillAtItsPath()) return true;
  // A lock on a file that has since been removed, with the bridge folder say, guards nothing:
  // whoever locks what stands there now owns the bridge.
  ownerLock.release();
  // A lock file that cannot even be opened (an unwritable folder, a link in its place) is no
  // licence to serve without it: the process waits and tries again, like any other waiter.
  if (ownerLock.tryTake(bridgeDirectory() / "bridge.lock", FileLock::Kind::exclusive) !=
      FileLock::Attempt::taken) {
    waitForBridge();
    return false;
  }
  waitingMarker.release();
  ownerLock.replaceContents(std::to_string(currentProcessId()) + "\n");
  try {
    failInterruptedClaims();
  } catch (...) {
    // Nothing new may be taken before the old claims are settled: the lock goes back and the
    // whole takeover is tried again later.
    ownerLock.release();
    waitForBridge();
    return false;
  }
  return true;
}

void leaveBridge() {
  ownerLock.release();
  waitingMarker.release();
}

}  // namespace quillmere
