#include <kiv/exception.h>
#include <kiv/queues.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>
#include <vector>

namespace kiv {

// A counted element that records who made it and in which order.
class Item : public RefCount {
 public:
  Item(int producer, int seq) : producer(producer), seq(seq) { ++live; }
  ~Item() override { --live; }
  const int producer, seq;
  static inline std::atomic<int> live{0};
};

const Item& I(const Object& o) { return *dynamic_cast<const Item*>(o.Get()); }
int V(const Object& o) { return I(o).seq; }

class Queues : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(Item::live.load(), 0); }
};

TEST_F(Queues, OrdersBoundsAndClear) {
  // The stack, and the queue whose new elements go ahead of those left from an earlier drain.
  for (bool stack : {true, false}) {
    Ref<QueueItf> q = stack ? QueueExp::MakeLIFO() : QueueExp::MakeFIFO();
    q->Put(new Item(0, 1));
    q->Put(new Item(0, 2));
    EXPECT_EQ(V(q->Get()), stack ? 2 : 1);
    q->Put(new Item(0, 3));
    EXPECT_EQ(V(q->Get()), 3);
    EXPECT_EQ(V(q->Get()), stack ? 1 : 2);
    EXPECT_THROW(q->Get(), NoSuchElementException);
  }
  // The ring keeps strict order across many laps, full at its capacity.
  Ref<QueueItf> ring = QueueExp::MakeFIFO(3);
  int next_in = 0, next_out = 0;
  for (int round = 0; round < 100; ++round) {
    while (ring->Put(new Item(0, next_in))) ++next_in;
    EXPECT_EQ(ring->Count(), 3);
    for (int k = round % 3; k >= 0; --k) EXPECT_EQ(V(ring->Get()), next_out++);
  }
  EXPECT_FALSE(QueueExp::MakeFIFO(0)->Put(new Item(0, 1)));
  for (Ref<QueueItf> q : {QueueExp::MakeLIFO(), QueueExp::MakeFIFO(), QueueExp::MakeFIFO(5)}) {
    for (int i = 0; i < 4; ++i) q->Put(new Item(0, i));
    q->Get();  // the FIFO now holds elements in its output chain too
    q->Put(new Item(0, 9));
    q->Clear();
    EXPECT_EQ(q->Count(), 0);
    EXPECT_THROW(q->Get(), NoSuchElementException);
    for (int i = 0; i < 4; ++i) q->Put(new Item(0, i));  // released with the queue (TearDown)
  }
}

// The stress tests count every element: each (producer, seq) must come out exactly once, and a
// consumer must see each producer's elements in the order they were put (the stack: any order).
constexpr int kProducers = 3;

struct Tally {
  explicit Tally(int per_producer) : per(per_producer), seen(kProducers * per_producer) {}
  void Saw(const Object& o) { seen[I(o).producer * per + I(o).seq].fetch_add(1); }
  void ExpectEachOnce() {
    EXPECT_EQ(std::count_if(seen.begin(), seen.end(), [](auto& s) { return s.load() != 1; }), 0);
  }
  int per;
  std::vector<std::atomic<int>> seen;
};

// Starts a thread per producer that hands its elements `first` to `first + count - 1` to `put`.
template <class Put>
void StartProducers(std::vector<std::thread>& threads, int first, int count, Put put) {
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([=] {
      for (int i = first; i < first + count; ++i) put(Object(new Item(p, i)));
    });
  }
}

// Many producers, one concurrent consumer: the most the stack supports, as a Get reads the top
// cell's link before its exchange and only a Get frees cells.
TEST_F(Queues, StackStressManyProducersOneConsumer) {
  constexpr int kPer = 20000;
  Ref<QueueItf> q = QueueExp::MakeLIFO();
  Tally tally(kPer);
  std::vector<std::thread> threads;
  StartProducers(threads, 0, kPer, [&q](const Object& item) { q->Put(item); });
  threads.emplace_back([&] {
    // Count rises only once an element is on the stack and falls only here.
    for (int got = 0; got < kProducers * kPer;) {
      if (q->Count() > 0) tally.Saw(q->Get()), ++got;
    }
  });
  for (auto& t : threads) t.join();
  EXPECT_EQ(q->Count(), 0);
  tally.ExpectEachOnce();
}

// Producers against each other, then one consumer, in turns: a Put while Get drains the stack
// would keep the consumer spinning for good.
TEST_F(Queues, FifoStressProducersThenConsumer) {
  constexpr int kRounds = 10, kPerRound = 1000;
  Ref<QueueItf> q = QueueExp::MakeFIFO();
  Tally tally(kRounds * kPerRound);
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> producers;
    StartProducers(producers, round * kPerRound, kPerRound,
                   [&q](const Object& item) { q->Put(item); });
    for (auto& t : producers) t.join();
    std::vector<int> last(kProducers, -1);  // taken on this thread
    for (int i = 0; i < kProducers * kPerRound; ++i) {
      Object o = q->Get();
      EXPECT_GT(I(o).seq, std::exchange(last[I(o).producer], I(o).seq));
      tally.Saw(o);
    }
    EXPECT_THROW(q->Get(), NoSuchElementException);
  }
  tally.ExpectEachOnce();
}

// Many producers and consumers at once on a small ring that fills, empties and wraps constantly.
TEST_F(Queues, RingStressManyProducersManyConsumers) {
  constexpr int kPer = 20000, kConsumers = 3;
  Ref<QueueItf> q = QueueExp::MakeFIFO(8);
  Tally tally(kPer);
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  StartProducers(threads, 0, kPer, [&q](const Object& item) {
    while (!q->Put(item)) std::this_thread::yield();
  });
  for (int c = 0; c < kConsumers; ++c) {
    threads.emplace_back([&] {
      std::vector<int> last(kProducers, -1);
      while (taken.load() < kProducers * kPer) {
        Object o;
        try {
          o = q->Get();
        } catch (const NoSuchElementException&) {
          std::this_thread::yield();
          continue;
        }
        taken.fetch_add(1);
        // Positions are claimed in order, so one consumer sees each producer's elements in order.
        EXPECT_GT(I(o).seq, std::exchange(last[I(o).producer], I(o).seq));
        tally.Saw(o);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(q->Count(), 0);
  tally.ExpectEachOnce();
}

}  // namespace kiv
