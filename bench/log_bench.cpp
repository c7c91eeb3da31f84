// Making a log writer and writing one 60-character entry, when the entry is written and when it
// is discarded (the cost a host pays for every debug or info line it does not want).
#include <kiv/log.h>
#include <kiv/streams.h>

#include <benchmark/benchmark.h>

namespace {

// Takes every byte and keeps only their count: an in-memory stream without growth.
class CountingSink : public kiv::SyncOutputStreamItf {
 public:
  using kiv::SyncOutputStreamItf::Write;
  unsigned Write(const void*, unsigned count) override {
    bytes += count;
    return count;
  }
  void Flush() override {}
  unsigned long long bytes = 0;
};

constexpr char kMessage[] = "request for /index.html answered with 200 in 1432 microseconds";
static_assert(sizeof kMessage - 1 >= 60);

void Entry(benchmark::State& state, kiv::LogLevel level) {
  kiv::Ref<CountingSink> sink(new CountingSink);
  kiv::LogWriterExp::Init(kiv::SyncOutputStream(sink.Get()));
  kiv::LogWriterExp::SetIdent(kiv::String(kiv::TextEncodingExp::MakeUTF8(), "bench"));
  for (auto _ : state) {
    kiv::Writer writer = kiv::LogWriterExp::Make(level);
    writer->Write(kMessage);
    writer->NewLine();
  }
  state.counters["bytes/entry"] =
      static_cast<double>(sink->bytes) / static_cast<double>(state.iterations());
}

// With no configuration the threshold is LogError: errors are written, warnings discarded.
void BM_LogWritten(benchmark::State& state) { Entry(state, kiv::LogError); }
BENCHMARK(BM_LogWritten);

void BM_LogDiscarded(benchmark::State& state) { Entry(state, kiv::LogWarn); }
BENCHMARK(BM_LogDiscarded);

}  // namespace

BENCHMARK_MAIN();
