// The HTTP date string of a time value: DateStringExp::Make(DateExp::Make(t, 0)) against the
// standard pair gmtime_r + strftime("%a, %d %b %Y %H:%M:%S GMT"), over the same spread of times.
#include <kiv/date.h>
#include <time.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr std::int64_t kJulian1970 = 210866803200000;

// Seconds since 1970, spread over the years 1970 to 2100.
std::vector<std::int64_t> Times() {
  std::mt19937_64 random(3);
  std::uniform_int_distribution<std::int64_t> seconds(0, 4102444800);
  std::vector<std::int64_t> times(4096);
  for (std::int64_t& t : times) t = seconds(random);
  return times;
}

void BM_KivDateString(benchmark::State& state) {
  const std::vector<std::int64_t> times = Times();
  std::size_t i = 0;
  for (auto _ : state) {
    const std::int64_t time = kJulian1970 + times[i++ % times.size()] * 1000;
    kiv::String text = kiv::DateStringExp::Make(kiv::DateExp::Make(time, 0));
    benchmark::DoNotOptimize(text->GetData());
  }
}
BENCHMARK(BM_KivDateString);

void BM_StdGmtimeStrftime(benchmark::State& state) {
  const std::vector<std::int64_t> times = Times();
  std::size_t i = 0;
  char text[64];
  for (auto _ : state) {
    const time_t t = static_cast<time_t>(times[i++ % times.size()]);
    struct tm utc;
    gmtime_r(&t, &utc);
    benchmark::DoNotOptimize(strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc));
  }
}
BENCHMARK(BM_StdGmtimeStrftime);

}  // namespace

BENCHMARK_MAIN();
