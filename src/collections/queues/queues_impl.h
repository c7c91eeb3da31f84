// The three lock-free queues: the stack, the first-in-first-out queue built on it, and the bounded
// ring.
#ifndef KIV_SRC_COLLECTIONS_QUEUES_QUEUES_IMPL_H_
#define KIV_SRC_COLLECTIONS_QUEUES_QUEUES_IMPL_H_

#include <cstddef>
#include <cstdint>

#include "kiv/containers.h"
#include "kiv/queues.h"

namespace kiv {

// An unbounded stack of Cons cells chained newest to oldest through their previous links. The top
// changes only by compare-exchange and the count by interlocked increment and decrement. Cells are
// plain allocations owned by the stack (their counts are not used).
class LIFOImpl : public QueueItf {
 public:
  LIFOImpl() noexcept : top_(nullptr), count_(0) {}
  ~LIFOImpl() override;

  std::int32_t Count() const override;
  bool Put(const Object& element) override;
  Object Get() override;
  void Clear() override;

 protected:
  // Takes the whole chain off the stack and returns its newest cell (null when empty).
  Cons* Detach() noexcept;
  // Deletes a chain of cells linked through `previous` (from the stack) or `next` (an output
  // chain), swallowing whatever the destruction of an element throws.
  static void DeleteChain(Cons* cell, bool through_previous) noexcept;

  Cons* top_;
  std::int32_t count_;
};

// The stack plus an output chain, linked through the cells' next links, that only the single
// consumer touches. Get moves everything on the stack to the front of the output chain, oldest
// first, and takes the head.
class FIFOImpl final : public LIFOImpl {
 public:
  FIFOImpl() noexcept : out_(nullptr) {}
  ~FIFOImpl() override;

  Object Get() override;
  void Clear() override;

 private:
  Cons* out_;
};

// A ring of capacity + 1 positions stored in the same allocation as the object: the object, then
// capacity + 1 element slots, then capacity + 1 filled flags. The write limit trails the read
// cursor by one position, so at most capacity elements are held.
//
// Each cursor word holds a position plus a lap count (the word runs through a multiple of the ring
// size before it wraps to 0; the position is the word modulo the ring size). Positions behave
// exactly as if they wrapped from capacity to 0, but a thread that read a cursor and was then
// delayed while the ring went round a full lap fails its compare-exchange instead of claiming a
// position a second time.
class FixedFIFOImpl final : public QueueItf {
 public:
  // One allocation of the object, its slots and its flags.
  static FixedFIFOImpl* Make(std::uint32_t capacity);
  // The block came from ::operator new in Make. Only the unsized form is given, because the block
  // is larger than the object.
  static void operator delete(void* block) noexcept;

  std::int32_t Count() const override;
  bool Put(const Object& element) override;
  Object Get() override;
  void Clear() override;

 private:
  FixedFIFOImpl(std::uint32_t capacity, Object* slots, std::uint8_t* filled) noexcept;
  ~FixedFIFOImpl() override;

  std::int32_t Next(std::int32_t cursor) const noexcept {
    return cursor + 1 == wrap_ ? 0 : cursor + 1;
  }
  std::uint32_t Position(std::int32_t cursor) const noexcept {
    return static_cast<std::uint32_t>(cursor) % size_;
  }
  // Claims the next filled position, moves its element to `out` and releases the position to
  // producers. False when the queue is empty.
  bool Take(Object& out);

  std::uint32_t size_;  // capacity + 1 positions
  std::int32_t wrap_;   // cursor words run through [0, wrap_), a multiple of size_
  Object* slots_;
  std::uint8_t* filled_;
  std::int32_t count_;
  std::int32_t write_cursor_;  // next position a producer claims
  std::int32_t write_limit_;   // the position producers may not claim
  std::int32_t read_cursor_;   // next position a consumer claims
  std::int32_t read_limit_;    // filled positions are published up to here
};

}  // namespace kiv

#endif  // KIV_SRC_COLLECTIONS_QUEUES_QUEUES_IMPL_H_
