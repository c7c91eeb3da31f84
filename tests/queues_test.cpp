#include <kiv/exception.h>
#include <kiv/queues.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kiv {

// A counted element that records who made it and in which order.
class Item : public RefCount {
 public:
  Item(int producer, int seq) : producer(producer), seq(seq) { ++live; }
  ~Item() override { --live; }
  const int producer;
  const int seq;
  static inline std::atomic<int> live{0};
};

const Item& I(const Object& o) { return *dynamic_cast<const Item*>(o.Get()); }
int V(const Object& o) { return I(o).seq; }

class Queues : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(Item::live.load(), 0); }
};

TEST_F(Queues, Orders) {
  Ref<QueueItf> lifo = QueueExp::MakeLIFO();
  lifo->Put(new Item(0, 1));
  lifo->Put(new Item(0, 2));
  EXPECT_EQ(lifo->Count(), 2);
  EXPECT_EQ(V(lifo->Get()), 2);
  lifo->Put(new Item(0, 3));
  EXPECT_EQ(V(lifo->Get()), 3);
  EXPECT_EQ(V(lifo->Get()), 1);

  // Elements put since the last Get go ahead of those left from an earlier drain.
  Ref<QueueItf> fifo = QueueExp::MakeFIFO();
  fifo->Put(new Item(0, 1));
  fifo->Put(new Item(0, 2));
  EXPECT_EQ(V(fifo->Get()), 1);
  fifo->Put(new Item(0, 3));
  EXPECT_EQ(fifo->Count(), 2);
  EXPECT_EQ(V(fifo->Get()), 3);
  EXPECT_EQ(V(fifo->Get()), 2);

  // The ring keeps strict order across many laps.
  Ref<QueueItf> ring = QueueExp::MakeFIFO(3);
  int next_in = 0, next_out = 0;
  for (int round = 0; round < 100; ++round) {
    while (ring->Put(new Item(0, next_in))) ++next_in;
    EXPECT_EQ(ring->Count(), 3);
    for (int k = round % 3; k >= 0; --k) EXPECT_EQ(V(ring->Get()), next_out++);
  }
  while (ring->Count() > 0) EXPECT_EQ(V(ring->Get()), next_out++);
  EXPECT_EQ(next_out, next_in);

  for (Ref<QueueItf> q : {lifo, fifo, ring}) {
    EXPECT_THROW(q->Get(), NoSuchElementException);
  }
}

TEST_F(Queues, BoundsClearAndDrop) {
  Ref<QueueItf> two = QueueExp::MakeFIFO(2);
  EXPECT_TRUE(two->Put(new Item(0, 1)));
  EXPECT_TRUE(two->Put(new Item(0, 2)));
  EXPECT_FALSE(two->Put(new Item(0, 3)));
  EXPECT_EQ(V(two->Get()), 1);
  EXPECT_TRUE(two->Put(new Item(0, 4)));
  EXPECT_EQ(two->Count(), 2);

  Ref<QueueItf> none = QueueExp::MakeFIFO(0);
  EXPECT_FALSE(none->Put(new Item(0, 1)));
  EXPECT_THROW(none->Get(), NoSuchElementException);

  std::vector<Ref<QueueItf>> all = {QueueExp::MakeLIFO(), QueueExp::MakeFIFO(),
                                    QueueExp::MakeFIFO(5)};
  for (Ref<QueueItf>& q : all) {
    for (int i = 0; i < 4; ++i) q->Put(new Item(0, i));
    q->Get();  // the FIFO now holds elements in its output chain too
    q->Put(new Item(0, 9));
    q->Clear();
    EXPECT_EQ(q->Count(), 0);
    EXPECT_THROW(q->Get(), NoSuchElementException);
    // Queues dropped with elements in them release them (TearDown checks).
    for (int i = 0; i < 4; ++i) q->Put(new Item(0, i));
    q->Get();
  }
}

// The stress tests below count every element: each (producer, seq) must come out exactly once,
// and each consumer must see one producer's elements in the order they were put (for the stack:
// nothing about order).
constexpr int kProducers = 3;

struct Tally {
  explicit Tally(int per_producer) : per(per_producer), seen(kProducers * per_producer) {}
  void Saw(const Object& o) {
    const Item& item = I(o);
    seen[item.producer * per + item.seq].fetch_add(1);
  }
  void ExpectEachOnce() {
    int wrong = 0;
    for (auto& s : seen) wrong += s.load() != 1;
    EXPECT_EQ(wrong, 0);
  }
  int per;
  std::vector<std::atomic<int>> seen;
};

// Many producers and one concurrent consumer. One consumer is the most the stack supports: a Get
// reads the top cell's link before its exchange, and only a Get frees cells, so with one consumer
// no cell can be freed (or its address reused) between that read and the exchange. Two concurrent
// Gets could each free the cell the other is reading.
TEST_F(Queues, StackStressManyProducersOneConsumer) {
  constexpr int kPer = 20000;
  Ref<QueueItf> q = QueueExp::MakeLIFO();
  Tally tally(kPer);
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kPer; ++i) q->Put(new Item(p, i));
    });
  }
  threads.emplace_back([&] {
    // Count rises only after an element is on the stack and falls only here, so a positive
    // count guarantees this Get finds one.
    for (int got = 0; got < kProducers * kPer;) {
      if (q->Count() > 0) {
        tally.Saw(q->Get());
        ++got;
      }
    }
  });
  for (auto& t : threads) t.join();
  EXPECT_EQ(q->Count(), 0);
  tally.ExpectEachOnce();
}

// Many producers, one consumer, in alternating phases. The queue's Get drains the stack with a
// detach that only succeeds if the top has not moved since it was read; a Put landing in that
// window would keep the consumer spinning for good, so producers are always idle while the
// consumer takes elements. Each phase still runs the producers against each other and hands
// every element to a different thread.
TEST_F(Queues, FifoStressProducersThenConsumer) {
  constexpr int kRounds = 10, kPerRound = 1000;
  Ref<QueueItf> q = QueueExp::MakeFIFO();
  Tally tally(kRounds * kPerRound);
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
      producers.emplace_back([&, p] {
        for (int i = 0; i < kPerRound; ++i) q->Put(new Item(p, round * kPerRound + i));
      });
    }
    for (auto& t : producers) t.join();
    std::thread consumer([&] {
      std::vector<int> last(kProducers, -1);
      for (int i = 0; i < kProducers * kPerRound; ++i) {
        Object o = q->Get();
        EXPECT_GT(I(o).seq, last[I(o).producer]);
        last[I(o).producer] = I(o).seq;
        tally.Saw(o);
      }
      EXPECT_THROW(q->Get(), NoSuchElementException);
    });
    consumer.join();
  }
  tally.ExpectEachOnce();
}

// Many producers and many consumers at once on a small ring, so that it fills, empties and
// wraps constantly.
TEST_F(Queues, RingStressManyProducersManyConsumers) {
  constexpr int kPer = 20000, kConsumers = 3;
  Ref<QueueItf> q = QueueExp::MakeFIFO(8);
  Tally tally(kPer);
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kPer; ++i) {
        Object item = new Item(p, i);
        while (!q->Put(item)) std::this_thread::yield();
      }
    });
  }
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
        EXPECT_GT(I(o).seq, last[I(o).producer]);
        last[I(o).producer] = I(o).seq;
        tally.Saw(o);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(q->Count(), 0);
  tally.ExpectEachOnce();
}

}  // namespace kiv
