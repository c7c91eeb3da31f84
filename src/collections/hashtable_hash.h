// The arithmetic of the flat hashtable: the key hash, the bucket index and the bucket sizing.
// Kept header-only and free of library types so that the table and its tests share one copy.
#ifndef KIV_SRC_COLLECTIONS_HASHTABLE_HASH_H_
#define KIV_SRC_COLLECTIONS_HASHTABLE_HASH_H_

#include <cstdint>

namespace kiv::hashing {

// No table ever has more buckets than this.
inline constexpr std::uint32_t kBucketCeiling = 2048;
// The mask of the largest power of two not above the ceiling.
inline constexpr std::uint32_t kMaxMask = kBucketCeiling - 1;

// The hash of `count` 16-bit units. The arithmetic is that of a signed 32-bit word with
// arithmetic shifts: each step doubles the word, subtracts its upper half and mixes in the unit;
// the upper half is folded in at the end. Stored tables and their dumps depend on the resulting
// bucket order. KEPT: the function exactly as stated.
inline std::uint32_t HashUnits(const unsigned short* units, std::uint32_t count) noexcept {
  if (count == 0) return 0;
  std::uint32_t h = units[0];
  for (std::uint32_t i = 1; i < count; ++i) {
    std::uint32_t high = static_cast<std::uint32_t>(static_cast<std::int32_t>(h) >> 16);
    h = (2u * h - high) ^ units[i];
  }
  return h ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(h) >> 16);
}

// The chain of a hash in a table of mask + 1 buckets, 2^shift of them.
inline std::uint32_t BucketIndex(std::uint32_t hash, std::uint32_t shift,
                                 std::uint32_t mask) noexcept {
  std::uint32_t folded = static_cast<std::uint32_t>(static_cast<std::int32_t>(hash) >>
                                                    static_cast<std::int32_t>(shift & 31));
  return (folded ^ hash) & mask;
}

// The initial bucket count for a requested size: rounded up to a power of two (0 and 1 give 1),
// at most the ceiling.
inline constexpr std::uint32_t InitialBuckets(std::uint32_t size) noexcept {
  if (size >= kBucketCeiling) return kBucketCeiling;
  std::uint32_t buckets = 1;
  while (buckets < size) buckets <<= 1;
  return buckets;
}

// log2 of a power of two.
inline constexpr std::uint32_t Log2(std::uint32_t power_of_two) noexcept {
  std::uint32_t shift = 0;
  while ((1u << shift) < power_of_two) ++shift;
  return shift;
}

// The entry count at which a table of `buckets` buckets doubles: a load of 1.5, rounded down.
inline constexpr std::uint32_t GrowThreshold(std::uint32_t buckets) noexcept {
  return (3u * buckets + 1u) / 2u;
}

}  // namespace kiv::hashing

#endif  // KIV_SRC_COLLECTIONS_HASHTABLE_HASH_H_
