// Fixed-capacity blocks of bytes, either owned (stored in the same allocation as the object) or
// laid over caller memory.
#ifndef KIV_BUFFER_H_
#define KIV_BUFFER_H_

#include <kiv/export.h>
#include <kiv/object.h>

namespace kiv {

// A buffer has a capacity and no used length of its own: users keep their own fill counts.
struct KIV_EXPORT BufferItf : public virtual RefCount {
  ~BufferItf() override;
  virtual unsigned GetSize() const = 0;
  virtual const void* GetData() const = 0;
  virtual void* GetData() = 0;
};

KIV_DECLARE_HANDLE(Buffer, BufferItf);

struct KIV_EXPORT BufferExp {
  // Owned storage of `size` bytes, not cleared. A size of 0 gives a null handle.
  static Buffer Make(unsigned size);
  // Over caller memory, which must outlive every reference; never freed. Size 0 is allowed.
  static Buffer Make(void* data, unsigned size);
};

}  // namespace kiv

#endif  // KIV_BUFFER_H_
