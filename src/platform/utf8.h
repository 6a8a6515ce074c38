// The pieces of UTF-8 and UTF-16 that the request reader and the path seam both need.
#pragma once

#include <cstdint>
#include <string>

namespace quillmere {

inline bool isHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

inline bool isLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The code point a surrogate pair stands for.
inline std::uint32_t combineSurrogates(std::uint32_t high, std::uint32_t low) {
  return ((high - 0xD800) << 10) + 0x10000 + (low - 0xDC00);
}

// Appends the UTF-8 form of one code point; surrogates take the three-byte form, and a value
// above 0x10FFFF is dropped.
void appendUtf8(std::string& out, std::uint32_t cp);

}  // namespace quillmere
