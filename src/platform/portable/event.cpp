// The event over the standard library alone, for every system without an event of its own.
#include "platform/event.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

namespace kiv::platform {

// A condition variable alone cannot be an auto-reset event: two signals sent before the first
// woken thread runs would both set one flag, and the second waiter would sleep on. So a signal
// that finds blocked threads hands a release to them (`releases`), which exactly one of them
// takes; only a signal that finds none sets the flag. Invariant: `blocked + releases` is the
// number of threads inside WaitEvent past the flag check, and `set` implies `blocked == 0`.
struct Event {
  std::mutex mutex;
  std::condition_variable wake;
  bool set = false;
  std::uint32_t blocked = 0;
  std::uint32_t releases = 0;
};

Event* NewEvent() noexcept { return new (std::nothrow) Event(); }

void DeleteEvent(Event* event) noexcept { delete event; }

void SignalEvent(Event* event) noexcept {
  if (event == nullptr) return;
  std::lock_guard<std::mutex> hold(event->mutex);
  if (event->blocked == 0) {
    event->set = true;
    return;
  }
  --event->blocked;
  ++event->releases;
  // Notified under the lock, so the waiter cannot delete the event in between.
  event->wake.notify_one();
}

std::uint32_t WaitEvent(Event* event, std::uint32_t milliseconds) noexcept {
  if (event == nullptr) return kEventFailed;
  std::unique_lock<std::mutex> hold(event->mutex);
  if (event->set) {
    event->set = false;
    return kEventSignalled;
  }
  if (milliseconds == 0) return kEventTimeout;
  ++event->blocked;
  if (milliseconds == kWaitNoLimit) {
    event->wake.wait(hold, [event] { return event->releases != 0; });
  } else {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    // A release handed out while the wait was timing out still belongs to some blocked thread;
    // taking it here rather than leaving keeps the count of blocked threads exact.
    event->wake.wait_until(hold, deadline, [event] { return event->releases != 0; });
  }
  if (event->releases != 0) {
    --event->releases;
    return kEventSignalled;
  }
  --event->blocked;
  return kEventTimeout;
}

}  // namespace kiv::platform
