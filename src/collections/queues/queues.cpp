// The queue interface's home and the factory.
#include "collections/queues/queues_impl.h"

namespace kiv {

QueueItf::~QueueItf() = default;

Ref<QueueItf> QueueExp::MakeLIFO() { return Ref<QueueItf>(new LIFOImpl()); }

Ref<QueueItf> QueueExp::MakeFIFO() { return Ref<QueueItf>(new FIFOImpl()); }

Ref<QueueItf> QueueExp::MakeFIFO(std::uint32_t capacity) {
  return Ref<QueueItf>(FixedFIFOImpl::Make(capacity));
}

}  // namespace kiv
