// The request's numbers are read on the host's UI thread: typical ones must cost next to nothing,
// and absurd ones must stay bounded.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include "request/number_text.h"

#ifdef __GLIBC__
#include <locale.h>
#endif

namespace {

// The numbers a spot request carries: ids, versions, gains, rates, offsets and lengths.
const std::vector<std::string> kTypical = {"4",   "17",          "-6", "1.25",   "0.5",
                                           "1.5", "-3.0102999",  "0",  "2.75e1", "1234.5678901234",
                                           "12",  "0.0416666667"};

// Seventeen significant digits, as a writer of shortest round-trip doubles gives them.
const std::vector<std::string> kLongest = {"0.30000000000000004", "12.345678901234567",
                                           "1234.5678901234567", "-6.0205999132796242",
                                           "0.041666666666666664"};

// Texts that take the slow path: many digits, far exponents, a long halfway case.
const std::vector<std::string> kHard = {"0.1000000000000000055511151231257827021181583404541015625",
                                        "2.2250738585072011e-308",
                                        "1.7976931348623157e308",
                                        "4.9406564584124654e-324",
                                        "123456789012345678901234567890",
                                        "1.00000000000000011102230246251565404236316680908203125"};

using Texts = std::vector<std::string>;

void BM_ReadNumbers(benchmark::State& state, const Texts* texts) {
  for (auto _ : state)
    for (const std::string& text : *texts)
      benchmark::DoNotOptimize(quillmere::readNumber(text.data(), text.data() + text.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts->size()));
}
BENCHMARK_CAPTURE(BM_ReadNumbers, Typical, &kTypical);
BENCHMARK_CAPTURE(BM_ReadNumbers, LongestShortestDoubles, &kLongest);
BENCHMARK_CAPTURE(BM_ReadNumbers, Hard, &kHard);

#ifdef __GLIBC__
// The C library's conversion in the classic locale, as a yardstick.
void BM_StrtodNumbers(benchmark::State& state, const Texts* texts) {
  const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  for (auto _ : state)
    for (const std::string& text : *texts) {
      char* end = nullptr;
      benchmark::DoNotOptimize(strtod_l(text.c_str(), &end, classic));
      benchmark::DoNotOptimize(end);
    }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts->size()));
  freelocale(classic);
}
BENCHMARK_CAPTURE(BM_StrtodNumbers, Typical, &kTypical);
BENCHMARK_CAPTURE(BM_StrtodNumbers, LongestShortestDoubles, &kLongest);
BENCHMARK_CAPTURE(BM_StrtodNumbers, Hard, &kHard);
#endif

// A mantissa of the given number of digits: every digit is read, and up to 800 of them are
// carried through the scaling.
void BM_ReadLongMantissa(benchmark::State& state) {
  std::string text = "1.";
  while (text.size() < static_cast<std::size_t>(state.range(0))) text += "2345678901";
  text += "e-300";
  for (auto _ : state)
    benchmark::DoNotOptimize(quillmere::readNumber(text.data(), text.data() + text.size()));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_ReadLongMantissa)->Arg(20)->Arg(800)->Arg(1000000);

}  // namespace
