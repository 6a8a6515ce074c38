#include "platform/process_id.h"

#ifndef _WIN32
#include <unistd.h>
#endif

#include "platform/windows_api.h"

namespace quillmere {

std::uint64_t currentProcessId() {
#ifdef _WIN32
  return ::GetCurrentProcessId();
#else
  return static_cast<std::uint64_t>(::getpid());
#endif
}

}  // namespace quillmere
