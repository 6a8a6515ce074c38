#pragma once

#include <locale>
#include <string>

namespace testing_support {

struct CommaNumbers : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// Makes the global locale one that writes 1234.5 as 1.234,5 while the object lives.
struct CommaLocale {
  std::locale previous = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  ~CommaLocale() { std::locale::global(previous); }
};

}  // namespace testing_support
