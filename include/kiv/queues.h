// Lock-free queues of counted objects for handing objects between threads: an unbounded stack, an
// unbounded first-in-first-out queue built on it, and a bounded first-in-first-out ring.
//
// No queue blocks: a full bounded queue refuses the element (Put returns false) and an empty queue
// throws NoSuchElementException from Get. Waiting for elements is the caller's business.
#ifndef KIV_QUEUES_H_
#define KIV_QUEUES_H_

#include <kiv/export.h>
#include <kiv/object.h>

#include <cstdint>

namespace kiv {

struct KIV_EXPORT QueueItf : public virtual RefCount {
  ~QueueItf() override;
  // The number of elements: a snapshot that may lag an operation under way.
  virtual std::int32_t Count() const = 0;
  // False only when a bounded queue is full; nothing is stored then.
  virtual bool Put(const Object& element) = 0;
  // The next element; NoSuchElementException when empty.
  virtual Object Get() = 0;
  // Discards every element.
  virtual void Clear() = 0;
};

struct KIV_EXPORT QueueExp {
  // Last in, first out. Put from any number of threads. Get is safe for one consumer at a time:
  // two Gets at once may read a cell that the other has just freed. Clear detaches the whole
  // stack with a compare-exchange that it retries against the top it first read, so a Put landing
  // in between keeps it spinning until the top holds that cell again.
  static Ref<QueueItf> MakeLIFO();
  // First in, first out, built on the stack: any number of producers and ONE consumer (Get and
  // Clear on one thread at a time). Elements put since the previous Get come out ahead of elements
  // still waiting from an earlier Get, so the order is strict only while the consumer empties the
  // queue before new elements arrive. Get drains the stack with the same detach as Clear, so a Put
  // that lands between its read and its exchange keeps it spinning (nothing brings the stack's top
  // back): callers let producers pause while the consumer takes elements.
  static Ref<QueueItf> MakeFIFO();
  // First in, first out, holding at most `capacity` elements (0: every Put is refused); any number
  // of producers and consumers. Allocates once, here.
  static Ref<QueueItf> MakeFIFO(std::uint32_t capacity);
};

}  // namespace kiv

#endif  // KIV_QUEUES_H_
