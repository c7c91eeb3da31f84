// The one buffer implementation: owned bytes stored right behind the object in one allocation,
// or a view of caller memory.
#ifndef KIV_SRC_CORE_BUFFER_IMPL_H_
#define KIV_SRC_CORE_BUFFER_IMPL_H_

#include <cstddef>

#include "kiv/buffer.h"

namespace kiv {

class BufferImpl final : public BufferItf {
 public:
  // Each factory returns a new buffer with one reference, the caller's (see AdoptRef).
  // Owned storage of `size` bytes in the same allocation as the object.
  static BufferImpl* MakeOwned(unsigned size) { return MakeOwned(size, 0); }
  // Owned storage of `size` bytes with `room` bytes of space between the object and the bytes,
  // all in one allocation, for one more object that lives there (Room) and holds a reference to
  // the buffer: the buffer frees the whole block, so that object must be gone first.
  static BufferImpl* MakeOwned(unsigned size, std::size_t room);
  // A view of caller memory that is never freed.
  static BufferImpl* MakeExternal(void* data, unsigned size);

  unsigned GetSize() const override { return size_; }
  const void* GetData() const override { return data_; }
  void* GetData() override { return data_; }

  // The space made by MakeOwned for one more object; null when there is none.
  void* Room() noexcept;

  // Everything placed in one block starts at this alignment.
  static constexpr std::size_t Aligned(std::size_t bytes) noexcept {
    return (bytes + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) *
           alignof(std::max_align_t);
  }

 private:
  // Where the room (or else the bytes) of an owned block starts.
  static constexpr std::size_t Header() noexcept;
  BufferImpl(void* data, unsigned size, bool has_room) noexcept
      : RefCount(1), size_(size), has_room_(has_room), data_(data) {}
  unsigned size_;
  bool has_room_;
  void* data_;
};

constexpr std::size_t BufferImpl::Header() noexcept { return Aligned(sizeof(BufferImpl)); }

inline void* BufferImpl::Room() noexcept {
  return has_room_ ? reinterpret_cast<char*>(this) + Header() : nullptr;
}

}  // namespace kiv

#endif  // KIV_SRC_CORE_BUFFER_IMPL_H_
