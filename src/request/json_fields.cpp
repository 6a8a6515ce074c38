#include "request/json_fields.h"

#include <cmath>

#include "platform/utf8.h"
#include "request/number_text.h"

namespace quillmere {

namespace {

bool isValueSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::optional<std::uint64_t> valueStart(const std::string& text, const std::string& key) {
  const std::string pattern = '"' + key + '"';
  const std::size_t match = text.find(pattern);
  if (match == std::string::npos) return std::nullopt;
  const std::size_t colon = text.find(':', match + pattern.size());
  if (colon == std::string::npos) return std::nullopt;
  std::size_t position = colon + 1;
  while (position < text.size() && isValueSpace(text[position])) ++position;
  if (position >= text.size()) return std::nullopt;
  return position;
}

std::optional<std::string> jsonString(const std::string& text, const std::string& key) {
  const std::optional<std::uint64_t> start = valueStart(text, key);
  if (!start || text[*start] != '"') return std::nullopt;
  std::string result;
  for (std::uint64_t cursor = *start + 1;; ++cursor) {
    if (cursor >= text.size()) return std::nullopt;
    const char c = text[cursor];
    if (c == '"') return result;
    if (c != '\\') {
      result += c;
      continue;
    }
    if (++cursor >= text.size()) return std::nullopt;
    switch (text[cursor]) {
      case '"':
        result += '"';
        break;
      case '\\':
        result += '\\';
        break;
      case '/':
        result += '/';
        break;
      case 'b':
        result += '\b';
        break;
      case 'f':
        result += '\f';
        break;
      case 'n':
        result += '\n';
        break;
      case 'r':
        result += '\r';
        break;
      case 't':
        result += '\t';
        break;
      case 'u': {
        const std::optional<std::uint32_t> unit = parseHex4(text, cursor + 1);
        if (!unit) return std::nullopt;
        cursor += 4;
        std::uint32_t codePoint = *unit;
        if (isHighSurrogate(codePoint) && cursor + 6 < text.size() && text[cursor + 1] == '\\' &&
            text[cursor + 2] == 'u') {
          const std::optional<std::uint32_t> low = parseHex4(text, cursor + 3);
          if (low && isLowSurrogate(*low)) {
            codePoint = combineSurrogates(codePoint, *low);
            cursor += 6;
          }
        }
        appendUtf8(result, codePoint);
        break;
      }
      default:
        return std::nullopt;
    }
  }
}

std::optional<double> jsonNumber(const std::string& text, const std::string& key) {
  const std::optional<std::uint64_t> start = valueStart(text, key);
  if (!start) return std::nullopt;
  // The conversion may run past the value into the rest of the document.
  const NumberText number = readNumber(text.data() + *start, text.data() + text.size());
  if (number.consumed == 0 || !std::isfinite(number.value)) return std::nullopt;
  return number.value;
}

std::optional<bool> jsonBool(const std::string& text, const std::string& key) {
  const std::optional<std::uint64_t> start = valueStart(text, key);
  if (!start) return std::nullopt;
  if (text.compare(*start, 4, "true") == 0) return true;
  if (text.compare(*start, 5, "false") == 0) return false;
  return std::nullopt;
}

std::optional<std::uint32_t> parseHex4(const std::string& text, std::uint64_t position) {
  if (position > text.size() || text.size() - position < 4) return std::nullopt;
  std::uint32_t value = 0;
  for (std::uint64_t i = position; i < position + 4; ++i) {
    const std::int32_t digit = hexDigit(static_cast<signed char>(text[i]));
    if (digit < 0) return std::nullopt;
    value = (value << 4) + static_cast<std::uint32_t>(digit);
  }
  return value;
}

std::int32_t hexDigit(signed char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace quillmere
