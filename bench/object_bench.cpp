// Copying and dropping a counted handle, against std::shared_ptr and boost::intrusive_ptr on the
// same object.
#include <kiv/object.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>

#if KIV_BENCH_HAVE_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#endif

namespace kiv {

struct BenchItf : public virtual RefCount {
  virtual int Value() const = 0;
};

class BenchObject : public BenchItf {
 public:
  int Value() const override { return 1; }
};

}  // namespace kiv

namespace {

struct Plain {
  int value = 1;
  std::atomic<int> count{0};
};

#if KIV_BENCH_HAVE_BOOST
void intrusive_ptr_add_ref(Plain* p) { p->count.fetch_add(1, std::memory_order_relaxed); }
void intrusive_ptr_release(Plain* p) {
  if (p->count.fetch_sub(1, std::memory_order_acq_rel) == 1) delete p;
}
#endif

void BM_RefCopyDrop(benchmark::State& state) {
  kiv::Ref<kiv::BenchItf> held(new kiv::BenchObject);
  for (auto _ : state) {
    kiv::Ref<kiv::BenchItf> copy = held;
    benchmark::DoNotOptimize(copy.Get());
  }
}
BENCHMARK(BM_RefCopyDrop);

void BM_ObjectCopyDrop(benchmark::State& state) {
  kiv::Object held(new kiv::BenchObject);
  for (auto _ : state) {
    kiv::Object copy = held;
    benchmark::DoNotOptimize(copy.Get());
  }
}
BENCHMARK(BM_ObjectCopyDrop);

void BM_RefAssign(benchmark::State& state) {
  kiv::Ref<kiv::BenchItf> a(new kiv::BenchObject);
  kiv::Ref<kiv::BenchItf> b(new kiv::BenchObject);
  kiv::Ref<kiv::BenchItf> slot;
  for (auto _ : state) {
    slot = a;
    slot = b;
    benchmark::DoNotOptimize(slot.Get());
  }
}
BENCHMARK(BM_RefAssign);

void BM_SharedPtrCopyDrop(benchmark::State& state) {
  auto held = std::make_shared<Plain>();
  for (auto _ : state) {
    std::shared_ptr<Plain> copy = held;
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_SharedPtrCopyDrop);

void BM_SharedPtrAssign(benchmark::State& state) {
  auto a = std::make_shared<Plain>();
  auto b = std::make_shared<Plain>();
  std::shared_ptr<Plain> slot;
  for (auto _ : state) {
    slot = a;
    slot = b;
    benchmark::DoNotOptimize(slot.get());
  }
}
BENCHMARK(BM_SharedPtrAssign);

#if KIV_BENCH_HAVE_BOOST
void BM_IntrusivePtrCopyDrop(benchmark::State& state) {
  boost::intrusive_ptr<Plain> held(new Plain);
  for (auto _ : state) {
    boost::intrusive_ptr<Plain> copy = held;
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_IntrusivePtrCopyDrop);
#endif

}  // namespace

int main(int argc, char** argv) {
  // libstdc++ skips shared_ptr's atomic instructions in a process that never started a thread;
  // start one so that every contender pays for real atomics.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
