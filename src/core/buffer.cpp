#include <new>

#include "core/buffer_impl.h"

namespace kiv {

BufferItf::~BufferItf() = default;

BufferImpl* BufferImpl::MakeOwned(unsigned size) {
  // One block: the object, then the bytes. The deleting destructor frees the whole block through
  // RefCount's operator delete, which forwards to the global one that made it.
  constexpr std::size_t kHeader = (sizeof(BufferImpl) + alignof(std::max_align_t) - 1) /
                                  alignof(std::max_align_t) * alignof(std::max_align_t);
  void* block = ::operator new(kHeader + size);
  return ::new (block) BufferImpl(static_cast<char*>(block) + kHeader, size);
}

BufferImpl* BufferImpl::MakeExternal(void* data, unsigned size) {
  return new BufferImpl(data, size);
}

Buffer BufferExp::Make(unsigned size) {
  if (size == 0) return Buffer();
  return Buffer(BufferImpl::MakeOwned(size));
}

Buffer BufferExp::Make(void* data, unsigned size) {
  return Buffer(BufferImpl::MakeExternal(data, size));
}

}  // namespace kiv
