#include "request/number_text.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "request/json_fields.h"

#ifdef __GLIBC__
#include <locale.h>

#include <filesystem>
#include <fstream>
#endif

namespace {

using quillmere::NumberText;
using quillmere::readNumber;

constexpr std::size_t kWhole = std::string::npos;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

NumberText read(const std::string& text) {
  return readNumber(text.data(), text.data() + text.size());
}

struct Case {
  std::string text;
  double value;
  std::size_t consumed;
};

void expectReads(const Case& c) {
  SCOPED_TRACE("text \"" + c.text + "\"");
  const NumberText number = read(c.text);
  EXPECT_EQ(number.consumed, c.consumed == kWhole ? c.text.size() : c.consumed);
  EXPECT_EQ(bitsOf(number.value), bitsOf(c.value))
      << std::hexfloat << number.value << " instead of " << c.value;
}

// Decimal digits of start * factor^times, by schoolbook multiplication.
std::string multiplied(const std::string& start, int factor, int times) {
  std::string digits = start;
  for (int i = 0; i < times; ++i) {
    int carry = 0;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
      const int product = (*it - '0') * factor + carry;
      *it = static_cast<char>('0' + product % 10);
      carry = product / 10;
    }
    for (; carry > 0; carry /= 10)
      digits.insert(digits.begin(), static_cast<char>('0' + carry % 10));
  }
  return digits;
}

// The exact decimal text of mantissa * 2^-exponent.
std::string exactFraction(const std::string& mantissa, int exponent) {
  std::string digits = multiplied(mantissa, 5, exponent);
  if (digits.size() <= static_cast<std::size_t>(exponent))
    digits.insert(0, static_cast<std::size_t>(exponent) - digits.size(), '0');
  digits.insert(digits.size() - static_cast<std::size_t>(exponent), ".");
  return digits;
}

TEST(NumberText, ReadsTheFormsStrtodReadsAndConsumesWhatItConsumes) {
  const Case cases[] = {
      {"0x1A", 26.0, kWhole},
      {"0X1aP3", 208.0, kWhole},
      {"0x1.8p1", 3.0, kWhole},
      {"0x.8", 0.5, kWhole},
      {"0x8", 8.0, kWhole},
      {" +0x.8p-1,", 0.25, 9},
      {"0x", 0.0, 1},
      {"0x.p1", 0.0, 1},
      {"-0xg", -0.0, 2},
      {"0x1p", 1.0, 3},
      {"0x1.p1", 2.0, kWhole},
      {"1e", 1.0, 1},
      {"1.e", 1.0, 2},
      {"1.e5", 1e5, kWhole},
      {"1e5e6", 1e5, 3},
      {"1.5e+-3", 1.5, 3},
      {"1.2.3", 1.2, 3},
      {"+.5", 0.5, kWhole},
      {"-0", -0.0, kWhole},
      {"-0.000e-999999", -0.0, kWhole},
      {" \t\n\v\f\r7", 7.0, kWhole},
      {"12abc", 12.0, 2},
      {"0000000000000000000000000000001.5", 1.5, kWhole},
      {"0." + std::string(40, '0') + "15e41", 1.5, kWhole},
      {"0x00000000000000000000000000001p0", 1.0, kWhole},
      {"1e999", kInfinity, kWhole},
      {"0x1p1024", kInfinity, kWhole},
      {"1e-999", 0.0, kWhole},
  };
  for (const Case& c : cases) expectReads(c);
}

TEST(NumberText, ConsumesNothingWhereStrtodFindsNoNumberOrSpellsOutInfinityOrNan) {
  // Non-breaking and next-line spaces as Latin-1 bytes, which are no white space to strtod.
  for (const std::string text :
       {"",         "   ",       ".",   "-",        "+",     "- 1",   "+-1",
        "--1",      "e5",        ".e5", "x1",       "\"3\"", "inf",   "-INF",
        "infinity", "+Infinity", "nan", "NAN(123)", "-nan",  "\2401", "\2051"}) {
    SCOPED_TRACE("text \"" + text + "\"");
    EXPECT_EQ(read(text).consumed, 0u);
  }
}

TEST(NumberText, RoundsHalfwayCasesToEvenAndAnythingBeyondAwayFromThem) {
  const Case cases[] = {
      {"9007199254740993", 0x1p53, kWhole},
      {"9007199254740995", 9007199254740996.0, kWhole},
      {"9007199254740993.00000000000000000000001", 9007199254740994.0, kWhole},
      {"9007199254740992.99999999999999999999999", 0x1p53, kWhole},
      {"1.00000000000000011102230246251565404236316680908203125", 1.0, kWhole},
      {"1.00000000000000011102230246251565404236316680908203126", 0x1.0000000000001p0, kWhole},
      {"1.00000000000000033306690738754696212708950042724609375", 0x1.0000000000002p0, kWhole},
      {"0x1.00000000000008p0", 1.0, kWhole},
      {"0x1.000000000000080000000000000001p0", 0x1.0000000000001p0, kWhole},
      {"0x1.00000000000018p0", 0x1.0000000000002p0, kWhole},
      {"0.1", 0x1.999999999999ap-4, kWhole},
      // Either side of what exact double arithmetic can take: 10^22, and 19 digits in 64 bits.
      {"1e-22", 0x1.e392010175ee6p-74, kWhole},
      {"1e-23", 0x1.82db34012b251p-77, kWhole},
      {"1.844999999999999973", 0x1.d851eb851eb85p+0, kWhole},
      {"1.8449999999999999734", 0x1.d851eb851eb85p+0, kWhole},
      {"18449999999999999734", 0x1.000b913f69f5p+64, kWhole},
      {"123456789012345678901234567890", 0x1.8ee90ff6c373ep+96, kWhole},
  };
  for (const Case& c : cases) expectReads(c);
}

TEST(NumberText, ReadsTheEdgesOfTheDoubleRangeExactly) {
  const Case cases[] = {
      {"1.7976931348623157e308", DBL_MAX, kWhole},
      {"1.7976931348623159e308", kInfinity, kWhole},
      {"0x1.fffffffffffff7ffffp1023", DBL_MAX, kWhole},
      {"0x1.fffffffffffff8p1023", kInfinity, kWhole},
      {"2.2250738585072014e-308", DBL_MIN, kWhole},
      {"2.2250738585072011e-308", 0x0.fffffffffffffp-1022, kWhole},
      {"2.2250738585072012e-308", DBL_MIN, kWhole},
      {"0x1.fffffffffffff8p-1023", DBL_MIN, kWhole},
      {"0x1.ffffffffffffe8p-1023", 0x0.fffffffffffffp-1022, kWhole},
      {"4.9406564584124654e-324", 0x1p-1074, kWhole},
      {"2.4703282292062327e-324", 0.0, kWhole},
      {"2.4703282292062328e-324", 0x1p-1074, kWhole},
      {"7.4109846876186982e-324", 0x1p-1073, kWhole},
      {"0x1p-1075", 0.0, kWhole},
      {"0x1.0000000000001p-1075", 0x1p-1074, kWhole},
      {"0x1.8p-1074", 0x1p-1073, kWhole},
      {"0x3p-1076", 0x1p-1074, kWhole},
      // Three quarters of the way between two subnormals, which glibc 2.36 reads one unit low.
      {"0x18e1048e301301.8p-1075", 0x0.c708247180981p-1022, kWhole},
  };
  for (const Case& c : cases) expectReads(c);
}

TEST(NumberText, DecidesHalfwayCasesOnTheirLastDigitHoweverLongTheyAre) {
  // 2^-1075 lies halfway between zero and the smallest subnormal; 2^1024 - 2^970 halfway between
  // the largest double and the first value that no longer fits.
  const std::string tiny = exactFraction("1", 1075);
  const std::string threeTiny = exactFraction("3", 1075);
  const std::string huge = multiplied("18014398509481983", 2, 970);
  std::string belowHuge = huge;
  belowHuge.back() = static_cast<char>(belowHuge.back() - 1);
  const Case cases[] = {
      {tiny, 0.0, kWhole},
      {tiny + "1", 0x1p-1074, kWhole},
      {tiny + std::string(2000, '0') + "1", 0x1p-1074, kWhole},
      {"-" + tiny + "000000000000000000000001", -0x1p-1074, kWhole},
      {threeTiny, 0x1p-1073, kWhole},
      {huge, kInfinity, kWhole},
      {belowHuge, DBL_MAX, kWhole},
      {belowHuge + "." + std::string(3000, '9'), DBL_MAX, kWhole},
      {huge.substr(0, 1) + "." + huge.substr(1) + "e308", kInfinity, kWhole},
  };
  for (const Case& c : cases) expectReads(c);
}

TEST(NumberText, ReadsMillionDigitMantissasAndExponentsToTheEnd) {
  const std::string zeros(1000000, '0');
  const std::string nines(1000000, '9');
  const Case cases[] = {
      {"1" + zeros + "e-1000000", 1.0, kWhole},   {"0." + zeros + "15e1000001", 1.5, kWhole},
      {"1e" + nines, kInfinity, kWhole},          {"1e-" + nines, 0.0, kWhole},
      {"0x1" + zeros + "p-4000000", 1.0, kWhole}, {"0x0." + zeros + "1p4000004", 1.0, kWhole},
      {"0x1p" + nines, kInfinity, kWhole},
  };
  for (const Case& c : cases) expectReads(c);
}

#ifdef __GLIBC__

// Bit-for-bit agreement with glibc on arbitrary texts is the number reader's fuzz target's
// work, which the test command runs.

// Makes the C library's numeric locale one with a decimal comma while it lives, compiled with
// localedef, as none may be installed.
class CommaNumericLocale {
 public:
  CommaNumericLocale() {
    std::string folder = (std::filesystem::temp_directory_path() / "quillmere-XXXXXX").string();
    if (!mkdtemp(folder.data())) return;
    folder_ = folder;
    std::ofstream(folder_ / "comma.src") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                            "grouping 3;3\nEND LC_NUMERIC\n";
    // localedef exits 1 for the categories a minimal definition leaves out.
    exitStatus_ = std::system(("localedef -c -f ANSI_X3.4-1968 -i '" + folder + "/comma.src' '" +
                               folder + "/comma' >/dev/null 2>&1")
                                  .c_str());
    setenv("LOCPATH", folder.c_str(), 1);
    made_ = setlocale(LC_NUMERIC, "comma") != nullptr;
  }
  ~CommaNumericLocale() {
    setlocale(LC_NUMERIC, previous_.c_str());
    unsetenv("LOCPATH");
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  std::string failure() const {
    return made_ ? ""
                 : "localedef could not make a comma locale (" + std::to_string(exitStatus_) + ")";
  }

 private:
  std::string previous_ = setlocale(LC_NUMERIC, nullptr);
  std::filesystem::path folder_;
  int exitStatus_ = -1;
  bool made_ = false;
};

TEST(NumberText, ReadsTheSameNumbersUnderADecimalCommaCLocale) {
  CommaNumericLocale comma;
  if (!comma.failure().empty()) GTEST_SKIP() << comma.failure();
  ASSERT_STREQ(localeconv()->decimal_point, ",");
  const std::pair<std::string, std::optional<double>> cases[] = {
      {"1.5", 1.5}, {"-0.25,", -0.25}, {"2.5e1}", 25.0},
      {"1,5", 1.0}, {"0x1.8p1", 3.0},  {",5", std::nullopt}};
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(quillmere::JsonFields(R"({"n":)" + value, {"n"}).number("n"), expected) << value;
}

#else

TEST(NumberText, ReadsTheSameNumbersUnderADecimalCommaCLocale) {
  GTEST_SKIP() << "making a comma locale needs glibc's localedef, and this is not glibc";
}

#endif

}  // namespace
