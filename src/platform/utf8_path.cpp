#include "platform/utf8_path.h"

#include <cstdint>
#include <cstdlib>

#include "platform/utf8.h"

namespace fs = std::filesystem;

namespace quillmere {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// How many bytes a sequence led by `lead` has; 0 for a byte that leads none.
std::size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

// The smallest value of each length; a smaller one is an overlong form.
constexpr std::uint32_t kSmallestOfLength[] = {0, 0, 0x80, 0x800, 0x10000};

// The code point of the sequence starting at `at` and its length, or a length of 0 when no
// well-formed sequence starts there. Surrogates are accepted in their three-byte form.
std::uint32_t decodeOne(const std::string& bytes, std::size_t at, std::size_t& length) {
  const auto lead = static_cast<unsigned char>(bytes[at]);
  const std::size_t size = sequenceLength(lead);
  length = 0;
  if (size == 0 || bytes.size() - at < size) return 0;
  // The lead byte carries the top 7, 5, 4 or 3 bits.
  std::uint32_t value = size == 1 ? lead : lead & (0x7F >> size);
  for (std::size_t i = 1; i < size; ++i) {
    const auto next = static_cast<unsigned char>(bytes[at + i]);
    if (!isContinuation(next)) return 0;
    value = (value << 6) | (next & 0x3F);
  }
  if (value < kSmallestOfLength[size] || value > 0x10FFFF) return 0;
  length = size;
  return value;
}

}  // namespace

std::u16string utf16FromUtf8(const std::string& bytes) {
  std::u16string units;
  units.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t length = 0;
    const std::uint32_t value = decodeOne(bytes, at, length);
    if (length == 0) {
      units += kReplacement;
      ++at;
      continue;
    }
    at += length;
    if (value < 0x10000) {
      units += static_cast<char16_t>(value);
    } else {
      units += static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
    }
  }
  return units;
}

std::string utf8FromUtf16(const std::u16string& units) {
  std::string bytes;
  bytes.reserve(units.size());
  for (std::size_t at = 0; at < units.size(); ++at) {
    const std::uint32_t unit = units[at];
    if (isHighSurrogate(unit) && at + 1 < units.size() && isLowSurrogate(units[at + 1])) {
      appendUtf8(bytes, combineSurrogates(unit, units[at + 1]));
      ++at;
    } else {
      appendUtf8(bytes, unit);
    }
  }
  return bytes;
}

#if defined(_WIN32)

// The standard conversions (u8path, u8string) throw on bytes that are not UTF-8 and on unpaired
// surrogates; a request may carry the first and a folder may hold the second.
fs::path pathFromUtf8(const std::string& bytes) {
  const std::u16string units = utf16FromUtf8(bytes);
  return fs::path(std::wstring(units.begin(), units.end()));
}

std::string utf8FromPath(const fs::path& path) {
  const std::wstring& native = path.native();
  return utf8FromUtf16(std::u16string(native.begin(), native.end()));
}

// The narrow environment is in the ANSI code page, which cannot hold every letter. HOME is rarely
// set here; USERPROFILE is the home every program on the system finds.
fs::path homeDirectory() {
  for (const wchar_t* name : {L"HOME", L"USERPROFILE"}) {
    const wchar_t* home = _wgetenv(name);
    if (home != nullptr && *home != L'\0') return fs::path(home);
  }
  return {};
}

#else

fs::path pathFromUtf8(const std::string& bytes) {
  return fs::path(bytes);
}

std::string utf8FromPath(const fs::path& path) {
  return path.native();
}

fs::path homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return {};
  return fs::path(home);
}

#endif

}  // namespace quillmere
