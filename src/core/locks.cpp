#include "core/locks_impl.h"

#include "platform/interlocked.h"

namespace kiv {

static_assert(kWaitObject0 == platform::kEventSignalled &&
                  kWaitTimeout == platform::kEventTimeout && kWaitFailed == platform::kEventFailed,
              "wait results must pass through unchanged");

ObjectLockItf::~ObjectLockItf() = default;
ConditionItf::~ConditionItf() = default;

void WinLock::Lock(std::int64_t /*timeout*/) {
  users_.Increment();
  section_.Enter();
}

bool WinLock::TryLock() {
  if (!users_.TestAndSet(1, 0)) return false;
  // Nobody holds or waits, and Unlock leaves the section before it counts down: this cannot
  // block.
  section_.Enter();
  return true;
}

void WinLock::Unlock() {
  section_.Leave();
  users_.Decrement();
}

WinCondition::WinCondition() noexcept : event_(platform::NewEvent()) {}

WinCondition::~WinCondition() { platform::DeleteEvent(event_); }

void WinCondition::Expect() {}

void WinCondition::Reset() {}

std::uint32_t WinCondition::Wait(std::int64_t timeout) {
  if (timeout == 0) return kWaitObject0;
  if (timeout < 0) return platform::WaitEvent(event_, platform::kWaitNoLimit);
  return platform::WaitEvent(event_, static_cast<std::uint32_t>(timeout));
}

void WinCondition::Signal() { platform::SignalEvent(event_); }

void MultiSignalConditionImpl::Expect() {
  platform::InterlockedStore(&reset_done_, 0);
  if (platform::InterlockedIncrement(&expected_) == 1) inner_->Expect();
}

std::uint32_t MultiSignalConditionImpl::Wait(std::int64_t timeout) { return inner_->Wait(timeout); }

void MultiSignalConditionImpl::Signal() {
  // `expected_` is read after the addition, so the signal that completes the count fires the
  // inner condition even when Expect calls raced with the earlier signals.
  std::int32_t received = platform::InterlockedIncrement(&received_);
  if (received == platform::InterlockedLoad(&expected_)) inner_->Signal();
}

void MultiSignalConditionImpl::Reset() {
  if (platform::InterlockedCompareExchange(&reset_done_, 1, 0) == 0) inner_->Reset();
  // Not atomic with a concurrent Expect or Signal: callers reset only while nobody signals.
  platform::InterlockedStore(&received_, 0);
  platform::InterlockedStore(&expected_, 0);
}

ObjectLock ObjectLockExp::Make() { return ObjectLock(new WinLock()); }

Condition ConditionExp::Make() { return Condition(new WinCondition()); }

Condition MultiSignalConditionExp::Make(Condition& inner) {
  return Condition(new MultiSignalConditionImpl(inner));
}

ObjectLock ToolboxCriticalSectionExp::MakeLock() {
  // Zero-filled before the program starts, as the holder requires; built on the first call.
  static ToolboxLockHolder holder;
  return holder.Get()->GetLock();
}

}  // namespace kiv
