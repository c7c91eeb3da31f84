// A counting semaphore for handing a lock from one thread to the next, and the identity of the
// calling thread. The semaphore lives inside its owner (no allocation of its own on POSIX systems),
// so a lock object that embeds one stays a single allocation.
#ifndef KIV_PLATFORM_SEMAPHORE_H_
#define KIV_PLATFORM_SEMAPHORE_H_

#include <cstddef>
#include <cstdint>

namespace kiv::platform {

// A number identifying the calling thread among the threads alive; never 0.
std::uintptr_t CurrentThreadId() noexcept;

class Semaphore {
 public:
  // Starts at 0.
  Semaphore() noexcept;
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Blocks without limit until the count is above 0, then takes 1 from it.
  void Wait() noexcept;
  // Adds 1 to the count, releasing one waiter if any.
  void Post() noexcept;

 private:
  // Room for the platform's own object; each implementation checks at compile time that its
  // object fits.
  static constexpr std::size_t kStorageSize = 32;
  alignas(alignof(std::max_align_t)) unsigned char storage_[kStorageSize];
};

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_SEMAPHORE_H_
