#include "io/stream_buffer.h"

#include <algorithm>
#include <cstring>

#include "kiv/exception.h"

namespace kiv {

BufferSyncInStream::BufferSyncInStream(const Buffer& buffer)
    : buffer_(buffer), position_(0), length_(buffer_->GetSize()) {}

BufferSyncInStream::BufferSyncInStream(const Buffer& buffer, RefCount* outer)
    : buffer_(buffer), position_(0), length_(0) {
  SetOuter(outer);
}

BufferSyncInStream::~BufferSyncInStream() = default;

unsigned BufferSyncInStream::Read(void* dst, unsigned count, std::int64_t) {
  if (position_ >= length_) return 0;
  const unsigned n = std::min(count, length_ - position_);
  if (n == 0) return 0;
  std::memcpy(dst, static_cast<const unsigned char*>(buffer_->GetData()) + position_, n);
  position_ += n;
  return n;
}

std::int32_t BufferSyncInStream::Read(std::int64_t) {
  if (position_ >= length_) return -1;
  return static_cast<const unsigned char*>(buffer_->GetData())[position_++];
}

bool BufferSyncInStream::IsRandomAccess() const { return true; }

std::int64_t BufferSyncInStream::GetLength() { return length_; }

std::int64_t BufferSyncInStream::GetPosition() { return position_; }

void BufferSyncInStream::SetPosition(std::int64_t pos) {
  // length_ fits 32 bits, so this also refuses positions whose high half is not zero.
  if (pos < 0 || pos > static_cast<std::int64_t>(length_)) throw BoundsException(pos);
  position_ = static_cast<std::uint32_t>(pos);
}

BufferSyncOutStream::BufferSyncOutStream(const Buffer& buffer)
    : buffer_(buffer), position_(0), length_(0) {
  buffer_->GetSize();  // a null buffer fails here, not at the first write
}

BufferSyncOutStream::BufferSyncOutStream(const Buffer& buffer, RefCount* outer)
    : BufferSyncOutStream(buffer) {
  SetOuter(outer);
}

BufferSyncOutStream::~BufferSyncOutStream() = default;

unsigned BufferSyncOutStream::Write(const void* src, unsigned count) {
  const unsigned capacity = buffer_->GetSize();
  if (position_ >= capacity) return 0;
  const unsigned n = std::min(count, capacity - position_);
  if (n == 0) return 0;
  std::memcpy(static_cast<unsigned char*>(buffer_->GetData()) + position_, src, n);
  position_ += n;
  length_ = std::max(length_, position_);
  return n;
}

bool BufferSyncOutStream::Write(unsigned char byte) {
  if (position_ >= buffer_->GetSize()) return false;
  static_cast<unsigned char*>(buffer_->GetData())[position_++] = byte;
  length_ = std::max(length_, position_);
  return true;
}

void BufferSyncOutStream::Flush() {}

bool BufferSyncOutStream::IsRandomAccess() const { return true; }

std::int64_t BufferSyncOutStream::GetLength() { return length_; }

std::int64_t BufferSyncOutStream::GetPosition() { return position_; }

void BufferSyncOutStream::SetPosition(std::int64_t pos) {
  if (pos < 0 || pos > static_cast<std::int64_t>(length_)) throw BoundsException(pos);
  position_ = static_cast<std::uint32_t>(pos);
}

}  // namespace kiv
