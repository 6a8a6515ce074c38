#pragma once

#include <string>

namespace bridge_tool {

// What the user should do about a response's message; empty for the success message.
std::string adviceFor(const std::string& message);

}  // namespace bridge_tool
