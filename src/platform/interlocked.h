// Interlocked operations on 32-bit words and pointer slots. Every count, handle slot, singleton
// slot and lock-free queue of the library goes through these.
//
// The read-modify-write operations (increment, decrement, exchange-add, compare-exchange, pointer
// exchange) are the system's own, from the folder of each system; plain loads and stores, and the
// fully ordered forms, are the same everywhere and live here.
#ifndef KIV_PLATFORM_INTERLOCKED_H_
#define KIV_PLATFORM_INTERLOCKED_H_

#include <atomic>
#include <cstdint>

#if defined(_WIN32)
#include "platform/win32/interlocked_ops.h"
#else
#include "platform/posix/interlocked_ops.h"
#endif

namespace kiv::platform {

inline std::int32_t InterlockedLoad(const std::int32_t* word) noexcept {
  return std::atomic_ref<std::int32_t>(*const_cast<std::int32_t*>(word))
      .load(std::memory_order_acquire);
}
inline void InterlockedStore(std::int32_t* word, std::int32_t value) noexcept {
  std::atomic_ref<std::int32_t>(*word).store(value, std::memory_order_release);
}

inline void* InterlockedLoadPointer(void* const* slot) noexcept {
  return std::atomic_ref<void*>(*const_cast<void**>(slot)).load(std::memory_order_acquire);
}

// Typed forms of the pointer slot operations, so that callers keep their own pointer types (the
// typed compare-exchange comes with the system's operations).
template <class T>
inline T* InterlockedLoadPointer(T* const* slot) noexcept {
  return std::atomic_ref<T*>(*const_cast<T**>(slot)).load(std::memory_order_acquire);
}
template <class T>
inline void InterlockedStorePointer(T** slot, T* value) noexcept {
  std::atomic_ref<T*>(*slot).store(value, std::memory_order_release);
}

// Fully ordered forms (one total order over every word they touch, like the full barriers of the
// original interlocked calls). Needed where a thread stores one word and then reads another that a
// second thread stores, each expecting to see the other's store (the bounded queue's flags).
inline std::int32_t InterlockedCompareExchangeFull(std::int32_t* word, std::int32_t desired,
                                                   std::int32_t expected) noexcept {
  std::atomic_ref<std::int32_t>(*word).compare_exchange_strong(expected, desired,
                                                               std::memory_order_seq_cst);
  return expected;
}
inline std::int32_t InterlockedLoadFull(const std::int32_t* word) noexcept {
  return std::atomic_ref<std::int32_t>(*const_cast<std::int32_t*>(word))
      .load(std::memory_order_seq_cst);
}
inline std::uint8_t InterlockedLoadFlag(const std::uint8_t* flag) noexcept {
  return std::atomic_ref<std::uint8_t>(*const_cast<std::uint8_t*>(flag))
      .load(std::memory_order_seq_cst);
}
inline void InterlockedStoreFlag(std::uint8_t* flag, std::uint8_t value) noexcept {
  std::atomic_ref<std::uint8_t>(*flag).store(value, std::memory_order_seq_cst);
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_INTERLOCKED_H_
