// Streams over a standard I/O FILE. They never close the FILE: whoever opened it closes it, after
// the last reference to the stream has gone. Neither is random access.
#ifndef KIV_SRC_IO_STREAM_FILE_H_
#define KIV_SRC_IO_STREAM_FILE_H_

#include <cstdint>
#include <cstdio>

#include "kiv/streams.h"

namespace kiv {

class FILESyncInStream final : public SyncInputStreamItf {
 public:
  explicit FILESyncInStream(std::FILE* file) noexcept : file_(file) {}
  ~FILESyncInStream() override;

  using SyncInputStreamItf::Read;
  // fread; the timeout is ignored.
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  // fgetc, whose end value is -1.
  std::int32_t Read(std::int64_t timeout) override;

 private:
  std::FILE* file_;
};

class FILESyncOutStream final : public SyncOutputStreamItf {
 public:
  explicit FILESyncOutStream(std::FILE* file) noexcept : file_(file) {}
  ~FILESyncOutStream() override;

  using SyncOutputStreamItf::Write;
  // fwrite.
  unsigned Write(const void* src, unsigned count) override;
  // fputc; always true, whatever fputc answered.
  bool Write(unsigned char byte) override;
  // fflush.
  void Flush() override;

 private:
  std::FILE* file_;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_FILE_H_
