// Streams over a Buffer: reading its bytes, or writing into it until it is full. Both are their
// own random-access markers. The buffered streams also use them as inner parts that share the
// count of the object that contains them.
#ifndef KIV_SRC_IO_STREAM_BUFFER_H_
#define KIV_SRC_IO_STREAM_BUFFER_H_

#include <cstdint>

#include "io/stream_helpers.h"
#include "kiv/buffer.h"
#include "kiv/streams.h"

namespace kiv {

// Reads [position, length) of a buffer. The length is fixed when the stream is made; it is the
// buffer's size for a stream made by the factory.
class BufferSyncInStream : public SelfMarkedStream<BufferSyncInStream, SyncInputStreamItf> {
 public:
  // Over the whole buffer: length is its size, position 0.
  explicit BufferSyncInStream(const Buffer& buffer);
  // An inner part of `outer`, sharing its count, with position and length 0. It must never be
  // handed out on its own.
  BufferSyncInStream(const Buffer& buffer, RefCount* outer);
  ~BufferSyncInStream() override;

  using SyncInputStreamItf::Read;
  // The timeout is ignored: the data is all there.
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override;
  std::int32_t Read(std::int64_t timeout) override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Accepts 0..length (length itself means at end); BoundsException(pos) otherwise.
  void SetPosition(std::int64_t pos) override;

  // Direct access for the buffered stream that owns an inner part.
  std::uint32_t Pos() const noexcept { return position_; }
  std::uint32_t Len() const noexcept { return length_; }
  void SetState(std::uint32_t position, std::uint32_t length) noexcept {
    position_ = position;
    length_ = length;
  }

 private:
  Buffer buffer_;
  std::uint32_t position_;
  std::uint32_t length_;
};

// Writes into a buffer at a cursor; the length is the high-water mark (the furthest position ever
// written), not the capacity. The capacity is asked of the buffer at each write.
class BufferSyncOutStream : public SelfMarkedStream<BufferSyncOutStream, SyncOutputStreamItf> {
 public:
  // Position and length 0.
  explicit BufferSyncOutStream(const Buffer& buffer);
  // An inner part of `outer`, sharing its count. It must never be handed out on its own.
  BufferSyncOutStream(const Buffer& buffer, RefCount* outer);
  ~BufferSyncOutStream() override;

  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override;
  bool Write(unsigned char byte) override;
  void Flush() override;
  bool IsRandomAccess() const override;

  std::int64_t GetLength() override;
  std::int64_t GetPosition() override;
  // Accepts 0..high-water mark; moving back and overwriting keeps the mark. BoundsException(pos)
  // otherwise.
  void SetPosition(std::int64_t pos) override;

  // Direct access for the buffered stream that owns an inner part.
  std::uint32_t Pos() const noexcept { return position_; }
  std::uint32_t Len() const noexcept { return length_; }
  void SetState(std::uint32_t position, std::uint32_t length) noexcept {
    position_ = position;
    length_ = length;
  }

 private:
  Buffer buffer_;
  std::uint32_t position_;
  std::uint32_t length_;
};

}  // namespace kiv

#endif  // KIV_SRC_IO_STREAM_BUFFER_H_
