// Queue throughput: the library's stack, first-in-first-out queue and bounded ring against
// moodycamel::ConcurrentQueue, boost::lockfree::queue and stack, and a std::mutex + std::deque.
//
// Every queue carries the same counted objects: the library's queues take and give Object handles;
// the others carry raw pointers and count them themselves (AddRef on the way in, Release on the
// way out), so every element costs one reference taken and one released everywhere.
//
// Three shapes:
// - Pairs: one thread, Put then Get, over and over.
// - Stream: one producer thread and one consumer thread at once. An external in-flight counter
//   bounds the backlog at kBacklog for every queue (the producer waits above it) and tells the
//   consumer when an element is there, so no queue is asked for an element it does not have.
//   Waiting threads yield: the machine may have fewer free cores than threads.
//   The library's first-in-first-out queue is left out: its Get drains with a detach that spins
//   for good when a Put lands between its read and its exchange, which a concurrent producer
//   makes happen within milliseconds.
// - Handoff: the producer puts kBatch elements, then the consumer takes them, in turns; the shape
//   the first-in-first-out queue supports, measured for every queue.
#include <kiv/object.h>
#include <kiv/queues.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#if defined(KIV_BENCH_HAVE_CONCURRENTQUEUE)
#include <concurrentqueue.h>
#endif
#if defined(KIV_BENCH_HAVE_BOOST)
#include <boost/lockfree/queue.hpp>
#include <boost/lockfree/stack.hpp>
#endif

namespace {

class Element : public kiv::RefCount {};

constexpr int kPool = 1024;  // distinct elements, so producer and consumer rarely share a count
constexpr int kBacklog = 4096;
constexpr int kBatch = 256;

const std::vector<kiv::Object>& Pool() {
  static const std::vector<kiv::Object> pool = [] {
    std::vector<kiv::Object> p;
    for (int i = 0; i < kPool; ++i) p.emplace_back(new Element());
    return p;
  }();
  return pool;
}

struct KivLIFO {
  kiv::Ref<kiv::QueueItf> q = kiv::QueueExp::MakeLIFO();
  bool Push(const kiv::Object& o) { return q->Put(o); }
  void Pop() { q->Get(); }
};
struct KivFIFO {
  kiv::Ref<kiv::QueueItf> q = kiv::QueueExp::MakeFIFO();
  bool Push(const kiv::Object& o) { return q->Put(o); }
  void Pop() { q->Get(); }
};
struct KivRing {
  kiv::Ref<kiv::QueueItf> q = kiv::QueueExp::MakeFIFO(kBacklog);
  bool Push(const kiv::Object& o) { return q->Put(o); }
  void Pop() { q->Get(); }
};

struct MutexDeque {
  std::mutex mutex;
  std::deque<kiv::Object> items;
  bool Push(const kiv::Object& o) {
    std::lock_guard<std::mutex> guard(mutex);
    items.push_back(o);
    return true;
  }
  void Pop() {
    kiv::Object o;
    std::lock_guard<std::mutex> guard(mutex);
    o = static_cast<kiv::Object&&>(items.front());
    items.pop_front();
  }
};

// Raw pointers, counted by hand.
inline kiv::RefCount* Take(const kiv::Object& o) {
  kiv::RefCount::AddRef(o.Get());
  return o.Get();
}

#if defined(KIV_BENCH_HAVE_CONCURRENTQUEUE)
struct Moodycamel {
  moodycamel::ConcurrentQueue<kiv::RefCount*> q;
  bool Push(const kiv::Object& o) { return q.enqueue(Take(o)); }
  void Pop() {
    kiv::RefCount* p = nullptr;
    if (!q.try_dequeue(p)) std::abort();
    kiv::RefCount::Release(p);
  }
};
#endif

#if defined(KIV_BENCH_HAVE_BOOST)
struct BoostQueue {
  boost::lockfree::queue<kiv::RefCount*> q{kBacklog};
  bool Push(const kiv::Object& o) { return q.push(Take(o)); }
  void Pop() {
    kiv::RefCount* p = nullptr;
    if (!q.pop(p)) std::abort();
    kiv::RefCount::Release(p);
  }
};
struct BoostStack {
  boost::lockfree::stack<kiv::RefCount*> q{kBacklog};
  bool Push(const kiv::Object& o) { return q.push(Take(o)); }
  void Pop() {
    kiv::RefCount* p = nullptr;
    if (!q.pop(p)) std::abort();
    kiv::RefCount::Release(p);
  }
};
#endif

template <class Q>
void BM_Pairs(benchmark::State& state) {
  const std::vector<kiv::Object>& pool = Pool();
  Q q;
  unsigned i = 0;
  for (auto _ : state) {
    q.Push(pool[i++ % kPool]);
    q.Pop();
  }
  state.SetItemsProcessed(state.iterations());
}

// Shared between the two threads of one run; thread 0 makes it before the timed loop and drops
// it after (the benchmark library holds both threads at the loop's start and end).
template <class Q>
struct Shared {
  static inline Q* queue = nullptr;
  static inline std::atomic<int> in_flight{0};
  static inline std::atomic<long> phase{0};
};

template <class Q>
void BM_Stream(benchmark::State& state) {
  using S = Shared<Q>;
  if (state.thread_index() == 0) {
    S::queue = new Q();
    S::in_flight.store(0);
  }
  const std::vector<kiv::Object>& pool = Pool();
  unsigned i = 0;
  if (state.thread_index() == 0) {
    for (auto _ : state) {
      while (S::in_flight.load(std::memory_order_acquire) >= kBacklog) std::this_thread::yield();
      S::queue->Push(pool[i++ % kPool]);
      S::in_flight.fetch_add(1, std::memory_order_release);
    }
  } else {
    for (auto _ : state) {
      while (S::in_flight.load(std::memory_order_acquire) == 0) std::this_thread::yield();
      S::queue->Pop();
      S::in_flight.fetch_sub(1, std::memory_order_release);
    }
    state.SetItemsProcessed(state.iterations());
  }
  if (state.thread_index() == 0) {
    delete S::queue;
    S::queue = nullptr;
  }
}

template <class Q>
void BM_Handoff(benchmark::State& state) {
  using S = Shared<Q>;
  if (state.thread_index() == 0) {
    S::queue = new Q();
    S::phase.store(0);
  }
  const std::vector<kiv::Object>& pool = Pool();
  const bool producer = state.thread_index() == 0;
  long turn = producer ? 0 : 1;
  unsigned i = 0;
  for (auto _ : state) {
    while (S::phase.load(std::memory_order_acquire) != turn) std::this_thread::yield();
    for (int k = 0; k < kBatch; ++k) {
      if (producer) {
        S::queue->Push(pool[i++ % kPool]);
      } else {
        S::queue->Pop();
      }
    }
    S::phase.store(turn + 1, std::memory_order_release);
    turn += 2;
  }
  if (!producer) state.SetItemsProcessed(state.iterations() * kBatch);
  if (producer) {
    delete S::queue;
    S::queue = nullptr;
  }
}

}  // namespace

#define KIV_QUEUE_BENCH(Q) \
  BENCHMARK(BM_Pairs<Q>);  \
  BENCHMARK(BM_Handoff<Q>)->Threads(2)->UseRealTime();

KIV_QUEUE_BENCH(KivLIFO)
KIV_QUEUE_BENCH(KivFIFO)
KIV_QUEUE_BENCH(KivRing)
KIV_QUEUE_BENCH(MutexDeque)
BENCHMARK(BM_Stream<KivLIFO>)->Threads(2)->UseRealTime();
BENCHMARK(BM_Stream<KivRing>)->Threads(2)->UseRealTime();
BENCHMARK(BM_Stream<MutexDeque>)->Threads(2)->UseRealTime();
#if defined(KIV_BENCH_HAVE_CONCURRENTQUEUE)
KIV_QUEUE_BENCH(Moodycamel)
BENCHMARK(BM_Stream<Moodycamel>)->Threads(2)->UseRealTime();
#endif
#if defined(KIV_BENCH_HAVE_BOOST)
KIV_QUEUE_BENCH(BoostQueue)
KIV_QUEUE_BENCH(BoostStack)
BENCHMARK(BM_Stream<BoostQueue>)->Threads(2)->UseRealTime();
BENCHMARK(BM_Stream<BoostStack>)->Threads(2)->UseRealTime();
#endif

int main(int argc, char** argv) {
  // libstdc++ skips atomic operations while a process has only one thread; a real host always has
  // several, so make this process multi-threaded before measuring.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
