#pragma once

#include <locale>
#include <string>

namespace testing_support {

// Makes the global locale one that writes 1234.5 as 1.234,5 while the object lives.
class CommaLocale {
 public:
  CommaLocale() : previous_(std::locale::global(std::locale(std::locale::classic(), new Comma))) {}
  ~CommaLocale() { std::locale::global(previous_); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

 private:
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale previous_;
};

}  // namespace testing_support
