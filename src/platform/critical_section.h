// A re-entrant critical section: the thread that holds it may enter again, and each Enter needs
// its Leave. The platform object lives inside the class (no allocation of its own), so a lock
// object that embeds one stays a single allocation.
#ifndef KIV_PLATFORM_CRITICAL_SECTION_H_
#define KIV_PLATFORM_CRITICAL_SECTION_H_

#include <cstddef>

namespace kiv::platform {

class CriticalSection {
 public:
  CriticalSection() noexcept;
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  // Blocks without limit until the section is free or already held by the calling thread.
  void Enter() noexcept;
  // Enters only when that needs no wait; true when entered.
  bool TryEnter() noexcept;
  // Leaves one level of entry. Only the holding thread may call it.
  void Leave() noexcept;

 private:
  // Room for the platform's own object; each implementation checks at compile time that its
  // object fits.
  static constexpr std::size_t kStorageSize = 64;
  alignas(alignof(std::max_align_t)) unsigned char storage_[kStorageSize];
};

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_CRITICAL_SECTION_H_
