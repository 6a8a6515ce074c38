#include "request/number_text.h"

#include <cfloat>
#include <cstdint>
#include <cstring>

namespace quillmere {

namespace {

using Bits = std::uint64_t;

constexpr int kMantissaBits = 52;
constexpr int kExponentBias = 1023;
constexpr int kMaxBiasedExponent = 0x7FF;
constexpr Bits kMantissaMask = (Bits{1} << kMantissaBits) - 1;
constexpr Bits kSignBit = Bits{1} << 63;
constexpr Bits kInfinityBits = Bits{kMaxBiasedExponent} << kMantissaBits;

// Any exponent beyond this already overflows or underflows whatever the digits, and adding the
// digit counts of any text that fits in memory to it cannot overflow 64 bits.
constexpr std::int64_t kExponentCap = std::int64_t{1} << 50;

double fromBits(Bits bits) {
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// `letter` is the exponent letter. Returns the end of the exponent, or `letter` itself when no
// digit follows, so that a letter without digits stays unread.
const char* readExponent(const char* letter, const char* end, std::int64_t& exponent) {
  const char* p = letter + 1;
  bool negative = false;
  if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  if (p == end || !isDigit(*p)) return letter;
  std::int64_t value = 0;
  for (; p < end && isDigit(*p); ++p)
    if (value < kExponentCap) value = value * 10 + (*p - '0');
  exponent = negative ? -value : value;
  return p;
}

// m * 2^exponent, plus a little more when `sticky`, rounded to the nearest double, ties to even.
Bits roundBinary(Bits mantissa, std::int64_t exponent, bool sticky) {
  if (mantissa == 0) return 0;
  while (!(mantissa >> 63)) {
    mantissa <<= 1;
    --exponent;
  }
  const std::int64_t top = exponent + 63;
  if (top > kExponentBias) return kInfinityBits;
  const bool subnormal = top < 1 - kExponentBias;
  const std::int64_t dropped = 63 - kMantissaBits + (subnormal ? 1 - kExponentBias - top : 0);
  if (dropped > 64) return 0;
  Bits kept = 0;
  Bits rest = mantissa;
  Bits half = Bits{1} << 63;
  if (dropped < 64) {
    kept = mantissa >> dropped;
    rest = mantissa & ((Bits{1} << dropped) - 1);
    half = Bits{1} << (dropped - 1);
  }
  if (rest > half || (rest == half && (sticky || (kept & 1)))) ++kept;
  // A subnormal rounded up to 2^52 is the smallest normal number, bit for bit.
  if (subnormal) return kept;
  Bits biased = static_cast<Bits>(top + kExponentBias);
  if (kept >> (kMantissaBits + 1)) {
    kept >>= 1;
    if (++biased >= kMaxBiasedExponent) return kInfinityBits;
  }
  return biased << kMantissaBits | (kept & kMantissaMask);
}

// A decimal number kept digit by digit, 0.d1d2d3... * 10^point, scaled by powers of two until its
// integer part is the mantissa. Only the first digits can decide the rounding: a halfway point
// between two doubles has at most 767 significant digits, so anything past the capacity only
// needs to be remembered as "a little more".
class Decimal {
 public:
  static constexpr int kCapacity = 800;

  void append(int digit) {
    if (count_ < kCapacity) {
      digits_[count_++] = static_cast<std::uint8_t>(digit);
    } else if (digit != 0) {
      truncated_ = true;
    }
  }
  void setPoint(std::int64_t point) { point_ = point; }

  Bits bits() {
    trim();
    if (count_ == 0 || point_ < -330) return 0;
    if (point_ > 310) return kInfinityBits;
    std::int64_t exponent = 0;
    while (point_ > 0) {
      const int n = stepFor(point_);
      shift(-n);
      exponent += n;
    }
    while (point_ < 0 || (point_ == 0 && digits_[0] < 5)) {
      const int n = stepFor(-point_);
      shift(n);
      exponent -= n;
    }
    // Now in [0.5, 1); a double's mantissa is in [1, 2).
    --exponent;
    if (exponent < 1 - kExponentBias) {
      const int n = static_cast<int>(1 - kExponentBias - exponent);
      shift(-n);
      exponent += n;
    }
    if (exponent + kExponentBias >= kMaxBiasedExponent) return kInfinityBits;
    shift(kMantissaBits + 1);
    Bits mantissa = roundedInteger();
    if (mantissa == Bits{2} << kMantissaBits) {
      mantissa >>= 1;
      if (++exponent + kExponentBias >= kMaxBiasedExponent) return kInfinityBits;
    }
    if (!(mantissa & (Bits{1} << kMantissaBits))) exponent = -kExponentBias;
    return static_cast<Bits>(exponent + kExponentBias) << kMantissaBits |
           (mantissa & kMantissaMask);
  }

 private:
  // Up to 60 bits at a time keeps every intermediate below 10 * 2^60 < 2^64.
  static constexpr int kMaxShift = 60;

  // A shift by about as many bits as `digits` decimal digits, at most one step, at least one bit.
  static int stepFor(std::int64_t digits) {
    if (digits == 0) return 1;
    return digits >= 19 ? kMaxShift : static_cast<int>(digits * 3322 / 1000);
  }

  void shift(int k) {
    for (; k > kMaxShift; k -= kMaxShift) shiftLeft(kMaxShift);
    for (; k < -kMaxShift; k += kMaxShift) shiftRight(kMaxShift);
    if (k > 0) shiftLeft(k);
    if (k < 0) shiftRight(-k);
  }

  void shiftLeft(int k) {
    // 2^k has this many digits (the fraction is log10(2) to five places, enough for k <= 60), so
    // the product has that many more digits than now, or one fewer.
    const int grown = ((k * 1233) >> 12) + 1;
    int read = count_;
    int write = count_ + grown;
    std::uint64_t n = 0;
    const auto put = [this, &write](std::uint64_t digit) {
      --write;
      if (write <= kCapacity) {
        digits_[write] = static_cast<std::uint8_t>(digit);
      } else if (digit != 0) {
        truncated_ = true;
      }
    };
    while (read > 0) {
      n += std::uint64_t{digits_[--read]} << k;
      put(n % 10);
      n /= 10;
    }
    for (; n > 0; n /= 10) put(n % 10);
    const int total = count_ + grown - write;
    int stored = (count_ + grown <= kCapacity + 1 ? count_ + grown : kCapacity + 1) - write;
    if (write > 0) std::memmove(digits_, digits_ + write, static_cast<std::size_t>(stored));
    if (stored > kCapacity) {
      if (digits_[kCapacity] != 0) truncated_ = true;
      stored = kCapacity;
    }
    point_ += total - count_;
    count_ = stored;
    trim();
  }

  void shiftRight(int k) {
    int read = 0;
    int write = 0;
    std::uint64_t n = 0;
    for (; (n >> k) == 0; ++read) {
      if (read >= count_) {
        if (n == 0) {
          count_ = 0;
          return;
        }
        for (; (n >> k) == 0; ++read) n *= 10;
        break;
      }
      n = n * 10 + digits_[read];
    }
    point_ -= read - 1;
    const std::uint64_t mask = (std::uint64_t{1} << k) - 1;
    for (; read < count_; ++read) {
      digits_[write++] = static_cast<std::uint8_t>(n >> k);
      n = (n & mask) * 10 + digits_[read];
    }
    while (n > 0) {
      const std::uint64_t digit = n >> k;
      n = (n & mask) * 10;
      if (write < kCapacity) {
        digits_[write++] = static_cast<std::uint8_t>(digit);
      } else if (digit != 0) {
        truncated_ = true;
      }
    }
    count_ = write;
    trim();
  }

  void trim() {
    while (count_ > 0 && digits_[count_ - 1] == 0) --count_;
    if (count_ == 0) point_ = 0;
  }

  bool roundsUpAt(std::int64_t position) const {
    if (position < 0 || position >= count_) return false;
    if (digits_[position] == 5 && position + 1 == count_) {
      if (truncated_) return true;
      return position > 0 && digits_[position - 1] % 2 != 0;
    }
    return digits_[position] >= 5;
  }

  Bits roundedInteger() const {
    if (point_ > 20) return ~Bits{0};
    Bits n = 0;
    std::int64_t i = 0;
    for (; i < point_ && i < count_; ++i) n = n * 10 + digits_[i];
    for (; i < point_; ++i) n *= 10;
    if (roundsUpAt(point_)) ++n;
    return n;
  }

  std::uint8_t digits_[kCapacity + 1];
  int count_ = 0;
  std::int64_t point_ = 0;
  bool truncated_ = false;
};

// The digits of a decimal number as written: [begin, end), with at most one point among them.
struct DecimalText {
  const char* begin;
  const char* point;
  const char* end;
  std::int64_t exponent;
};

// Exact double arithmetic on exact operands rounds once, correctly, unless intermediate results
// are kept wider (x87).
constexpr bool kDoubleArithmeticIsExact = FLT_EVAL_METHOD == 0;

bool readSmallDecimal(const char* first, const char* end, std::int64_t scale, double& value) {
  static constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  constexpr std::uint64_t kExactIntegers = std::uint64_t{1} << (kMantissaBits + 1);
  // Trailing zeros do not change 0.D * 10^scale.
  while (end[-1] == '0' || end[-1] == '.') --end;
  std::uint64_t mantissa = 0;
  int count = 0;
  for (const char* p = first; p < end; ++p) {
    if (*p == '.') continue;
    if (++count > 19) return false;
    mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
  }
  const std::int64_t exponent = scale - count;
  if (mantissa > kExactIntegers || exponent < -22 || exponent > 22 + 15) return false;
  if (exponent < 0) {
    value = static_cast<double>(mantissa) / kPowersOfTen[-exponent];
    return true;
  }
  std::int64_t remaining = exponent;
  for (; remaining > 22; --remaining) {
    mantissa *= 10;
    if (mantissa > kExactIntegers) return false;
  }
  value = static_cast<double>(mantissa) * kPowersOfTen[remaining];
  return true;
}

double decimalValue(const DecimalText& text) {
  const char* first = text.begin;
  while (first < text.end && (*first == '0' || *first == '.')) ++first;
  if (first == text.end) return 0.0;
  std::int64_t scale = 0;
  if (!text.point || first < text.point) {
    scale = (text.point ? text.point : text.end) - first;
  } else {
    scale = -(first - text.point - 1);
  }
  scale += text.exponent;
  double value = 0.0;
  if (kDoubleArithmeticIsExact && readSmallDecimal(first, text.end, scale, value)) return value;
  Decimal decimal;
  for (const char* p = first; p < text.end; ++p)
    if (*p != '.') decimal.append(*p - '0');
  decimal.setPoint(scale);
  return fromBits(decimal.bits());
}

// `p` is past the "0x". Returns the end of the number, or nullptr when no hex digit follows.
const char* readHex(const char* p, const char* end, Bits& bits) {
  Bits mantissa = 0;
  int taken = 0;
  bool sticky = false;
  bool fraction = false;
  bool anyDigit = false;
  std::int64_t exponent = 0;
  for (; p < end; ++p) {
    if (*p == '.' && !fraction) {
      fraction = true;
      continue;
    }
    const int digit = hexValue(*p);
    if (digit < 0) break;
    anyDigit = true;
    if (taken == 0 && digit == 0) {
      if (fraction) exponent -= 4;
    } else if (taken < 16) {
      mantissa = mantissa << 4 | static_cast<Bits>(digit);
      ++taken;
      if (fraction) exponent -= 4;
    } else {
      sticky = sticky || digit != 0;
      if (!fraction) exponent += 4;
    }
  }
  if (!anyDigit) return nullptr;
  std::int64_t written = 0;
  if (p < end && (*p == 'p' || *p == 'P')) p = readExponent(p, end, written);
  bits = roundBinary(mantissa, exponent + written, sticky);
  return p;
}

}  // namespace

NumberText readNumber(const char* begin, const char* end) {
  const char* p = begin;
  while (p < end && isSpace(*p)) ++p;
  bool negative = false;
  if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  const Bits sign = negative ? kSignBit : 0;

  if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    Bits bits = 0;
    if (const char* after = readHex(p + 2, end, bits)) {
      return {fromBits(bits | sign), static_cast<std::size_t>(after - begin)};
    }
  }

  DecimalText text{p, nullptr, p, 0};
  bool anyDigit = false;
  for (; text.end < end; ++text.end) {
    if (isDigit(*text.end)) {
      anyDigit = true;
    } else if (*text.end == '.' && !text.point) {
      text.point = text.end;
    } else {
      break;
    }
  }
  if (!anyDigit) return {0.0, 0};
  const char* after = text.end;
  if (after < end && (*after == 'e' || *after == 'E'))
    after = readExponent(after, end, text.exponent);
  const double value = decimalValue(text);
  return {negative ? -value : value, static_cast<std::size_t>(after - begin)};
}

}  // namespace quillmere
