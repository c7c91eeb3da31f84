#include "core/locks_impl.h"

#include <atomic>

#include "platform/interlocked.h"

namespace kiv {

static_assert(kWaitObject0 == platform::kEventSignalled &&
                  kWaitTimeout == platform::kEventTimeout && kWaitFailed == platform::kEventFailed,
              "wait results must pass through unchanged");

ObjectLockItf::~ObjectLockItf() = default;
ConditionItf::~ConditionItf() = default;

namespace {
std::uintptr_t LoadOwner(const std::uintptr_t* owner) noexcept {
  return std::atomic_ref<std::uintptr_t>(*const_cast<std::uintptr_t*>(owner))
      .load(std::memory_order_relaxed);
}
void StoreOwner(std::uintptr_t* owner, std::uintptr_t value) noexcept {
  std::atomic_ref<std::uintptr_t>(*owner).store(value, std::memory_order_relaxed);
}
}  // namespace

void WinLock::Own(std::uintptr_t self) noexcept {
  StoreOwner(&owner_, self);
  depth_ = 1;
}

void WinLock::Lock(std::int64_t /*timeout*/) {
  const std::uintptr_t self = platform::CurrentThreadId();
  if (platform::InterlockedIncrement(&users_) > 1) {
    if (LoadOwner(&owner_) == self) {
      ++depth_;
      return;
    }
    handoff_.Wait();
  }
  Own(self);
}

bool WinLock::TryLock() {
  if (platform::InterlockedCompareExchange(&users_, 1, 0) != 0) return false;
  Own(platform::CurrentThreadId());
  return true;
}

void WinLock::Unlock() {
  // Leaving a section the caller does not hold leaves it untouched; the count still goes down,
  // as it does after every Unlock.
  bool passes_on = false;
  if (LoadOwner(&owner_) == platform::CurrentThreadId() && --depth_ == 0) {
    StoreOwner(&owner_, 0);
    passes_on = true;
  }
  // Once the count is down, a new holder may already be writing `owner_` and `depth_`: neither is
  // read after this point.
  if (platform::InterlockedDecrement(&users_) > 0 && passes_on) handoff_.Post();
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
