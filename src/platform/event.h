// Unnamed auto-reset events with millisecond waits.
//
// A signal releases exactly one waiting thread and the event clears itself as that thread goes.
// A signal that finds no waiter leaves the event set until one wait consumes it; signalling an
// event that is already set changes nothing (signals are not counted).
#ifndef KIV_PLATFORM_EVENT_H_
#define KIV_PLATFORM_EVENT_H_

#include <cstdint>

namespace kiv::platform {

// The results of WaitEvent, with the values callers have always compared against.
inline constexpr std::uint32_t kEventSignalled = 0;
inline constexpr std::uint32_t kEventTimeout = 0x102;
inline constexpr std::uint32_t kEventFailed = 0xFFFFFFFF;
// The limit that means "no limit".
inline constexpr std::uint32_t kWaitNoLimit = 0xFFFFFFFF;

struct Event;

// A new event, not signalled; null when it cannot be made.
Event* NewEvent() noexcept;
// Null is ignored. No thread may be waiting.
void DeleteEvent(Event* event) noexcept;
// Releases one waiter, or leaves the event set when nobody waits. Null is ignored.
void SignalEvent(Event* event) noexcept;
// Waits until the event is signalled (kEventSignalled, and the event is cleared again) or
// `milliseconds` have passed (kEventTimeout). A limit of 0 only looks; kWaitNoLimit waits
// without limit. A null event gives kEventFailed at once.
std::uint32_t WaitEvent(Event* event, std::uint32_t milliseconds) noexcept;

}  // namespace kiv::platform

#endif  // KIV_PLATFORM_EVENT_H_
