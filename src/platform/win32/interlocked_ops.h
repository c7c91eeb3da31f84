// The read-modify-write interlocked operations, as the system's Interlocked... calls (compiler
// intrinsics on x64; each is a full barrier). The intrinsics work on the system's 32-bit `long`;
// the library's words are `std::int32_t`, the same size and representation.
//
// Only <intrin.h> is included, not <windows.h>: this header reaches every subsystem, and the
// system header's macros (GetEnvironmentVariable, ReplaceFile, min, max, ...) would rename the
// library's own functions.
#ifndef KIV_PLATFORM_WIN32_INTERLOCKED_OPS_H_
#define KIV_PLATFORM_WIN32_INTERLOCKED_OPS_H_

#include <intrin.h>

#include <cstdint>

namespace kiv::platform {

static_assert(sizeof(long) == sizeof(std::int32_t), "the interlocked calls take 32-bit longs");

namespace interlocked_detail {
inline volatile long* Word(std::int32_t* word) noexcept {
  return reinterpret_cast<volatile long*>(word);
}
}  // namespace interlocked_detail

// Each returns the new value.
inline std::int32_t InterlockedIncrement(std::int32_t* word) noexcept {
  return _InterlockedIncrement(interlocked_detail::Word(word));
}
inline std::int32_t InterlockedDecrement(std::int32_t* word) noexcept {
  return _InterlockedDecrement(interlocked_detail::Word(word));
}
// Returns the value before the addition.
inline std::int32_t InterlockedExchangeAdd(std::int32_t* word, std::int32_t delta) noexcept {
  return _InterlockedExchangeAdd(interlocked_detail::Word(word), delta);
}
// Returns the value the word held before; stores `desired` only if that was `expected`.
inline std::int32_t InterlockedCompareExchange(std::int32_t* word, std::int32_t desired,
                                               std::int32_t expected) noexcept {
  return _InterlockedCompareExchange(interlocked_detail::Word(word), desired, expected);
}
// Pointer-sized compare-exchange: returns the value the slot held before.
inline void* InterlockedCompareExchangePointer(void** slot, void* desired,
                                               void* expected) noexcept {
  return _InterlockedCompareExchangePointer(reinterpret_cast<void* volatile*>(slot), desired,
                                            expected);
}
// Stores `value` and returns the previous pointer, in one interlocked exchange.
inline void* InterlockedExchangePointer(void** slot, void* value) noexcept {
  return _InterlockedExchangePointer(reinterpret_cast<void* volatile*>(slot), value);
}
template <class T>
inline T* InterlockedCompareExchangePointer(T** slot, T* desired, T* expected) noexcept {
  return static_cast<T*>(_InterlockedCompareExchangePointer(reinterpret_cast<void* volatile*>(slot),
                                                            static_cast<void*>(desired),
                                                            static_cast<void*>(expected)));
}

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_WIN32_INTERLOCKED_OPS_H_
