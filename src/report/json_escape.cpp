#include "report/json_escape.h"

namespace quillmere {

namespace {

// The letter after the backslash for the bytes JSON escapes in two, or 0.
char shortEscape(unsigned char byte) {
  switch (byte) {
    case 0x08:
      return 'b';
    case 0x09:
      return 't';
    case 0x0A:
      return 'n';
    case 0x0C:
      return 'f';
    case 0x0D:
      return 'r';
    case 0x22:
      return '"';
    case 0x5C:
      return '\\';
    default:
      return 0;
  }
}

std::size_t escapedLength(unsigned char byte) {
  if (shortEscape(byte) != 0) return 2;
  return byte < 0x20 ? 6 : 1;
}

}  // namespace

std::string jsonEscape(const std::string& text) {
  std::string escaped;
  appendJsonEscaped(escaped, text);
  return escaped;
}

void appendJsonEscaped(std::string& out, const std::string& text) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  // Sized once: a text of control bytes grows sixfold, and growing it piece by piece costs many
  // times the copy on the host's UI thread.
  std::size_t length = 0;
  for (const char c : text) length += escapedLength(static_cast<unsigned char>(c));
  const std::size_t start = out.size();
  // With room for the few bytes that close a document after its last string.
  out.reserve(start + length + 16);
  out.resize(start + length);
  char* at = &out[0] + start;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (const char letter = shortEscape(byte)) {
      *at++ = '\\';
      *at++ = letter;
    } else if (byte < 0x20) {
      *at++ = '\\';
      *at++ = 'u';
      *at++ = '0';
      *at++ = '0';
      *at++ = kHexDigits[byte >> 4];
      *at++ = kHexDigits[byte & 0x0F];
    } else {
      // Bytes from 0x80 up pass through untouched, so UTF-8, valid or not, is copied as is.
      *at++ = c;
    }
  }
}

}  // namespace quillmere
