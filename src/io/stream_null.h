// Null streams: an input stream that is always at its end and an output stream that accepts and
// discards everything.
#ifndef KIV_SRC_IO_STREAM_NULL_H_
#define KIV_SRC_IO_STREAM_NULL_H_

#include <cstdint>

#include "kiv/streams.h"

namespace kiv {

class NullSyncInStream final : public SyncInputStreamItf {
 public:
  ~NullSyncInStream() override;

  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;
};

class NullSyncOutStream final : public SyncOutputStreamItf {
 public:
  ~NullSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  bool Write(unsigned char byte) override;
  void Flush() override;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_NULL_H_
