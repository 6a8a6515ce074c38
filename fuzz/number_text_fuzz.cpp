// Differential: our number reader against glibc's strtod in the "C" locale, which it must match bit
// for bit, except that spelled-out infinities and NaN are not numbers to us.
#include <locale.h>
#include <stdlib.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "request/number_text.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

bool spelledOut(const std::string& text) {
  std::size_t i = text.find_first_not_of(" \t\n\v\f\r");
  if (i == std::string::npos) return false;
  if (text[i] == '+' || text[i] == '-') ++i;
  return i < text.size() && (text[i] == 'i' || text[i] == 'I' || text[i] == 'n' || text[i] == 'N');
}

std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

bool isHex(const std::string& text) {
  std::size_t i = text.find_first_not_of(" \t\n\v\f\r");
  if (i == std::string::npos) return false;
  if (text[i] == '+' || text[i] == '-') ++i;
  return i + 1 < text.size() && text[i] == '0' && (text[i + 1] == 'x' || text[i + 1] == 'X');
}

// The glibc here (2.36) rounds some hexadecimal subnormals with many digits one unit low, e.g.
// 0x18e1048e301301.8p-1075, whose exact value lies three quarters of the way up; for those the
// reference is trusted to one unit in the last place, and the unit tests pin such cases exactly.
bool agrees(const std::string& text, double ours, double reference) {
  if (bitsOf(ours) == bitsOf(reference)) return true;
  if (!isHex(text) || std::fabs(reference) >= DBL_MIN) return false;
  const std::uint64_t a = bitsOf(ours), b = bitsOf(reference);
  return (a >> 63) == (b >> 63) && (a > b ? a - b : b - a) == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  // strtod stops at the first zero byte, and so does our reader, which never takes one for part of
  // a number; the string ends the reference's text.
  const std::string text(reinterpret_cast<const char*>(data), size);
  char* end = nullptr;
  const double expected = strtod_l(text.c_str(), &end, classic);
  const std::size_t consumed = spelledOut(text) ? 0 : static_cast<std::size_t>(end - text.c_str());
  const quillmere::NumberText number =
      quillmere::readNumber(text.data(), text.data() + text.size());
  require(number.consumed == consumed);
  require(consumed == 0 || agrees(text, number.value, expected));
  return 0;
}
