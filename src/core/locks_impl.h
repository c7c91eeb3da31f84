// The lock and condition implementations: a re-entrant lock over an interlocked count and the
// platform's semaphore, and conditions over the platform's auto-reset events.
#ifndef KIV_SRC_CORE_LOCKS_IMPL_H_
#define KIV_SRC_CORE_LOCKS_IMPL_H_

#include <cstdint>

#include "kiv/locks.h"
#include "platform/event.h"
#include "platform/semaphore.h"

namespace kiv {

// A re-entrant lock. `users_` counts the threads that hold the lock or wait for it: every Lock
// adds one, the holder's nested Locks included, and every Unlock takes one away. That is what
// makes TryLock refuse whenever anyone is involved, the calling holder included.
//
// The same count is also the lock's gate, so an uncontended Lock and Unlock each cost the one
// interlocked operation on `users_` and nothing more: a Lock that raises the count from 0 owns the
// lock at once; one that finds others counted either is the holder (and only nests deeper) or
// sleeps on `handoff_`. The last Unlock of the holder posts `handoff_` when its decrement leaves
// anyone counted, which passes the lock straight to one sleeper (a post that comes before its
// sleeper's wait is kept by the semaphore's count). Callers see exactly a critical section entered
// after the count is raised and left before it is lowered.
class WinLock final : public ObjectLockItf {
 public:
  using ObjectLockItf::Lock;
  void Lock(std::int64_t timeout) override;
  bool TryLock() override;
  void Unlock() override;

 private:
  // Makes the calling thread the holder, one level deep.
  void Own(std::uintptr_t self) noexcept;

  std::int32_t users_ = 0;
  // The holding thread, 0 when none. Only the holder writes it; another thread reading it can only
  // ever see a value other than its own identity, which is all it looks for.
  std::uintptr_t owner_ = 0;
  // Levels of Lock the holder has not yet matched with Unlock; only the holder touches it.
  std::int32_t depth_ = 0;
  platform::Semaphore handoff_;
};

// An auto-reset event. Expect and Reset do nothing.
class WinCondition final : public ConditionItf {
 public:
  WinCondition() noexcept;
  ~WinCondition() override;
  WinCondition(const WinCondition&) = delete;
  WinCondition& operator=(const WinCondition&) = delete;

  void Expect() override;
  std::uint32_t Wait(std::int64_t timeout) override;
  void Reset() override;
  void Signal() override;

 private:
  // Null when the platform could not make the event; waits then report kWaitFailed.
  platform::Event* event_;
};

// Signals `inner_` once as many signals have arrived as were announced by Expect.
class MultiSignalConditionImpl final : public ConditionItf {
 public:
  explicit MultiSignalConditionImpl(const Ref<ConditionItf>& inner) noexcept : inner_(inner) {}

  void Expect() override;
  std::uint32_t Wait(std::int64_t timeout) override;
  void Reset() override;
  void Signal() override;

 private:
  Ref<ConditionItf> inner_;
  std::int32_t expected_ = 0;
  std::int32_t received_ = 0;
  // Set by the first of several concurrent Reset calls, so that only it resets `inner_`; the
  // next Expect clears it.
  std::int32_t reset_done_ = 0;
};

// The object of the process-wide lock's singleton.
class ToolboxLock final : public RefCount {
 public:
  ToolboxLock() : lock_(ObjectLockExp::Make()) {}
  const ObjectLock& GetLock() const noexcept { return lock_; }

 private:
  ObjectLock lock_;
};

// The holder of the ToolboxLock singleton; built on first use, not fatal when building fails.
class ToolboxLockHolder final : public StaticRef<ToolboxLock, ToolboxLockHolder> {
 public:
  static ToolboxLock* Make() { return new ToolboxLock(); }
};

}  // namespace kiv

#endif  // KIV_SRC_CORE_LOCKS_IMPL_H_
