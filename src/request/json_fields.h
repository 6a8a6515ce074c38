// Named-field lookup in raw JSON text. Deliberately textual: the first place the quoted key
// stands wins, nothing is validated, nesting is unknown.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/utf8.h"

namespace quillmere {

std::optional<std::uint64_t> valueStart(const std::string& text, const std::string& key);
std::optional<std::string> jsonString(const std::string& text, const std::string& key);
std::optional<double> jsonNumber(const std::string& text, const std::string& key);
std::optional<bool> jsonBool(const std::string& text, const std::string& key);

std::optional<std::uint32_t> parseHex4(const std::string& text, std::uint64_t position);
std::int32_t hexDigit(signed char c);

}  // namespace quillmere
