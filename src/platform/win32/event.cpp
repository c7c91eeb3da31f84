#include "platform/event.h"

#include "platform/win32/windows_names.h"

namespace kiv::platform {

// The system's unnamed auto-reset event is exactly the event the library describes; the handle
// itself is the Event pointer.
static_assert(WAIT_OBJECT_0 == kEventSignalled && WAIT_TIMEOUT == kEventTimeout &&
                  WAIT_FAILED == kEventFailed && INFINITE == kWaitNoLimit,
              "the wait results are the system's own");

Event* NewEvent() noexcept {
  HANDLE event =
      ::CreateEventW(nullptr, FALSE /* auto-reset */, FALSE /* not signalled */, nullptr);
  return static_cast<Event*>(event);
}

void DeleteEvent(Event* event) noexcept {
  if (event != nullptr) ::CloseHandle(static_cast<HANDLE>(event));
}

void SignalEvent(Event* event) noexcept {
  if (event != nullptr) ::SetEvent(static_cast<HANDLE>(event));
}

std::uint32_t WaitEvent(Event* event, std::uint32_t milliseconds) noexcept {
  if (event == nullptr) return kEventFailed;
  const DWORD result = ::WaitForSingleObject(static_cast<HANDLE>(event), milliseconds);
  // WAIT_ABANDONED belongs to mutexes and cannot come from an event; anything else is a failure.
  if (result == WAIT_OBJECT_0 || result == WAIT_TIMEOUT) return result;
  return kEventFailed;
}

}  // namespace kiv::platform
