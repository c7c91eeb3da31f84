// The bounded lock-free ring.
//
// Producers claim a position by compare-exchange on the write cursor, store the element and set
// the position's filled flag, then publish: they move the read limit over every filled position
// that follows it, so an element becomes visible to consumers only once every position claimed
// before it has been filled. Consumers claim by compare-exchange on the read cursor up to the read
// limit, empty the slot, clear the flag and release: they move the write limit over every emptied
// position behind the read cursor.
//
// Flags and cursors use fully ordered operations: a producer sets its flag and then looks at its
// neighbour's, while the neighbour does the opposite, and at least one of them must see the other.
#include <cstring>
#include <limits>
#include <new>

#include "collections/queues/queues_impl.h"
#include "kiv/exception.h"
#include "platform/interlocked.h"

namespace kiv {

using platform::InterlockedCompareExchangeFull;
using platform::InterlockedLoadFlag;
using platform::InterlockedLoadFull;
using platform::InterlockedStoreFlag;

FixedFIFOImpl* FixedFIFOImpl::Make(std::uint32_t capacity) {
  // Cursors are 32-bit words that must hold at least one lap of the ring.
  if (capacity >= static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
    throw MemoryException();
  }
  const std::size_t size = static_cast<std::size_t>(capacity) + 1;
  static_assert(sizeof(FixedFIFOImpl) % alignof(Object) == 0);
  const std::size_t slots_offset = sizeof(FixedFIFOImpl);
  const std::size_t flags_offset = slots_offset + size * sizeof(Object);
  char* block = static_cast<char*>(::operator new(flags_offset + size));
  Object* slots = reinterpret_cast<Object*>(block + slots_offset);
  for (std::size_t i = 0; i < size; ++i) ::new (slots + i) Object();
  std::uint8_t* filled = reinterpret_cast<std::uint8_t*>(block + flags_offset);
  std::memset(filled, 0, size);
  return ::new (block) FixedFIFOImpl(capacity, slots, filled);
}

void FixedFIFOImpl::operator delete(void* block) noexcept { ::operator delete(block); }

FixedFIFOImpl::FixedFIFOImpl(std::uint32_t capacity, Object* slots, std::uint8_t* filled) noexcept
    : size_(capacity + 1),
      wrap_(static_cast<std::int32_t>(std::numeric_limits<std::int32_t>::max() / (capacity + 1) *
                                      (capacity + 1))),
      slots_(slots),
      filled_(filled),
      count_(0),
      write_cursor_(0),
      write_limit_(static_cast<std::int32_t>(capacity)),
      read_cursor_(0),
      read_limit_(0) {}

FixedFIFOImpl::~FixedFIFOImpl() {
  Clear();
  for (std::uint32_t i = 0; i < size_; ++i) slots_[i].~Object();
}

std::int32_t FixedFIFOImpl::Count() const { return platform::InterlockedLoad(&count_); }

bool FixedFIFOImpl::Put(const Object& element) {
  // Claim.
  std::int32_t claimed = InterlockedLoadFull(&write_cursor_);
  for (;;) {
    if (claimed == InterlockedLoadFull(&write_limit_)) return false;
    std::int32_t found = InterlockedCompareExchangeFull(&write_cursor_, Next(claimed), claimed);
    if (found == claimed) break;
    claimed = found;
  }
  std::uint32_t at = Position(claimed);
  slots_[at] = element;
  InterlockedStoreFlag(&filled_[at], 1);

  // Publish. The write cursor is read before the flag: a position short of the write cursor has
  // been claimed in this lap, so its flag is this lap's. Read the other way round, a flag still set
  // from the previous lap (its consumer not done yet) could be taken for this lap's when a producer
  // claims the position in between, and an empty slot would be published.
  std::int32_t limit = InterlockedLoadFull(&read_limit_);
  while (limit != InterlockedLoadFull(&write_cursor_) &&
         InterlockedLoadFlag(&filled_[Position(limit)]) != 0) {
    std::int32_t found = InterlockedCompareExchangeFull(&read_limit_, Next(limit), limit);
    limit = found == limit ? Next(limit) : found;
  }

  platform::InterlockedIncrement(&count_);
  return true;
}

bool FixedFIFOImpl::Take(Object& out) {
  // Claim.
  std::int32_t claimed = InterlockedLoadFull(&read_cursor_);
  for (;;) {
    if (claimed == InterlockedLoadFull(&read_limit_)) return false;
    std::int32_t found = InterlockedCompareExchangeFull(&read_cursor_, Next(claimed), claimed);
    if (found == claimed) break;
    claimed = found;
  }
  platform::InterlockedDecrement(&count_);
  std::uint32_t at = Position(claimed);
  out = static_cast<Object&&>(slots_[at]);
  InterlockedStoreFlag(&filled_[at], 0);

  // Release: move the write limit over emptied positions up to the one just behind the read
  // cursor. The read cursor is read before the flag, so a position that the flag shows empty is
  // one its consumer has finished with, not one still waiting to be filled.
  std::int32_t limit = InterlockedLoadFull(&write_limit_);
  for (;;) {
    std::int32_t next = Next(limit);
    if (Position(next) == Position(InterlockedLoadFull(&read_cursor_))) break;
    if (InterlockedLoadFlag(&filled_[Position(next)]) != 0) break;
    std::int32_t found = InterlockedCompareExchangeFull(&write_limit_, next, limit);
    limit = found == limit ? next : found;
  }
  return true;
}

Object FixedFIFOImpl::Get() {
  Object element;
  if (!Take(element)) throw NoSuchElementException();
  return element;
}

void FixedFIFOImpl::Clear() {
  Object element;
  while (Take(element)) {
    try {
      element = Object();
    } catch (...) {
    }
  }
}

}  // namespace kiv
