#include "io/stream_buffered.h"

#include <algorithm>
#include <cstring>

namespace kiv {

namespace {

unsigned char* Bytes(Buffer& buffer) { return static_cast<unsigned char*>(buffer->GetData()); }

}  // namespace

BufferedSyncInStream::BufferedSyncInStream(const SyncInputStream& in, const Buffer& buffer)
    : SyncInputStreamWrapper(in),
      inner_(buffer, this),
      buffer_(buffer),
      data_(buffer ? static_cast<const unsigned char*>(buffer->GetData()) : nullptr),
      start_(0) {
  buffer_->GetSize();  // a null buffer fails here, not at the first read
  if (Wrapped()->IsRandomAccess()) {
    start_ = static_cast<std::uint64_t>(Wrapped()->ToStreamMarker()->GetPosition());
  }
}

BufferedSyncInStream::~BufferedSyncInStream() = default;

BufferedSyncInStream* BufferedSyncInStream::Exactly(SyncInputStreamItf& in) noexcept {
  return typeid(in) == typeid(BufferedSyncInStream) ? static_cast<BufferedSyncInStream*>(&in)
                                                    : nullptr;
}

void BufferedSyncInStream::Drop() noexcept {
  start_ += inner_.Pos();
  inner_.SetState(0, 0);
}

unsigned BufferedSyncInStream::Fill(std::int64_t timeout) {
  const std::uint32_t r = inner_.Pos();
  const std::uint32_t v = inner_.Len();
  unsigned char* data = Bytes(buffer_);
  start_ += r;
  if (v > r) std::memmove(data, data + r, v - r);
  const std::uint32_t kept = v - r;
  // The state is whole before the wrapped read, which may throw (a timeout, say).
  inner_.SetState(0, kept);
  const unsigned got = Wrapped()->Read(data + kept, buffer_->GetSize() - kept, timeout);
  inner_.SetState(0, kept + got);
  return got;
}

unsigned BufferedSyncInStream::Read(void* dst, unsigned count, std::int64_t timeout) {
  if (count == 0) return 0;  // nothing asked: no fill, no wrapped read
  const unsigned n = inner_.Read(dst, count, timeout);
  if (n > 0) return n;
  if (count >= buffer_->GetSize()) {
    // Emptying the buffer first keeps every buffered byte at offset S + index, so a later
    // SetPosition cannot land in bytes read before this direct read. The position is unchanged.
    Drop();
    const unsigned got = Wrapped()->Read(dst, count, timeout);
    start_ += got;
    return got;
  }
  Fill(timeout);
  return inner_.Read(dst, count, timeout);
}

std::int32_t BufferedSyncInStream::Read(std::int64_t timeout) {
  const std::int32_t b = inner_.Read(timeout);
  if (b >= 0) return b;
  if (buffer_->GetSize() == 0) {
    // A buffer of size 0 (over caller memory) cannot hold the byte: read it straight through.
    const std::int32_t direct = Wrapped()->Read(timeout);
    if (direct >= 0) ++start_;
    return direct;
  }
  Fill(timeout);
  return inner_.Read(timeout);
}

Ref<StreamMarkerItf> BufferedSyncInStream::ToStreamMarker() {
  if (!Wrapped()->IsRandomAccess()) return SyncInputStreamWrapper::ToStreamMarker();
  return Ref<StreamMarkerItf>(this);
}

Ref<StreamMarkerItf> BufferedSyncInStream::ToStreamMarker() const {
  if (!Wrapped()->IsRandomAccess()) return SyncInputStreamWrapper::ToStreamMarker();
  return Ref<StreamMarkerItf>(this);
}

std::int64_t BufferedSyncInStream::GetLength() { return Wrapped()->ToStreamMarker()->GetLength(); }

std::int64_t BufferedSyncInStream::GetPosition() {
  return static_cast<std::int64_t>(start_ + inner_.Pos());
}

void BufferedSyncInStream::SetPosition(std::int64_t pos) {
  const std::uint32_t v = inner_.Len();
  if (pos >= 0) {
    const std::uint64_t target = static_cast<std::uint64_t>(pos);
    if (start_ <= target && target - start_ <= v) {
      inner_.SetState(static_cast<std::uint32_t>(target - start_), v);
      return;
    }
  }
  // The wrapped stream goes first: when it refuses, this stream is left as it was.
  Wrapped()->ToStreamMarker()->SetPosition(pos);
  inner_.SetState(0, 0);
  start_ = static_cast<std::uint64_t>(pos);
}

BufferedSyncOutStream::BufferedSyncOutStream(const SyncOutputStream& out, const Buffer& buffer)
    : SyncOutputStreamWrapper(out), inner_(buffer, this), buffer_(buffer), start_(0) {
  buffer_->GetSize();  // a null buffer fails here, not at the first write
  if (Wrapped()->IsRandomAccess()) {
    start_ = static_cast<std::uint64_t>(Wrapped()->ToStreamMarker()->GetPosition());
  }
}

BufferedSyncOutStream::~BufferedSyncOutStream() = default;

unsigned BufferedSyncOutStream::FlushOnce() {
  const std::uint32_t p = inner_.Len();
  const std::uint32_t w = inner_.Pos();
  // Nothing pending: no call of the wrapped stream at all.
  if (p == 0) return 0;
  unsigned char* data = Bytes(buffer_);
  // A stream that claims more than it was given is taken at its word only up to p.
  const unsigned k = std::min<unsigned>(Wrapped()->Write(data, p), p);
  if (k == 0) return 0;
  if (k < p) std::memmove(data, data + k, p - k);
  // A cursor moved back behind the flushed bytes lands on the first pending byte.
  inner_.SetState(w > k ? w - k : 0, p - k);
  start_ += k;
  return k;
}

unsigned BufferedSyncOutStream::Write(const void* src, unsigned count) {
  const unsigned char* bytes = static_cast<const unsigned char*>(src);
  const unsigned r = inner_.Write(bytes, count);
  if (r == count) return count;
  FlushOnce();
  const unsigned rest = count - r;
  if (rest > buffer_->GetSize()) {
    const unsigned d = Wrapped()->Write(bytes + r, rest);
    // KEPT: r is added although FlushOnce has counted the flushed bytes,
    // and whatever FlushOnce left pending is dropped.
    start_ += static_cast<std::uint64_t>(r) + d;
    inner_.SetState(0, 0);
    return r + d;
  }
  return r + inner_.Write(bytes + r, rest);
}

bool BufferedSyncOutStream::Write(unsigned char byte) {
  if (inner_.Write(byte)) return true;
  FlushOnce();
  return inner_.Write(byte);
}

void BufferedSyncOutStream::Flush() { FlushOnce(); }

Ref<StreamMarkerItf> BufferedSyncOutStream::ToStreamMarker() {
  if (!Wrapped()->IsRandomAccess()) return SyncOutputStreamWrapper::ToStreamMarker();
  return Ref<StreamMarkerItf>(this);
}

Ref<StreamMarkerItf> BufferedSyncOutStream::ToStreamMarker() const {
  if (!Wrapped()->IsRandomAccess()) return SyncOutputStreamWrapper::ToStreamMarker();
  return Ref<StreamMarkerItf>(this);
}

std::int64_t BufferedSyncOutStream::GetLength() {
  const std::int64_t wrapped = Wrapped()->ToStreamMarker()->GetLength();
  return std::max(wrapped, static_cast<std::int64_t>(start_ + inner_.Len()));
}

std::int64_t BufferedSyncOutStream::GetPosition() {
  return static_cast<std::int64_t>(start_ + inner_.Pos());
}

void BufferedSyncOutStream::SetPosition(std::int64_t pos) {
  const std::uint32_t p = inner_.Len();
  if (pos >= 0) {
    const std::uint64_t target = static_cast<std::uint64_t>(pos);
    if (start_ <= target && target - start_ <= p) {
      inner_.SetState(static_cast<std::uint32_t>(target - start_), p);
      return;
    }
  }
  Wrapped()->ToStreamMarker()->SetPosition(pos);
  inner_.SetState(0, 0);
  start_ = static_cast<std::uint64_t>(pos);
}

}  // namespace kiv
