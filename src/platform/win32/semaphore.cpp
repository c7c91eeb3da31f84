#include "platform/semaphore.h"

#include <climits>
#include <new>

#include "platform/win32/windows_names.h"

namespace kiv::platform {

std::uintptr_t CurrentThreadId() noexcept { return ::GetCurrentThreadId(); }

// The storage holds the system semaphore's handle.
static HANDLE& Handle(unsigned char* storage) noexcept {
  return *std::launder(reinterpret_cast<HANDLE*>(storage));
}

Semaphore::Semaphore() noexcept {
  static_assert(sizeof(HANDLE) <= kStorageSize, "HANDLE does not fit");
  new (storage_) HANDLE(::CreateSemaphoreW(nullptr, 0, LONG_MAX, nullptr));
}

Semaphore::~Semaphore() {
  if (Handle(storage_) != nullptr) ::CloseHandle(Handle(storage_));
}

void Semaphore::Wait() noexcept { ::WaitForSingleObject(Handle(storage_), INFINITE); }

void Semaphore::Post() noexcept { ::ReleaseSemaphore(Handle(storage_), 1, nullptr); }

}  // namespace kiv::platform
