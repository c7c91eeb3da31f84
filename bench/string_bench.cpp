// String comparison, search and concatenation, short and long, against std::u16string.
#include <kiv/encodings.h>
#include <kiv/string.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

std::u16string MakeText(std::size_t n, char16_t last) {
  std::u16string s;
  for (std::size_t i = 0; i + 1 < n; ++i) s.push_back(static_cast<char16_t>(u'a' + i % 26));
  s.push_back(last);
  return s;
}

kiv::String Kiv(const std::u16string& s) {
  return kiv::String(kiv::TextEncodingExp::MakeUTF16(), const_cast<char16_t*>(s.data()),
                     static_cast<unsigned>(s.size() * 2));
}

void BM_KivCompare(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  kiv::String a = Kiv(MakeText(n, u'x'));
  kiv::String b = Kiv(MakeText(n, u'y'));
  for (auto _ : state) benchmark::DoNotOptimize(a < b);
}
BENCHMARK(BM_KivCompare)->Arg(8)->Arg(1024);

void BM_StdCompare(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  std::u16string a = MakeText(n, u'x');
  std::u16string b = MakeText(n, u'y');
  for (auto _ : state) benchmark::DoNotOptimize(a < b);
}
BENCHMARK(BM_StdCompare)->Arg(8)->Arg(1024);

void BM_KivIndexOf(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  kiv::String hay = Kiv(MakeText(n, u'!'));
  kiv::String needle = Kiv(u"xyz!");
  for (auto _ : state) benchmark::DoNotOptimize(hay->IndexOf(needle));
}
BENCHMARK(BM_KivIndexOf)->Arg(16)->Arg(4096);

void BM_StdFind(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  std::u16string hay = MakeText(n, u'!');
  std::u16string needle = u"xyz!";
  for (auto _ : state) benchmark::DoNotOptimize(hay.find(needle));
}
BENCHMARK(BM_StdFind)->Arg(16)->Arg(4096);

void BM_KivConcat(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  kiv::String a = Kiv(MakeText(n, u'x'));
  kiv::String b = Kiv(MakeText(n, u'y'));
  for (auto _ : state) {
    kiv::String c = a + b;
    benchmark::DoNotOptimize(c.GetRef().Get());
  }
}
BENCHMARK(BM_KivConcat)->Arg(8)->Arg(1024);

void BM_StdConcat(benchmark::State& state) {
  auto n = static_cast<std::size_t>(state.range(0));
  std::u16string a = MakeText(n, u'x');
  std::u16string b = MakeText(n, u'y');
  for (auto _ : state) {
    std::u16string c = a + b;
    benchmark::DoNotOptimize(c.data());
  }
}
BENCHMARK(BM_StdConcat)->Arg(8)->Arg(1024);

}  // namespace

BENCHMARK_MAIN();
