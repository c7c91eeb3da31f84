// The read-modify-write interlocked operations, over the language's atomics.
#ifndef KIV_PLATFORM_POSIX_INTERLOCKED_OPS_H_
#define KIV_PLATFORM_POSIX_INTERLOCKED_OPS_H_

#include <atomic>
#include <cstdint>

namespace kiv::platform {

// Each returns the new value.
inline std::int32_t InterlockedIncrement(std::int32_t* word) noexcept {
  return std::atomic_ref<std::int32_t>(*word).fetch_add(1, std::memory_order_acq_rel) + 1;
}
inline std::int32_t InterlockedDecrement(std::int32_t* word) noexcept {
  return std::atomic_ref<std::int32_t>(*word).fetch_sub(1, std::memory_order_acq_rel) - 1;
}
// Returns the value before the addition.
inline std::int32_t InterlockedExchangeAdd(std::int32_t* word, std::int32_t delta) noexcept {
  return std::atomic_ref<std::int32_t>(*word).fetch_add(delta, std::memory_order_acq_rel);
}
// Returns the value the word held before; stores `desired` only if that was `expected`.
inline std::int32_t InterlockedCompareExchange(std::int32_t* word, std::int32_t desired,
                                               std::int32_t expected) noexcept {
  std::atomic_ref<std::int32_t>(*word).compare_exchange_strong(expected, desired,
                                                               std::memory_order_acq_rel);
  return expected;
}
// Pointer-sized compare-exchange: returns the value the slot held before.
inline void* InterlockedCompareExchangePointer(void** slot, void* desired,
                                               void* expected) noexcept {
  std::atomic_ref<void*>(*slot).compare_exchange_strong(expected, desired,
                                                        std::memory_order_acq_rel);
  return expected;
}
// Stores `value` and returns the previous pointer, in one interlocked exchange.
inline void* InterlockedExchangePointer(void** slot, void* value) noexcept {
  return std::atomic_ref<void*>(*slot).exchange(value, std::memory_order_acq_rel);
}
template <class T>
inline T* InterlockedCompareExchangePointer(T** slot, T* desired, T* expected) noexcept {
  std::atomic_ref<T*>(*slot).compare_exchange_strong(expected, desired, std::memory_order_acq_rel);
  return expected;
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_POSIX_INTERLOCKED_OPS_H_
