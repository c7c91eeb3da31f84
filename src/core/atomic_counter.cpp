#include <new>

#include "kiv/object.h"
#include "platform/interlocked.h"

namespace kiv {

using platform::InterlockedCompareExchange;
using platform::InterlockedDecrement;
using platform::InterlockedExchangeAdd;
using platform::InterlockedIncrement;

void AtomicCounter::Add(std::int32_t n) noexcept { InterlockedExchangeAdd(&value_, n); }
AtomicCounter& AtomicCounter::operator+=(std::int32_t n) noexcept {
  Add(n);
  return *this;
}
AtomicCounter& AtomicCounter::operator+=(const AtomicCounter& n) noexcept {
  Add(n.value_);
  return *this;
}
void AtomicCounter::Subtract(std::int32_t n) noexcept {
  // Negation in unsigned arithmetic: subtracting INT32_MIN must not overflow.
  InterlockedExchangeAdd(&value_, static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(n)));
}
AtomicCounter& AtomicCounter::operator-=(std::int32_t n) noexcept {
  Subtract(n);
  return *this;
}
AtomicCounter& AtomicCounter::operator-=(const AtomicCounter& n) noexcept {
  Subtract(n.value_);
  return *this;
}
void AtomicCounter::Increment() noexcept { InterlockedIncrement(&value_); }
AtomicCounter& AtomicCounter::operator++() noexcept {
  Increment();
  return *this;
}
AtomicCounter& AtomicCounter::operator++(int) noexcept {
  Increment();
  return *this;
}
void AtomicCounter::Decrement() noexcept { InterlockedDecrement(&value_); }
AtomicCounter& AtomicCounter::operator--() noexcept {
  Decrement();
  return *this;
}
AtomicCounter& AtomicCounter::operator--(int) noexcept {
  Decrement();
  return *this;
}

int AtomicCounter::SubtractAndTestZero(std::int32_t n) noexcept {
  std::uint32_t old = static_cast<std::uint32_t>(InterlockedExchangeAdd(
      &value_, static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(n))));
  return old == static_cast<std::uint32_t>(n) ? 1 : 0;
}
int AtomicCounter::DecrementAndTestZero() noexcept {
  return InterlockedDecrement(&value_) == 0 ? 1 : 0;
}
int AtomicCounter::IncrementAndTestZero() noexcept {
  return InterlockedIncrement(&value_) == 0 ? 1 : 0;
}
int AtomicCounter::AddAndTestNegative(std::int32_t n) noexcept {
  std::uint32_t now = static_cast<std::uint32_t>(InterlockedExchangeAdd(&value_, n)) +
                      static_cast<std::uint32_t>(n);
  return static_cast<std::int32_t>(now) < 0 ? 1 : 0;
}
int AtomicCounter::TestAndSet(std::int32_t new_value, std::int32_t expected) noexcept {
  return InterlockedCompareExchange(&value_, new_value, expected) == expected ? 1 : 0;
}

void* AtomicCounter::operator new(std::size_t size) { return ::operator new(size); }
void AtomicCounter::operator delete(void* p) noexcept { ::operator delete(p); }
void* AtomicCounter::operator new[](std::size_t size) { return ::operator new[](size); }
void AtomicCounter::operator delete[](void* p) noexcept { ::operator delete[](p); }

std::int32_t AtomicAdd(std::int32_t* word, std::int32_t delta) noexcept {
  // A compare-exchange loop, as documented: retry until no other writer intervened.
  std::int32_t seen = platform::InterlockedLoad(word);
  for (;;) {
    std::int32_t next = static_cast<std::int32_t>(static_cast<std::uint32_t>(seen) +
                                                  static_cast<std::uint32_t>(delta));
    std::int32_t found = InterlockedCompareExchange(word, next, seen);
    if (found == seen) return next;
    seen = found;
  }
}

std::int32_t CompareAndSwap(std::int32_t* word, std::int32_t new_value,
                            std::int32_t expected) noexcept {
  return InterlockedCompareExchange(word, new_value, expected);
}

}  // namespace kiv
