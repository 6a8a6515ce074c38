// Reads a number as the C library's strtod reads it in the "C" locale, without the C library: the
// same text gives the same double, bit for bit, on every platform and under every locale.
#pragma once

#include <cstddef>

namespace quillmere {

struct NumberText {
  double value;
  std::size_t consumed;
};

// Leading white space, an optional sign, then a decimal or a hexadecimal number, correctly rounded
// (ties to even). Spelled-out infinities and NaN are not numbers here. Nothing read gives
// consumed 0; a value beyond the double range gives an infinity, a tiny one zero or a subnormal.
NumberText readNumber(const char* begin, const char* end);

}  // namespace quillmere
