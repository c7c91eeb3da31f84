// HTTP/1.1 chunked transfer coding: the decoding input stream and the encoding output stream.
//
// The decoder reads framing bytes one at a time from the wrapped stream (put a buffered stream
// under it: the decoder then scans that stream's buffer in place, consuming the same bytes) and
// never keeps more than one 64-byte size line. Every loop in it consumes at least
// one byte of the wrapped stream per round and stops at its end, so no input can make it spin,
// and nothing a peer sends is written outside that line buffer.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "io/filter_streams.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

int HexDigit(unsigned char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// isspace in the C locale.
bool IsBlank(unsigned char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// Decoding

ChunkedSyncInStreamImpl::ChunkedSyncInStreamImpl(const SyncInputStream& in, bool capped)
    : SyncInputStreamWrapper(in), capped_(capped) {
  buffered_ = Wrapped() ? BufferedSyncInStream::Exactly(*Wrapped()) : nullptr;
}

ChunkedSyncInStreamImpl::~ChunkedSyncInStreamImpl() = default;

std::uint32_t ChunkedSyncInStreamImpl::ParseSize(const unsigned char* text,
                                                 unsigned length) noexcept {
  unsigned i = 0;
  while (i < length && IsBlank(text[i])) ++i;
  bool negative = false;
  if (i < length && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // "0x" is a prefix only when a digit follows; otherwise the 0 is the number.
  if (i + 2 < length && text[i] == '0' && (text[i + 1] | 0x20) == 'x' &&
      HexDigit(text[i + 2]) >= 0) {
    i += 2;
  }
  std::uint64_t value = 0;
  bool any = false;
  bool overflow = false;
  for (; i < length; ++i) {
    const int digit = HexDigit(text[i]);
    if (digit < 0) break;
    any = true;
    if (!overflow) {
      value = value * 16 + static_cast<unsigned>(digit);
      overflow = value > 0xFFFFFFFFu;
    }
  }
  if (!any) return 0;
  if (overflow) return 0xFFFFFFFFu;
  const auto magnitude = static_cast<std::uint32_t>(value);
  return negative ? 0u - magnitude : magnitude;
}

bool ChunkedSyncInStreamImpl::TakeLineByte(unsigned char byte) noexcept {
  if (byte != 10) {
    line_[line_length_++] = byte;
    // A full line buffer without a line feed: the line is dropped and the next byte starts a
    // new one. The longest line accepted is therefore 63 bytes and its line feed.
    if (line_length_ == kLineSize) line_length_ = 0;
    return false;
  }
  const unsigned length = line_length_;
  line_length_ = 0;
  // Empty, a lone CR, or not ended by CR: not a size line.
  if (length < 2 || line_[length - 1] != 13) return false;
  size_ = ParseSize(line_, length - 1);
  consumed_ = 0;
  if (size_ == 0) end_ = true;  // the last chunk; its trailer stays in the wrapped stream
  return true;
}

const unsigned char* ChunkedSyncInStreamImpl::Window(unsigned& available) noexcept {
  available = 0;
  return buffered_ != nullptr ? buffered_->Unread(available) : nullptr;
}

bool ChunkedSyncInStreamImpl::ReadSizeLine(SyncInputStreamItf& in, std::int64_t timeout) {
  for (;;) {
    // The buffered bytes first, scanned where they lie; only what the line takes is consumed.
    unsigned available;
    const unsigned char* window = Window(available);
    unsigned used = 0;
    bool accepted = false;
    while (used < available && !accepted) accepted = TakeLineByte(window[used++]);
    if (used > 0) buffered_->Skip(used);
    if (accepted) return true;
    // One byte from the wrapped stream (for a buffered stream, the read that refills it).
    const std::int32_t byte = in.Read(timeout);
    if (byte < 0) {
      end_ = true;
      line_length_ = 0;
      return false;
    }
    if (TakeLineByte(static_cast<unsigned char>(byte))) return true;
  }
}

void ChunkedSyncInStreamImpl::ReadChunkEnd(SyncInputStreamItf& in, std::int64_t timeout) {
  unsigned available;
  const unsigned char* window = Window(available);
  unsigned used = 0;
  while (chunk_end_left_ > 0) {
    std::int32_t byte;
    if (used < available) {
      byte = window[used++];
    } else {
      // What was taken from the buffer is consumed before the stream reads (and refills) again.
      if (used > 0) buffered_->Skip(used);
      used = available = 0;
      byte = in.Read(timeout);
    }
    if (byte != (chunk_end_left_ == 2 ? 13 : 10)) chunk_end_bad_ = true;
    --chunk_end_left_;
  }
  if (used > 0) buffered_->Skip(used);
  if (chunk_end_bad_) end_ = true;
}

unsigned ChunkedSyncInStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  // A read of nothing says nothing about the data, so it must not end the stream.
  if (end_ || count == 0) return 0;
  SyncInputStreamItf& in = Wrapped().GetObjRef();
  if (chunk_end_left_ > 0) {
    ReadChunkEnd(in, timeout);
    if (end_) return 0;
  }
  if (consumed_ == size_ && !ReadSizeLine(in, timeout)) return 0;
  if (end_) return 0;
  // KEPT: unless capped, a read is not cut at the rest of the chunk: a caller asking for more
  // receives the framing bytes that follow as data.
  if (capped_) count = std::min(count, size_ - consumed_);
  // From the buffered stream's buffer when it holds bytes, as that stream's own Read would serve
  // them: as many as are there, up to `count`.
  unsigned available;
  const unsigned char* window = Window(available);
  unsigned got;
  if (available > 0) {
    got = std::min(count, available);
    std::memcpy(dst, window, got);
    buffered_->Skip(got);
  } else {
    got = in.Read(dst, count, timeout);
  }
  if (got == 0) {
    end_ = true;
    return 0;
  }
  got = std::min(got, count);
  consumed_ += got;
  if (consumed_ == size_) {
    chunk_end_left_ = 2;
    chunk_end_bad_ = false;
    try {
      ReadChunkEnd(in, timeout);
    } catch (const Exception&) {
      // The data is the caller's already; the next read picks up the CR LF where this stopped.
    }
  }
  return got;
}

// ---------------------------------------------------------------------------------------------
// Encoding

ChunkedSyncOutStreamImpl::ChunkedSyncOutStreamImpl(const SyncOutputStream& out)
    : SyncOutputStreamWrapper(out) {}

ChunkedSyncOutStreamImpl::~ChunkedSyncOutStreamImpl() {
  try {
    Wrapped()->Write("0\r\n\r\n", 5);
    Wrapped()->Flush();
  } catch (...) {
    // Releasing must not fail; a sink that refuses the last chunk has lost the body anyway.
  }
}

unsigned ChunkedSyncOutStreamImpl::Write(const void* src, unsigned count) {
  if (count == 0) return 0;  // an empty chunk would be the last one
  char header[16];
  const int length = std::snprintf(header, sizeof header, "%x\r\n", count);
  // One wrapped Write each for the header, the data and the line break, as the coding has always
  // been written: partial acceptance of the header or the line break is not examined, so the
  // wrapped stream must take whole writes (a buffered stream in front of the connection does).
  SyncOutputStreamItf& out = Wrapped().GetObjRef();
  out.Write(header, static_cast<unsigned>(length));
  const unsigned taken = out.Write(src, count);
  out.Write("\r\n", 2);
  return taken;
}

void ChunkedSyncOutStreamImpl::Flush() { Wrapped()->Flush(); }

}  // namespace kiv
