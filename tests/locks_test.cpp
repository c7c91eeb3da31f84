#include <kiv/locks.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace kiv {
namespace {

using std::chrono::milliseconds;

// A timeout whose low 32 bits are 0: the wait only looks at the condition.
constexpr std::int64_t kLookOnly = std::int64_t{1} << 32;

// Spins until `pred` holds; the 10 s limit only bounds a broken run.
template <class Pred>
bool Eventually(Pred pred) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!pred() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  return pred();
}

TEST(ObjectLockTest, ReentrantWithStrictTryLock) {
  ObjectLock lock = ObjectLockExp::Make();
  EXPECT_TRUE(lock->TryLock());
  EXPECT_FALSE(lock->TryLock());  // the holder itself is refused
  lock->Lock(0);                  // but may lock again; the timeout is ignored
  lock->Unlock();
  auto other_gets_it = [&] {
    bool got = false;
    std::thread([&] { got = lock->TryLock() && (lock->Unlock(), true); }).join();
    return got;
  };
  EXPECT_FALSE(other_gets_it());
  lock->Unlock();
  EXPECT_TRUE(other_gets_it());
  EXPECT_TRUE(lock->TryLock());
  lock->Unlock();
}

TEST(ObjectLockTest, ExcludesOtherThreads) {
  // Nested locking under contention keeps a plain counter exact.
  ObjectLock lock = ObjectLockExp::Make();
  int counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        lock->Lock();
        ObjectLockGuard nested(lock);
        ++counter;
        lock->Unlock();
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 8000);
  EXPECT_TRUE(lock->TryLock());  // every Lock was matched: nobody is counted any more
  lock->Unlock();

  EXPECT_THROW(ObjectLockGuard{ObjectLock()}, NullPointerException);
}

TEST(ConditionTest, ZeroAndTruncatedTimeouts) {
  Condition cond = ConditionExp::Make();
  EXPECT_EQ(cond->Wait(0), kWaitObject0);  // never signalled, still success
  EXPECT_EQ(cond->Wait(kLookOnly), kWaitTimeout);
  EXPECT_EQ(cond->Wait(kLookOnly + 5), kWaitTimeout);  // 5 ms, not 2^32 + 5
  EXPECT_EQ(cond->Wait(1), kWaitTimeout);
  // A signal with nobody waiting stays set; Wait(0) does not consume it; signals don't count.
  cond->Signal();
  cond->Signal();
  EXPECT_EQ(cond->Wait(0), kWaitObject0);
  EXPECT_EQ(cond->Wait(kLookOnly), kWaitObject0);
  EXPECT_EQ(cond->Wait(kLookOnly), kWaitTimeout);
  cond->Signal();
  EXPECT_EQ(cond->Wait(kWaitForever), kWaitObject0);
}

TEST(ConditionTest, EachSignalReleasesOneWaiter) {
  Condition cond = ConditionExp::Make();
  std::atomic<int> woken{0}, timed_out{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&] { ++(cond->Wait(10000) == kWaitObject0 ? woken : timed_out); });
  }
  cond->Signal();
  ASSERT_TRUE(Eventually([&] { return woken == 1; }));
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(woken, 1);  // the event cleared itself behind the first waiter
  cond->Signal();
  ASSERT_TRUE(Eventually([&] { return woken == 2; }));
  for (auto& t : waiters) t.join();
  EXPECT_EQ(timed_out, 0);
  EXPECT_EQ(cond->Wait(kLookOnly), kWaitTimeout);
}

TEST(MultiSignalConditionTest, FiresOnTheLastAnnouncedSignal) {
  Condition inner = ConditionExp::Make();
  Condition multi = MultiSignalConditionExp::Make(inner);
  for (int i = 0; i < 3; ++i) multi->Expect();
  multi->Signal();
  multi->Signal();
  EXPECT_EQ(multi->Wait(kLookOnly), kWaitTimeout);
  multi->Signal();
  EXPECT_EQ(multi->Wait(kLookOnly), kWaitObject0);
  multi->Signal();  // one more than announced reaches nothing
  EXPECT_EQ(inner->Wait(kLookOnly), kWaitTimeout);
  multi->Reset();
  multi->Signal();  // nothing announced since the reset
  EXPECT_EQ(inner->Wait(kLookOnly), kWaitTimeout);
  // Many signalling threads: exactly one inner signal, after the last of them.
  multi->Reset();
  for (int i = 0; i < 4 * 500; ++i) multi->Expect();
  std::vector<std::thread> signallers;
  for (int t = 0; t < 4; ++t) {
    signallers.emplace_back([&] {
      for (int i = 0; i < 500; ++i) multi->Signal();
    });
  }
  EXPECT_EQ(multi->Wait(10000), kWaitObject0);
  for (auto& t : signallers) t.join();
  EXPECT_EQ(inner->Wait(kLookOnly), kWaitTimeout);

  Condition none;
  Condition broken = MultiSignalConditionExp::Make(none);
  EXPECT_EQ(testing::ThrownText<NullPointerException>([&] { broken->Expect(); }),
            "kiv::NullPointerException - kiv::ConditionItf");
}

TEST(ToolboxLockTest, OneLockForTheProcess) {
  ObjectLock a = ToolboxCriticalSectionExp::MakeLock();
  ObjectLock b = ToolboxCriticalSectionExp::MakeLock();
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == ObjectLockExp::Make());
  ASSERT_TRUE(a->TryLock());
  EXPECT_FALSE(b->TryLock());
  a->Unlock();
}

}  // namespace
}  // namespace kiv
