#include "report/json_escape.h"

namespace quillmere {

std::string jsonEscape(const std::string& text) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (byte) {
      case 0x08:
        escaped += "\\b";
        break;
      case 0x09:
        escaped += "\\t";
        break;
      case 0x0A:
        escaped += "\\n";
        break;
      case 0x0C:
        escaped += "\\f";
        break;
      case 0x0D:
        escaped += "\\r";
        break;
      case 0x22:
        escaped += "\\\"";
        break;
      case 0x5C:
        escaped += "\\\\";
        break;
      default:
        if (byte < 0x20) {
          escaped += "\\u00";
          escaped += kHexDigits[byte >> 4];
          escaped += kHexDigits[byte & 0x0F];
        } else {
          // Bytes from 0x80 up pass through untouched, so UTF-8, valid or not, is copied as is.
          escaped += c;
        }
    }
  }
  return escaped;
}

}  // namespace quillmere
