#include "platform/critical_section.h"

#include <pthread.h>

#include <new>

namespace kiv::platform {

static pthread_mutex_t* Mutex(unsigned char* storage) noexcept {
  return std::launder(reinterpret_cast<pthread_mutex_t*>(storage));
}

CriticalSection::CriticalSection() noexcept {
  static_assert(sizeof(pthread_mutex_t) <= kStorageSize, "pthread_mutex_t does not fit");
  static_assert(alignof(pthread_mutex_t) <= alignof(std::max_align_t),
                "pthread_mutex_t is over-aligned");
  pthread_mutex_t* mutex = new (storage_) pthread_mutex_t;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

CriticalSection::~CriticalSection() { pthread_mutex_destroy(Mutex(storage_)); }

void CriticalSection::Enter() noexcept { pthread_mutex_lock(Mutex(storage_)); }

bool CriticalSection::TryEnter() noexcept { return pthread_mutex_trylock(Mutex(storage_)) == 0; }

void CriticalSection::Leave() noexcept { pthread_mutex_unlock(Mutex(storage_)); }

}  // namespace kiv::platform
