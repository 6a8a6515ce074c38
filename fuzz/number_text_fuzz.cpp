// Differential: our number reader against glibc's strtod in the "C" locale, which it must match bit
// for bit, except that spelled-out infinities and NaN are not numbers to us.
#include <locale.h>
#include <stdlib.h>

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
  require(consumed == 0 || bitsOf(number.value) == bitsOf(expected));
  return 0;
}
