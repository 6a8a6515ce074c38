#include "platform/utf8.h"

namespace quillmere {

void appendUtf8(std::string& out, std::uint32_t cp) {
  const auto byte = [&out](std::uint32_t value) { out += static_cast<char>(value); };
  if (cp < 0x80) {
    byte(cp);
  } else if (cp < 0x800) {
    byte(0xC0 | (cp >> 6));
    byte(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    byte(0xE0 | (cp >> 12));
    byte(0x80 | ((cp >> 6) & 0x3F));
    byte(0x80 | (cp & 0x3F));
  } else if (cp < 0x110000) {
    byte(0xF0 | (cp >> 18));
    byte(0x80 | ((cp >> 12) & 0x3F));
    byte(0x80 | ((cp >> 6) & 0x3F));
    byte(0x80 | (cp & 0x3F));
  }
}

}  // namespace quillmere
