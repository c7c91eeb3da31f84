#include "io/stream_file.h"

namespace kiv {

FILESyncInStream::~FILESyncInStream() = default;

unsigned FILESyncInStream::Read(void* dst, unsigned count, std::int64_t) {
  return static_cast<unsigned>(std::fread(dst, 1, count, file_));
}

std::int32_t FILESyncInStream::Read(std::int64_t) {
  const int c = std::fgetc(file_);
  return c == EOF ? -1 : c;
}

FILESyncOutStream::~FILESyncOutStream() = default;

unsigned FILESyncOutStream::Write(const void* src, unsigned count) {
  return static_cast<unsigned>(std::fwrite(src, 1, count, file_));
}

bool FILESyncOutStream::Write(unsigned char byte) {
  std::fputc(byte, file_);
  return true;
}

void FILESyncOutStream::Flush() { std::fflush(file_); }

}  // namespace kiv
