// The lock-free stack and the first-in-first-out queue built on it.
#include "collections/queues/queues_impl.h"
#include "kiv/exception.h"
#include "platform/interlocked.h"

namespace kiv {

using platform::InterlockedCompareExchangePointer;
using platform::InterlockedLoadPointer;

// ---------------------------------------------------------------------------------------------
// LIFOImpl

LIFOImpl::~LIFOImpl() { DeleteChain(Detach(), true); }

std::int32_t LIFOImpl::Count() const { return platform::InterlockedLoad(&count_); }

bool LIFOImpl::Put(const Object& element) {
  Cons* cell = new Cons(element);
  Cons* seen = InterlockedLoadPointer(&top_);
  for (;;) {
    cell->previous = seen;
    Cons* found = InterlockedCompareExchangePointer(&top_, cell, seen);
    if (found == seen) break;
    seen = found;
  }
  platform::InterlockedIncrement(&count_);
  return true;
}

Object LIFOImpl::Get() {
  Cons* cell;
  for (;;) {
    cell = InterlockedLoadPointer(&top_);
    if (cell == nullptr) throw NoSuchElementException();
    // KEPT: no guard against reuse (ABA): nothing protects `cell` between this read and the
    // exchange. If another Get takes and frees it meanwhile, this reads freed memory; if a Put then
    // reuses the address, the exchange succeeds with a stale link and corrupts the stack. Safe with
    // one consumer at a time: only a Get frees cells, so no other thread can free `cell` under this
    // one.
    Cons* below = cell->previous;
    if (InterlockedCompareExchangePointer(&top_, below, cell) == cell) break;
  }
  platform::InterlockedDecrement(&count_);
  Object element(static_cast<Object&&>(cell->element));
  delete cell;
  return element;
}

void LIFOImpl::Clear() {
  Cons* chain = Detach();
  platform::InterlockedStore(&count_, 0);
  DeleteChain(chain, true);
}

Cons* LIFOImpl::Detach() noexcept {
  Cons* seen = InterlockedLoadPointer(&top_);
  if (seen == nullptr) return nullptr;
  // KEPT: the exchange is retried against the top first read, not the one found, so a
  // Put landing between the read and the exchange keeps this thread spinning until the top holds
  // `seen` again, which only Gets of the newer cells bring about (and never happens for the
  // first-in-first-out queue, which has no such Gets).
  while (InterlockedCompareExchangePointer(&top_, static_cast<Cons*>(nullptr), seen) != seen) {
  }
  return seen;
}

void LIFOImpl::DeleteChain(Cons* cell, bool through_previous) noexcept {
  while (cell != nullptr) {
    Cons* following = through_previous ? cell->previous : cell->next;
    try {
      delete cell;
    } catch (...) {
    }
    cell = following;
  }
}

// ---------------------------------------------------------------------------------------------
// FIFOImpl

FIFOImpl::~FIFOImpl() { DeleteChain(out_, false); }

Object FIFOImpl::Get() {
  // Newest to oldest, each cell goes on the front of the output chain, so the oldest ends up at
  // its head. KEPT: new elements go ahead of whatever an earlier drain left there (Put A, Put B,
  // Get, Put C, Get, Get gives A, C, B).
  for (Cons* cell = Detach(); cell != nullptr;) {
    Cons* older = cell->previous;
    cell->next = out_;
    out_ = cell;
    cell = older;
  }
  if (out_ == nullptr) throw NoSuchElementException();
  Cons* head = out_;
  out_ = head->next;
  platform::InterlockedDecrement(&count_);
  Object element(static_cast<Object&&>(head->element));
  delete head;
  return element;
}

void FIFOImpl::Clear() {
  LIFOImpl::Clear();
  Cons* chain = out_;
  out_ = nullptr;
  DeleteChain(chain, false);
}

}  // namespace kiv
