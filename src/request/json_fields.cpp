#include "request/json_fields.h"

#include <cmath>
#include <cstdint>

#include "platform/utf8.h"
#include "request/number_text.h"

namespace quillmere {

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

bool isValueSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::int32_t hexDigit(signed char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::uint32_t> parseHex4(std::string_view text, std::size_t position) {
  if (position > text.size() || text.size() - position < 4) return std::nullopt;
  std::uint32_t value = 0;
  for (std::size_t i = position; i < position + 4; ++i) {
    const std::int32_t digit = hexDigit(static_cast<signed char>(text[i]));
    if (digit < 0) return std::nullopt;
    value = (value << 4) + static_cast<std::uint32_t>(digit);
  }
  return value;
}

}  // namespace

JsonFields::JsonFields(std::string_view text, const std::string_view* keys, std::size_t count)
    : text_(text) {
  // Bit n set: some key is n bytes long. Most quoted stretches are then passed over at one test.
  std::uint64_t lengths = 0;
  for (std::size_t i = 0; i < count; ++i) {
    keys_.emplace_back(keys[i], kNowhere);
    if (keys[i].size() < 64) lengths |= std::uint64_t{1} << keys[i].size();
  }
  // A key without quotes in it stands quoted exactly where the bytes between two quotes that
  // follow each other are the key, so one walk from quote to quote finds every first place.
  std::size_t missing = keys_.size();
  std::size_t open = text_.find('"');
  while (missing > 0 && open != kNowhere) {
    std::size_t close = open + 1;
    while (close < text_.size() && text_[close] != '"') ++close;
    if (close == text_.size()) break;
    const std::size_t length = close - open - 1;
    if (length < 64 && (lengths >> length & 1)) {
      const std::string_view between = text_.substr(open + 1, length);
      for (auto& [key, quote] : keys_) {
        if (quote == kNowhere && key == between) {
          quote = open;
          --missing;
        }
      }
    }
    open = close;
  }
}

std::optional<std::size_t> JsonFields::valueStart(std::string_view key) const {
  for (const auto& [known, quote] : keys_) {
    if (known != key) continue;
    if (quote == kNowhere) return std::nullopt;
    const std::size_t colon = text_.find(':', quote + key.size() + 2);
    if (colon == kNowhere) return std::nullopt;
    std::size_t position = colon + 1;
    while (position < text_.size() && isValueSpace(text_[position])) ++position;
    if (position >= text_.size()) return std::nullopt;
    return position;
  }
  return std::nullopt;
}

std::optional<std::string> JsonFields::string(std::string_view key) const {
  const std::optional<std::size_t> start = valueStart(key);
  if (!start || text_[*start] != '"') return std::nullopt;
  std::string result;
  for (std::size_t cursor = *start + 1;; ++cursor) {
    std::size_t plain = cursor;
    while (plain < text_.size() && text_[plain] != '"' && text_[plain] != '\\') ++plain;
    if (plain > cursor) result.append(text_, cursor, plain - cursor);
    cursor = plain;
    if (cursor >= text_.size()) return std::nullopt;
    if (text_[cursor] == '"') return result;
    if (++cursor >= text_.size()) return std::nullopt;
    switch (text_[cursor]) {
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
        const std::optional<std::uint32_t> unit = parseHex4(text_, cursor + 1);
        if (!unit) return std::nullopt;
        cursor += 4;
        std::uint32_t codePoint = *unit;
        if (isHighSurrogate(codePoint) && cursor + 6 < text_.size() && text_[cursor + 1] == '\\' &&
            text_[cursor + 2] == 'u') {
          const std::optional<std::uint32_t> low = parseHex4(text_, cursor + 3);
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

std::optional<double> JsonFields::number(std::string_view key) const {
  const std::optional<std::size_t> start = valueStart(key);
  if (!start) return std::nullopt;
  // The conversion may run past the value into the rest of the document.
  const NumberText number = readNumber(text_.data() + *start, text_.data() + text_.size());
  if (number.consumed == 0 || !std::isfinite(number.value)) return std::nullopt;
  return number.value;
}

std::optional<bool> JsonFields::boolean(std::string_view key) const {
  const std::optional<std::size_t> start = valueStart(key);
  if (!start) return std::nullopt;
  if (text_.compare(*start, 4, "true") == 0) return true;
  if (text_.compare(*start, 5, "false") == 0) return false;
  return std::nullopt;
}

}  // namespace quillmere
