#include <kiv/exception.h>
#include <kiv/object.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace kiv {

// Test interfaces and objects live in kiv so that their short names read "kiv::...".
struct ProbeItf : public virtual RefCount {
  virtual int Value() const = 0;
};
struct OtherItf : public virtual RefCount {};

class Probe : public ProbeItf {
 public:
  explicit Probe(std::atomic<int>* deaths = nullptr) : deaths_(deaths) {}
  ~Probe() override {
    if (deaths_) ++*deaths_;
  }
  int Value() const override { return 9; }
  std::int32_t Count() const { return GetCount(); }
  using RefCount::SetOuter;

  int revivals = 0;  // Finalize revives the object this many times
  int finalized = 0;
  Ref<ProbeItf> keeper;

 protected:
  void Finalize() override {
    ++finalized;
    if (revivals > 0) --revivals, keeper = this;
  }

 private:
  std::atomic<int>* deaths_;
};

class ThrowingCompare : public RefCount {
 public:
  bool Equals(const RefCount&) const override { throw std::runtime_error("x"); }
  int Compare(const RefCount&) const override { throw std::runtime_error("x"); }
};

struct ProbeHolder : public StaticRef<ProbeItf, ProbeHolder> {
  static inline int made = 0;
  static ProbeItf* Make() { return ++made, new Probe; }
};

struct FailingHolder : public StaticRef<ProbeItf, FailingHolder> {
  FailingHolder() : StaticRef(false) {}
  static ProbeItf* Make() { throw TimeoutException(); }
};

namespace {

TEST(AtomicCounterTest, InterlockedOperationsAndResults) {
  AtomicCounter c;
  c += 5;
  c -= 2;
  AtomicCounter& same = c++;  // the postfix form returns the counter itself, already changed
  EXPECT_EQ(&same, &c);
  EXPECT_EQ(c.Get(), 4);
  EXPECT_EQ(c.SubtractAndTestZero(4), 1);
  EXPECT_EQ(c.IncrementAndTestZero(), 0);
  EXPECT_EQ(c.DecrementAndTestZero(), 1);
  EXPECT_EQ(c.AddAndTestNegative(-1), 1);
  c = 7;
  EXPECT_EQ(c.TestAndSet(5, 7), 1);
  EXPECT_EQ(c.TestAndSet(6, 7), 0);
  EXPECT_EQ(c.Get(), 5);

  std::int32_t word = 10;
  EXPECT_EQ(AtomicAdd(&word, -3), 7);
  EXPECT_EQ(CompareAndSwap(&word, 1, 7), 7);
  EXPECT_EQ(CompareAndSwap(&word, 2, 7), 1);
  EXPECT_EQ(word, 1);
}

TEST(RefCountTest, FinalizeRevivalPartsAndNullSafeComparison) {
  RefCount::AddRef(nullptr);
  RefCount::Release(nullptr);
  std::atomic<int> deaths{0};
  Probe* p = new Probe(&deaths);
  p->revivals = 1;
  { Ref<ProbeItf> only(p); }
  // Finalize took a new reference: still alive, finalised once.
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(p->finalized, 1);
  Probe inner;
  inner.SetOuter(p);
  {
    Ref<ProbeItf> via_inner(&inner);
    EXPECT_EQ(p->Count(), 2);
  }
  EXPECT_EQ(p->Count(), 1);
  Probe a;
  ThrowingCompare t;  // null-safe comparison, which never lets an exception out
  EXPECT_TRUE(RefCount::Equals(nullptr, nullptr));
  EXPECT_FALSE(RefCount::Equals(&a, nullptr));
  EXPECT_EQ(RefCount::Compare(nullptr, &a), -1);
  EXPECT_EQ(RefCount::Compare(&a, nullptr), 1);
  EXPECT_FALSE(RefCount::Equals(&t, &a));
  EXPECT_EQ(RefCount::Compare(&t, &a),
            static_cast<int>(reinterpret_cast<const char*>(static_cast<const RefCount*>(&t)) -
                             reinterpret_cast<const char*>(static_cast<const RefCount*>(&a))));
  Ref<ProbeItf> last = std::move(p->keeper);
  last = nullptr;  // finalises again, and this time the object goes
  EXPECT_EQ(deaths, 1);
}

TEST(HandleTest, AssignmentCastsAndFailures) {
  Probe* p = new Probe;
  Ref<ProbeItf> r(p);
  Ref<ProbeItf>& same = r;
  r = same;  // self-assignment keeps the count
  Object o = r;
  EXPECT_EQ(p->Count(), 2);
  EXPECT_EQ(Ref<ProbeItf>(o).Get(), p);
  EXPECT_TRUE(!Ref<ProbeItf>(Object()));
  EXPECT_THROW(Ref<OtherItf>{o}, BadCastException);
  Ref<ProbeItf> none;
  EXPECT_EQ(testing::ThrownText<NullPointerException>([&] { none->Value(); }),
            "kiv::NullPointerException - kiv::ProbeItf");
  EXPECT_THROW(NewFailedHandler(16), MemoryException);
  EXPECT_THROW(NewFailedNewHandler(), std::bad_alloc);
}

TEST(ClassNameTest, NarrowWideAndRawTypeNames) {
  Probe p;
  char narrow[64];
  EXPECT_EQ(p.GetClassName(narrow, sizeof narrow), 10u);
  EXPECT_STREQ(narrow, "kiv::Probe");
  EXPECT_EQ(p.GetClassName(narrow, 1), 0u);
  EXPECT_EQ(narrow[0], '\0');
  // The 16-bit form counts bytes, not characters.
  unsigned short wide[64];
  EXPECT_EQ(p.GetClassName(wide, sizeof wide), 20u);
  EXPECT_EQ(wide[10], 0);
  EXPECT_EQ(p.GetClassName(wide, 8), 6u);  // room for 3 characters and the terminator

  char out[64];
  EXPECT_EQ(RTTI2ClassName(out, sizeof out, "class kiv::RefCount *"), 13u);
  EXPECT_STREQ(out, "kiv::RefCount");
  RTTI2ClassName(out, sizeof out, "class kiv::Ref<struct kiv::StringItf>");
  EXPECT_STREQ(out, "kiv::Ref<struct");
}

TEST(StaticRefTest, BuiltOnceAndUnusableAfterTeardown) {
  // Holders live in zero-filled static storage; these get the same.
  alignas(ProbeHolder) unsigned char storage[sizeof(ProbeHolder)] = {};
  auto* holder = new (storage) ProbeHolder();
  Ref<ProbeItf> a = holder->Get();
  EXPECT_TRUE(a == holder->Get());
  EXPECT_EQ(ProbeHolder::made, 1);
  holder->~ProbeHolder();
  EXPECT_EQ(a->Value(), 9);  // released by the holder but still held here
  try {
    holder->Get();
    FAIL();
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "kiv::ProbeHolder");
  }

  testing::ScopedTempDir dir;
  alignas(FailingHolder) unsigned char failing[sizeof(FailingHolder)] = {};
  EXPECT_THROW(new (failing) FailingHolder(), TimeoutException);
  EXPECT_EQ(testing::ReadTextFile("static_const_errs.txt"),
            "static construction exception within kiv::FailingHolder: kiv::TimeoutException\n");
}

TEST(HandleTest, ConcurrentAssignmentKeepsCountsExact) {
  std::atomic<int> deaths{0};
  constexpr int kObjects = 4;
  Ref<ProbeItf> shared;
  std::vector<Ref<ProbeItf>> owners;
  for (int i = 0; i < kObjects; ++i) owners.emplace_back(new Probe(&deaths));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      // Only assignment is concurrent: reading a slot that another thread is assigning is not
      // part of the handle's contract.
      for (int i = 0; i < 20000; ++i) shared = owners[(i + t) % kObjects];
    });
  }
  for (auto& th : threads) th.join();
  for (const Ref<ProbeItf>& owner : owners) {
    EXPECT_EQ(static_cast<Probe*>(owner.Get())->Count(), owner.Get() == shared.Get() ? 2 : 1);
  }
  owners.clear();
  EXPECT_EQ(deaths, kObjects - 1);
  shared = nullptr;
  EXPECT_EQ(deaths, kObjects);

  // Whichever thread drops the last handle of a string frees it, after every other thread's use.
  String text = testing::Wide("ab") + testing::Wide("cd");
  std::atomic<bool> go{false};
  for (int t = 0; t < 4; ++t) {
    threads[t] = std::thread([copy = text, &go] {
      while (!go) std::this_thread::yield();
      EXPECT_EQ(copy->Length(), 4u);
    });
  }
  text = String();
  go = true;
  for (auto& th : threads) th.join();
}

}  // namespace
}  // namespace kiv
