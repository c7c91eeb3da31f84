#include "platform/semaphore.h"

#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <new>

namespace kiv::platform {

std::uintptr_t CurrentThreadId() noexcept {
  // A pthread_t of glibc and musl is the address of the thread's control block: never 0.
  return reinterpret_cast<std::uintptr_t>(reinterpret_cast<void*>(pthread_self()));
}

static sem_t* Sem(unsigned char* storage) noexcept {
  return std::launder(reinterpret_cast<sem_t*>(storage));
}

Semaphore::Semaphore() noexcept {
  static_assert(sizeof(sem_t) <= kStorageSize, "sem_t does not fit");
  static_assert(alignof(sem_t) <= alignof(std::max_align_t), "sem_t is over-aligned");
  sem_init(new (storage_) sem_t, 0, 0);
}

Semaphore::~Semaphore() { sem_destroy(Sem(storage_)); }

void Semaphore::Wait() noexcept {
  // A signal handler interrupts the wait without taking anything: wait again.
  while (sem_wait(Sem(storage_)) != 0 && errno == EINTR) {
  }
}

void Semaphore::Post() noexcept { sem_post(Sem(storage_)); }

}  // namespace kiv::platform
