// quillmere_tone <path> <seconds> [sample-rate]: writes a 440 Hz test tone as a 16-bit mono WAV.
#include <charconv>
#include <cmath>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>

#include "fake_reaper/fake_reaper.h"

namespace {

bool parseSeconds(const std::string& text, double& value) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  in >> value;
  return !in.fail() && in.peek() == std::char_traits<char>::eof() && std::isfinite(value) &&
         value >= 0.0;
}

bool parseRate(const std::string& text, int& value) {
  const char* end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && at == end && value > 0;
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 0.0;
  int rate = 48000;
  if (argc < 3 || argc > 4 || !parseSeconds(argv[2], seconds) ||
      (argc == 4 && !parseRate(argv[3], rate))) {
    std::cerr << "usage: quillmere_tone <path> <seconds> [sample-rate]\n"
                 "  seconds: a number, 0 or more; sample-rate: a whole number above 0 (48000)\n";
    return 1;
  }
  if (!fake_reaper::writeTestTone(argv[1], seconds, rate)) {
    std::cerr << "quillmere_tone: cannot write a " << argv[2] << " s tone at " << rate << " Hz to "
              << argv[1] << "\n";
    return 1;
  }
  return 0;
}
