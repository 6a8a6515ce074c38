#include "report/json_escape.h"

#include <cstring>

namespace quillmere {

namespace {

// Every byte's escaped form, padded to eight bytes so that each is copied whole.
struct EscapeTable {
  char text[256][8] = {};
  unsigned char length[256] = {};

  EscapeTable() {
    static constexpr char kHexDigits[] = "0123456789abcdef";
    for (int byte = 0; byte < 256; ++byte) {
      char* form = text[byte];
      char letter = 0;
      switch (byte) {
        case 0x08:
          letter = 'b';
          break;
        case 0x09:
          letter = 't';
          break;
        case 0x0A:
          letter = 'n';
          break;
        case 0x0C:
          letter = 'f';
          break;
        case 0x0D:
          letter = 'r';
          break;
        case 0x22:
          letter = '"';
          break;
        case 0x5C:
          letter = '\\';
          break;
      }
      if (letter != 0) {
        form[0] = '\\';
        form[1] = letter;
        length[byte] = 2;
      } else if (byte < 0x20) {
        std::memcpy(form, "\\u00", 4);
        form[4] = kHexDigits[byte >> 4];
        form[5] = kHexDigits[byte & 0x0F];
        length[byte] = 6;
      } else {
        // Bytes from 0x80 up pass through untouched, so UTF-8, valid or not, is copied as is.
        form[0] = static_cast<char>(byte);
        length[byte] = 1;
      }
    }
  }
};

const EscapeTable& escapes() {
  static const EscapeTable table;
  return table;
}

}  // namespace

std::string jsonEscape(const std::string& text) {
  std::string escaped;
  appendJsonEscaped(escaped, text);
  return escaped;
}

void appendJsonEscaped(std::string& out, const std::string& text) {
  const EscapeTable& table = escapes();
  // Sized once: a text of control bytes grows sixfold, and growing it piece by piece costs many
  // times the copy on the host's UI thread.
  std::size_t length = 0;
  for (const char c : text) length += table.length[static_cast<unsigned char>(c)];
  const std::size_t start = out.size();
  constexpr std::size_t kSlack = sizeof table.text[0] - 1;  // the last form is copied whole too
  // With room for the few bytes that close a document after its last string.
  out.reserve(start + length + kSlack + 16);
  out.resize(start + length + kSlack);
  char* at = &out[start];
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    std::memcpy(at, table.text[byte], sizeof table.text[byte]);
    at += table.length[byte];
  }
  out.resize(start + length);
}

}  // namespace quillmere
