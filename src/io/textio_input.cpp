// The text input stream and the reader.
#include <algorithm>
#include <cstring>
#include <vector>

#include "io/textio_impl.h"
#include "kiv/exception.h"

namespace kiv {

TextInputStreamItf::~TextInputStreamItf() = default;
ReaderItf::~ReaderItf() = default;

unsigned CodeUnitBytes(const TextEncoding& encoding) {
  if (!encoding) return 1;
  const unsigned bytes = encoding->UnitBits() / 8;
  return bytes == 0 ? 1 : bytes;
}

unsigned FindLineEnd(const unsigned char* data, unsigned length, unsigned unit) noexcept {
  if (unit == 1) {
    const void* hit = std::memchr(data, 10, length);
    return hit ? static_cast<unsigned>(static_cast<const unsigned char*>(hit) - data) + 1 : 0;
  }
  const unsigned whole = length - length % unit;
  for (unsigned i = 0; i < whole; i += unit) {
    if (unit == 2) {
      unsigned short u;
      std::memcpy(&u, data + i, 2);
      if (u == 10) return i + 2;
    } else if (unit == 4) {
      std::uint32_t u;
      std::memcpy(&u, data + i, 4);
      if (u == 10) return i + 4;
    } else {
      // Some other width: the line feed is the unit whose value is 10, in machine order.
      std::uint64_t u = 0;
      std::memcpy(&u, data + i, std::min<unsigned>(unit, sizeof u));
      if (u == 10) return i + unit;
    }
  }
  return 0;
}

// ---------------------------------------------------------------------------------------------
// TextInputStreamImpl

TextInputStreamImpl::TextInputStreamImpl(const SyncInputStream& in, const Buffer& buffer,
                                         const TextEncoding& encoding)
    : in_(in), buffer_(buffer) {
  if (!buffer_ || buffer_->GetSize() < kMinBuffer) buffer_ = BufferExp::Make(kDefaultBuffer);
  data_ = static_cast<unsigned char*>(buffer_->GetData());
  size_ = buffer_->GetSize();
  if (in_->IsRandomAccess()) {
    start_ = static_cast<std::uint64_t>(in_->ToStreamMarker()->GetPosition());
  }
  SetTextEncoding(encoding);
}

TextInputStreamImpl::~TextInputStreamImpl() = default;

unsigned TextInputStreamImpl::Fill(std::int64_t timeout) {
  if (cursor_ > 0) {
    start_ += cursor_;
    const unsigned unread = Available();
    if (unread > 0) std::memmove(data_, data_ + cursor_, unread);
    valid_ = unread;
    cursor_ = 0;
  }
  if (valid_ == size_) return 0;
  const unsigned got = in_->Read(data_ + valid_, size_ - valid_, timeout);
  valid_ += std::min(got, size_ - valid_);
  return got;
}

unsigned TextInputStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  timed_out_ = false;
  if (count == 0) return 0;
  unsigned n = std::min(count, Available());
  if (n > 0) {
    std::memcpy(dst, data_ + cursor_, n);
    cursor_ += n;
    return n;
  }
  if (count >= size_) {
    // Nothing buffered and a large request: straight into the caller's memory.
    start_ += cursor_;
    cursor_ = valid_ = 0;
    const unsigned got = in_->Read(dst, count, timeout);
    start_ += got;
    return got;
  }
  Fill(timeout);
  n = std::min(count, Available());
  if (n > 0) std::memcpy(dst, data_ + cursor_, n);
  cursor_ += n;
  return n;
}

std::int32_t TextInputStreamImpl::Read(std::int64_t timeout) {
  timed_out_ = false;
  if (Available() == 0) Fill(timeout);
  if (Available() == 0) return -1;
  return data_[cursor_++];
}

bool TextInputStreamImpl::IsRandomAccess() const { return in_->IsRandomAccess(); }

std::int64_t TextInputStreamImpl::GetLength() { return in_->ToStreamMarker()->GetLength(); }

std::int64_t TextInputStreamImpl::GetPosition() {
  return static_cast<std::int64_t>(start_ + cursor_);
}

void TextInputStreamImpl::SetPosition(std::int64_t pos) {
  timed_out_ = false;
  if (pos >= 0 && static_cast<std::uint64_t>(pos) >= start_ &&
      static_cast<std::uint64_t>(pos) - start_ <= valid_) {
    cursor_ = static_cast<unsigned>(static_cast<std::uint64_t>(pos) - start_);
    return;
  }
  in_->ToStreamMarker()->SetPosition(pos);
  cursor_ = valid_ = 0;
  start_ = static_cast<std::uint64_t>(pos);
}

TextEncoding TextInputStreamImpl::GetTextEncoding() const { return encoding_; }

void TextInputStreamImpl::SetTextEncoding(const TextEncoding& encoding) {
  DataConverter to_wide = encoding->GetToWideConverter()->GetDataConverter();
  encoding_ = encoding;
  to_wide_ = to_wide;
  unit_ = CodeUnitBytes(encoding);
}

std::uint32_t TextInputStreamImpl::ReadChar(std::int64_t timeout) {
  timed_out_ = false;
  if (Available() == 0) Fill(timeout);
  if (Available() == 0) return 0;
  bool at_end = false;
  for (;;) {
    // Room for one 16-bit unit only: a character that needs a surrogate pair does not fit, so it
    // is consumed and reads as 0 like any other character that does not convert.
    unsigned char out[2];
    unsigned out_size = sizeof out;
    unsigned in_size = Available();
    DataConverterItf::BufferResult result;
    try {
      result = to_wide_->Convert(out, out_size, data_ + cursor_, in_size, at_end);
    } catch (const CannotConvertException&) {
      // Malformed input: skip one code unit so that the next read goes on after it.
      cursor_ += std::min(unit_, Available());
      return 0;
    } catch (const BoundsException&) {
      cursor_ += std::min(unit_, Available());
      return 0;
    }
    if (result == DataConverterItf::ResultInputIncomplete && !at_end) {
      // The character goes on past the buffered bytes: one more read of the wrapped stream. A
      // time-out there leaves the bytes buffered for the next call.
      if (Fill(timeout) == 0) at_end = true;
      continue;
    }
    if (result != DataConverterItf::ResultOK || in_size == 0) {
      // A character cut short by the end of data, one too wide for a single unit, or one that
      // does not convert: it is consumed and reads as 0.
      cursor_ += in_size > 0 ? std::min(in_size, Available()) : Available();
      return 0;
    }
    cursor_ += std::min(in_size, Available());
    if (out_size < 2) return 0;
    unsigned short unit;
    std::memcpy(&unit, out, sizeof unit);
    return unit;
  }
}

unsigned TextInputStreamImpl::ReadLine(void* out, unsigned limit, std::int64_t timeout) {
  if (timed_out_) {
    // The time-out that cut the previous call short, reported now that the caller has the bytes.
    timed_out_ = false;
    throw IOTimeoutException();
  }
  limit -= limit % unit_;
  if (out == nullptr || limit == 0) return 0;
  auto* dst = static_cast<unsigned char*>(out);
  if (Available() == 0) Fill(timeout);
  if (Available() == 0) return 0;
  unsigned delivered = 0;
  for (;;) {
    const unsigned available = Available();
    const unsigned whole = available - available % unit_;
    const unsigned line_end = FindLineEnd(data_ + cursor_, whole, unit_);
    unsigned n = line_end ? line_end : whole;
    n = std::min(n, limit - delivered);
    std::memcpy(dst + delivered, data_ + cursor_, n);
    cursor_ += n;
    delivered += n;
    if ((line_end != 0 && n == line_end) || delivered == limit) return delivered;
    unsigned got;
    try {
      got = Fill(timeout);
    } catch (const IOTimeoutException&) {
      if (delivered == 0) throw;
      timed_out_ = true;
      return delivered;
    }
    if (got == 0) {
      // End of data: a trailing part of a code unit is delivered as it stands.
      const unsigned rest = std::min(Available(), limit - delivered);
      if (rest > 0 && rest < unit_) {
        std::memcpy(dst + delivered, data_ + cursor_, rest);
        cursor_ += rest;
        delivered += rest;
      }
      return delivered;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// ReaderImpl

ReaderImpl::ReaderImpl(const TextInputStream& in, std::int64_t timeout)
    : in_(in), timeout_(timeout) {}

ReaderImpl::~ReaderImpl() = default;

TextEncoding ReaderImpl::GetTextEncoding() const { return in_->GetTextEncoding(); }

void ReaderImpl::SetTextEncoding(const TextEncoding& encoding) { in_->SetTextEncoding(encoding); }

bool ReaderImpl::ReadLine(String& line) {
  static constexpr unsigned kScratch = 1024;
  TextEncoding encoding = in_->GetTextEncoding();
  const unsigned unit = CodeUnitBytes(encoding);
  unsigned char scratch[kScratch];
  std::vector<unsigned char> gathered;  // only for lines that take more than one round
  unsigned total = 0;
  bool ended = false;
  while (!ended) {
    unsigned n;
    try {
      n = in_->ReadLine(scratch, kScratch, timeout_);
    } catch (const IOTimeoutException&) {
      if (total == 0) throw;
      break;
    }
    if (n == 0) break;
    ended = n >= unit && FindLineEnd(scratch + n - unit, unit, unit) == unit;
    if (total == 0 && ended) {
      line = String(encoding, static_cast<void*>(scratch), n);
      return true;
    }
    gathered.insert(gathered.end(), scratch, scratch + n);
    total += n;
  }
  if (total == 0) {
    line = String(encoding);
    return false;
  }
  line = String(encoding, static_cast<void*>(gathered.data()), total);
  return true;
}

bool ReaderImpl::ReadChar(std::uint32_t& c) {
  c = in_->ReadChar(timeout_);
  return c != 0;
}

bool ReaderImpl::ReadChar(unsigned short& c) {
  std::uint32_t wide = 0;
  const bool got = ReadChar(wide);
  c = static_cast<unsigned short>(wide);
  return got;
}

// ---------------------------------------------------------------------------------------------
// Factories

TextInputStream TextInputStreamExp::Make(const SyncInputStream& in, const Buffer& buffer,
                                         const TextEncoding& encoding) {
  return TextInputStream(new TextInputStreamImpl(in, buffer, encoding));
}

Reader ReaderExp::Make(const TextInputStream& in, std::int64_t timeout) {
  return Reader(new ReaderImpl(in, timeout));
}

}  // namespace kiv
