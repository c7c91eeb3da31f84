#include <new>

#include "core/buffer_impl.h"

namespace kiv {

BufferItf::~BufferItf() = default;

BufferImpl* BufferImpl::MakeOwned(unsigned size, std::size_t room) {
  // One block: the object, the room, then the bytes. The deleting destructor frees the whole block
  // through RefCount's operator delete, which forwards to the global one that made it.
  room = Aligned(room);
  void* block = ::operator new(Header() + room + size);
  return ::new (block) BufferImpl(static_cast<char*>(block) + Header() + room, size, room != 0);
}

BufferImpl* BufferImpl::MakeExternal(void* data, unsigned size) {
  return new BufferImpl(data, size, false);
}

Buffer BufferExp::Make(unsigned size) {
  if (size == 0) return Buffer();
  return Buffer(BufferImpl::MakeOwned(size), kAdoptRef);
}

Buffer BufferExp::Make(void* data, unsigned size) {
  return Buffer(BufferImpl::MakeExternal(data, size), kAdoptRef);
}

}  // namespace kiv
