#pragma once

#include "quillmere_bridge/options.h"

namespace bridge_tool {

// Exit codes: 0 done (alive, spotted), 1 a failed response or an unreadable log, 2 bad usage or a
// request the extension would refuse, 3 no answer (not running, timed out, no bridge folder).
enum ExitCode { kDone = 0, kFailed = 1, kBadUsage = 2, kNoAnswer = 3 };

int runStatus(const Invocation& invocation);
int runSpot(const Invocation& invocation);
int runSend(const Invocation& invocation);
int runLog(const Invocation& invocation);

}  // namespace bridge_tool
