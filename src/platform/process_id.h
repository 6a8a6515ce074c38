#pragma once

#include <cstdint>

namespace quillmere {

// This process's id as the system numbers it.
std::uint64_t currentProcessId();

}  // namespace quillmere
