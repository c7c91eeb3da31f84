// The one buffer implementation: owned bytes stored right behind the object in one allocation,
// or a view of caller memory.
#ifndef KIV_SRC_CORE_BUFFER_IMPL_H_
#define KIV_SRC_CORE_BUFFER_IMPL_H_

#include "kiv/buffer.h"

namespace kiv {

class BufferImpl final : public BufferItf {
 public:
  // Owned storage of `size` bytes in the same allocation as the object.
  static BufferImpl* MakeOwned(unsigned size);
  // A view of caller memory that is never freed.
  static BufferImpl* MakeExternal(void* data, unsigned size);

  unsigned GetSize() const override { return size_; }
  const void* GetData() const override { return data_; }
  void* GetData() override { return data_; }

 private:
  BufferImpl(void* data, unsigned size) noexcept : size_(size), data_(data) {}
  unsigned size_;
  void* data_;
};

}  // namespace kiv

#endif  // KIV_SRC_CORE_BUFFER_IMPL_H_
