// quillmere_tone <path> <seconds> [sample-rate]: writes a 440 Hz test tone as a 16-bit mono WAV.
#include <charconv>
#include <cmath>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "fake_reaper/fake_reaper.h"
#include "fake_reaper/utf8_arguments.h"

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
  const std::vector<std::string> arguments = fake_reaper::utf8Arguments(argc, argv);
  double seconds = 0.0;
  int rate = 48000;
  if (arguments.size() < 3 || arguments.size() > 4 || !parseSeconds(arguments[2], seconds) ||
      (arguments.size() == 4 && !parseRate(arguments[3], rate))) {
    std::cerr << "usage: quillmere_tone <path> <seconds> [sample-rate]\n"
                 "  seconds: a number, 0 or more; sample-rate: a whole number above 0 (48000)\n";
    return 1;
  }
  if (!fake_reaper::writeTestTone(arguments[1], seconds, rate)) {
    std::cerr << "quillmere_tone: cannot write a " << arguments[2] << " s tone at " << rate
              << " Hz to " << arguments[1] << "\n";
    return 1;
  }
  return 0;
}
