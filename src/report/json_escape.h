#pragma once

#include <string>

namespace quillmere {

// The one escaper for every string the extension writes into JSON.
std::string jsonEscape(const std::string& text);

// The same, appended to `out`.
void appendJsonEscaped(std::string& out, const std::string& text);

}  // namespace quillmere
