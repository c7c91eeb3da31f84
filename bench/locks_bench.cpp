// Uncontended lock and unlock: ObjectLock (a virtual call through the handle, then the users
// count, which is also the lock's gate) against std::recursive_mutex.
#include <kiv/locks.h>

#include <benchmark/benchmark.h>

#include <mutex>
#include <thread>

static void BM_ObjectLockLockUnlock(benchmark::State& state) {
  kiv::ObjectLock lock = kiv::ObjectLockExp::Make();
  for (auto _ : state) {
    lock->Lock(kiv::kWaitForever);
    lock->Unlock();
  }
}
BENCHMARK(BM_ObjectLockLockUnlock);

static void BM_ObjectLockGuard(benchmark::State& state) {
  kiv::ObjectLock lock = kiv::ObjectLockExp::Make();
  for (auto _ : state) {
    kiv::ObjectLockGuard guard(lock);
  }
}
BENCHMARK(BM_ObjectLockGuard);

static void BM_ObjectLockTryLockUnlock(benchmark::State& state) {
  kiv::ObjectLock lock = kiv::ObjectLockExp::Make();
  for (auto _ : state) {
    benchmark::DoNotOptimize(lock->TryLock());
    lock->Unlock();
  }
}
BENCHMARK(BM_ObjectLockTryLockUnlock);

static void BM_RecursiveMutexLockUnlock(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_RecursiveMutexLockUnlock);

int main(int argc, char** argv) {
  // Some C libraries take cheaper paths while a process has only one thread; a real host always
  // has several, so make this process multi-threaded before measuring.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
