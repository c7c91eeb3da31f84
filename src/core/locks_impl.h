// The lock and condition implementations: thin layers over the platform's critical sections and
// auto-reset events.
#ifndef KIV_SRC_CORE_LOCKS_IMPL_H_
#define KIV_SRC_CORE_LOCKS_IMPL_H_

#include <cstdint>

#include "kiv/locks.h"
#include "platform/critical_section.h"
#include "platform/event.h"

namespace kiv {

// A re-entrant lock over a critical section. `users_` counts the threads that hold the lock or
// wait for it (the holder once, however deep its recursion), which is what makes TryLock refuse
// whenever anyone is involved, the calling holder included.
class WinLock final : public ObjectLockItf {
 public:
  using ObjectLockItf::Lock;
  void Lock(std::int64_t timeout) override;
  bool TryLock() override;
  void Unlock() override;

 private:
  platform::CriticalSection section_;
  AtomicCounter users_;
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
