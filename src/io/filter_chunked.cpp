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

// Per byte: its hex digit value, kBlank for the white space of isspace in the C locale, kOther
// for anything else. Size lines are parsed once per chunk; a table keeps that to one load a byte.
constexpr signed char kBlank = -2;
constexpr signed char kOther = -1;
struct ByteClasses {
  signed char of[256];
};
constexpr ByteClasses MakeByteClasses() {
  ByteClasses t{};
  for (int c = 0; c < 256; ++c) {
    t.of[c] = c >= '0' && c <= '9'                   ? static_cast<signed char>(c - '0')
              : c >= 'a' && c <= 'f'                 ? static_cast<signed char>(c - 'a' + 10)
              : c >= 'A' && c <= 'F'                 ? static_cast<signed char>(c - 'A' + 10)
              : c == ' ' || (c >= '\t' && c <= '\r') ? kBlank
                                                     : kOther;
  }
  return t;
}
constexpr ByteClasses kByteClasses = MakeByteClasses();

int HexDigit(unsigned char c) noexcept {
  const int v = kByteClasses.of[c];
  return v >= 0 ? v : -1;
}

bool IsBlank(unsigned char c) noexcept { return kByteClasses.of[c] == kBlank; }

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
  // What senders write: up to eight digits first, without a "0x" prefix to look for. Eight hex
  // digits cannot overflow, so the general loop below is needed only for the rest.
  const unsigned short_run = std::min(length, 8u);
  if (short_run > 0 && text[0] != '0') {
    std::uint32_t value = 0;
    unsigned n = 0;
    for (int digit; n < short_run && (digit = kByteClasses.of[text[n]]) >= 0; ++n) {
      value = value << 4 | static_cast<std::uint32_t>(digit);
    }
    if (n > 0 && (n < short_run || n == length || HexDigit(text[n]) < 0)) return value;
  }
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

bool ChunkedSyncInStreamImpl::AcceptLine(const unsigned char* text, unsigned length) noexcept {
  // Empty, a lone CR, or not ended by CR: not a size line.
  if (length < 2 || text[length - 1] != 13) return false;
  size_ = ParseSize(text, length - 1);
  consumed_ = 0;
  if (size_ == 0) end_ = true;  // the last chunk; its trailer stays in the wrapped stream
  return true;
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
  return AcceptLine(line_, length);
}

void ChunkedSyncInStreamImpl::AppendToLine(const unsigned char* bytes, unsigned count) noexcept {
  // As TakeLineByte byte by byte: each time the buffer fills it starts again, so what stays is
  // the old line and the bytes when they fit, else the bytes after the last restart.
  const unsigned total = line_length_ + count;
  if (total < kLineSize) {
    std::memcpy(line_ + line_length_, bytes, count);
    line_length_ = total;
    return;
  }
  line_length_ = total % kLineSize;
  std::memcpy(line_, bytes + count - line_length_, line_length_);
}

// The unread bytes of the buffered stream under the decoder (none for another stream), taken
// where they lie. What is taken is marked consumed before the stream is read in any other way, and
// when the decoder's read ends, so the stream always stands where reading byte by byte would have
// left it.
class ChunkedSyncInStreamImpl::Window {
 public:
  explicit Window(BufferedSyncInStream* stream) noexcept : stream_(stream) { Fetch(); }
  ~Window() { Commit(); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  bool Empty() const noexcept { return used_ == available_; }
  unsigned Left() const noexcept { return available_ - used_; }
  unsigned char Take() noexcept { return bytes_[used_++]; }
  // Takes `count` bytes (no more than are left) and returns where they start.
  const unsigned char* Take(unsigned count) noexcept {
    const unsigned char* at = bytes_ + used_;
    used_ += count;
    return at;
  }
  // Copies as many bytes as are there, up to `count`, as the stream's own Read would serve them.
  unsigned Copy(void* dst, unsigned count) noexcept {
    const unsigned n = std::min(count, available_ - used_);
    std::memcpy(dst, bytes_ + used_, n);
    used_ += n;
    return n;
  }
  // Before the stream is read directly: what was taken is consumed, and the window is empty
  // until Fetch looks again.
  void Commit() noexcept {
    if (used_ > 0) stream_->Skip(used_);
    available_ = used_ = 0;
  }
  void Fetch() noexcept {
    used_ = 0;
    available_ = 0;
    if (stream_ != nullptr) bytes_ = stream_->Unread(available_);
  }

 private:
  BufferedSyncInStream* stream_;
  const unsigned char* bytes_ = nullptr;
  unsigned available_ = 0;
  unsigned used_ = 0;
};

std::int32_t ChunkedSyncInStreamImpl::NextByte(SyncInputStreamItf& in, std::int64_t timeout,
                                               Window& window) {
  if (!window.Empty()) return window.Take();
  window.Commit();
  const std::int32_t byte = in.Read(timeout);
  window.Fetch();
  return byte;
}

inline bool ChunkedSyncInStreamImpl::SizeLineInPlace(Window& window) noexcept {
  if (line_length_ != 0) return false;
  const unsigned char* bytes = window.Take(0);
  const unsigned left = std::min(window.Left(), kLineSize);
  for (unsigned n = 0; n < left; ++n) {
    if (bytes[n] != 10) continue;
    if (!AcceptLine(bytes, n)) return false;
    window.Take(n + 1);
    return true;
  }
  return false;
}

bool ChunkedSyncInStreamImpl::ReadSizeLine(SyncInputStreamItf& in, std::int64_t timeout,
                                           Window& window) {
  for (;;) {
    // The buffered bytes are scanned where they lie, a line at a time; a line found whole is
    // read in place. Only what the line takes is consumed.
    while (!window.Empty()) {
      const unsigned left = window.Left();
      const unsigned char* bytes = window.Take(0);
      unsigned n = 0;
      while (n < left && bytes[n] != 10) ++n;
      if (n == left) {  // no line feed: all of it belongs to the line, then the stream is read
        AppendToLine(bytes, left);
        window.Take(left);
        break;
      }
      window.Take(n + 1);
      if (line_length_ == 0 && n < kLineSize) {
        if (AcceptLine(bytes, n)) return true;
      } else {
        AppendToLine(bytes, n);
        if (TakeLineByte(10)) return true;
      }
    }
    const std::int32_t byte = NextByte(in, timeout, window);
    if (byte < 0) {
      end_ = true;
      line_length_ = 0;
      return false;
    }
    if (TakeLineByte(static_cast<unsigned char>(byte))) return true;
  }
}

void ChunkedSyncInStreamImpl::ReadChunkEnd(SyncInputStreamItf& in, std::int64_t timeout,
                                           Window& window) {
  while (chunk_end_left_ > 0) {
    const std::int32_t byte = NextByte(in, timeout, window);
    if (byte != (chunk_end_left_ == 2 ? 13 : 10)) chunk_end_bad_ = true;
    --chunk_end_left_;
  }
  if (chunk_end_bad_) end_ = true;
}

unsigned ChunkedSyncInStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  // A read of nothing says nothing about the data, so it must not end the stream.
  if (end_ || count == 0) return 0;
  SyncInputStreamItf& in = Wrapped().GetObjRef();
  Window window(buffered_);
  if (chunk_end_left_ > 0) {
    ReadChunkEnd(in, timeout, window);
    if (end_) return 0;
  }
  if (consumed_ == size_ && !SizeLineInPlace(window) && !ReadSizeLine(in, timeout, window)) {
    return 0;
  }
  if (end_) return 0;
  // KEPT: unless capped, a read is not cut at the rest of the chunk: a caller asking for more
  // receives the framing bytes that follow as data.
  if (capped_) count = std::min(count, size_ - consumed_);
  unsigned got;
  if (!window.Empty()) {
    got = window.Copy(dst, count);
  } else {
    window.Commit();
    got = in.Read(dst, count, timeout);
    window.Fetch();
  }
  if (got == 0) {
    end_ = true;
    return 0;
  }
  got = std::min(got, count);
  consumed_ += got;
  if (consumed_ == size_) {
    if (window.Left() >= 2) {  // the usual case, checked here without a call
      const unsigned char* end = window.Take(2);
      if (end[0] != 13 || end[1] != 10) end_ = true;
      return got;
    }
    chunk_end_left_ = 2;
    chunk_end_bad_ = false;
    try {
      ReadChunkEnd(in, timeout, window);
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
