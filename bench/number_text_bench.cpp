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

void BM_ReadTypicalNumbers(benchmark::State& state) {
  for (auto _ : state)
    for (const std::string& text : kTypical)
      benchmark::DoNotOptimize(quillmere::readNumber(text.data(), text.data() + text.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kTypical.size()));
}
BENCHMARK(BM_ReadTypicalNumbers);

#ifdef __GLIBC__
void BM_StrtodTypicalNumbers(benchmark::State& state) {
  const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  for (auto _ : state)
    for (const std::string& text : kTypical) {
      char* end = nullptr;
      benchmark::DoNotOptimize(strtod_l(text.c_str(), &end, classic));
      benchmark::DoNotOptimize(end);
    }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kTypical.size()));
  freelocale(classic);
}
BENCHMARK(BM_StrtodTypicalNumbers);
#endif

// Seventeen significant digits, as a writer of shortest round-trip doubles gives them.
const std::vector<std::string> kLongest = {"0.30000000000000004", "12.345678901234567",
                                           "1234.5678901234567", "-6.0205999132796242",
                                           "0.041666666666666664"};

void BM_ReadLongestShortestDoubles(benchmark::State& state) {
  for (auto _ : state)
    for (const std::string& text : kLongest)
      benchmark::DoNotOptimize(quillmere::readNumber(text.data(), text.data() + text.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kLongest.size()));
}
BENCHMARK(BM_ReadLongestShortestDoubles);

#ifdef __GLIBC__
void BM_StrtodLongestShortestDoubles(benchmark::State& state) {
  const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  for (auto _ : state)
    for (const std::string& text : kLongest) {
      char* end = nullptr;
      benchmark::DoNotOptimize(strtod_l(text.c_str(), &end, classic));
      benchmark::DoNotOptimize(end);
    }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kLongest.size()));
  freelocale(classic);
}
BENCHMARK(BM_StrtodLongestShortestDoubles);
#endif

// Texts that take the slow path: many digits, far exponents, a long halfway case.
const std::vector<std::string> kHard = {"0.1000000000000000055511151231257827021181583404541015625",
                                        "2.2250738585072011e-308",
                                        "1.7976931348623157e308",
                                        "4.9406564584124654e-324",
                                        "123456789012345678901234567890",
                                        "1.00000000000000011102230246251565404236316680908203125"};

void BM_ReadHardNumbers(benchmark::State& state) {
  for (auto _ : state)
    for (const std::string& text : kHard)
      benchmark::DoNotOptimize(quillmere::readNumber(text.data(), text.data() + text.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kHard.size()));
}
BENCHMARK(BM_ReadHardNumbers);

#ifdef __GLIBC__
void BM_StrtodHardNumbers(benchmark::State& state) {
  const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  for (auto _ : state)
    for (const std::string& text : kHard) {
      char* end = nullptr;
      benchmark::DoNotOptimize(strtod_l(text.c_str(), &end, classic));
      benchmark::DoNotOptimize(end);
    }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kHard.size()));
  freelocale(classic);
}
BENCHMARK(BM_StrtodHardNumbers);
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
