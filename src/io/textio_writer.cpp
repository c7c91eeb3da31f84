// The writer and the line-mode output stream.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "io/stream_helpers.h"
#include "io/textio_impl.h"
#include "kiv/exception.h"
#include "unicode/utf_codec.h"

namespace kiv {

WriterItf::~WriterItf() = default;

// ---------------------------------------------------------------------------------------------
// LineModeSyncOutputStream

LineModeSyncOutputStream::LineModeSyncOutputStream(const SyncOutputStream& out,
                                                   const TextEncoding& encoding)
    : SyncOutputStreamWrapper(out), encoding_(encoding), unit_(CodeUnitBytes(encoding)) {}

LineModeSyncOutputStream::~LineModeSyncOutputStream() {
  try {
    Push(held_);
  } catch (...) {
    // Releasing must not fail; the unfinished line is lost with the sink that refused it.
  }
}

void LineModeSyncOutputStream::Append(const void* src, unsigned count) {
  const std::uint64_t needed = static_cast<std::uint64_t>(held_) + count;
  const std::uint64_t capacity = line_ ? line_->GetSize() : 0;
  if (needed > capacity) {
    if (needed > 0xFFFFFFFFu) throw BufferException(static_cast<std::int64_t>(needed));
    std::uint64_t grown =
        std::max<std::uint64_t>(needed, std::max<std::uint64_t>(256, capacity * 2));
    if (grown > 0xFFFFFFFFu) grown = needed;
    Buffer bigger = BufferExp::Make(static_cast<unsigned>(grown));
    if (held_ > 0) std::memcpy(bigger->GetData(), line_->GetData(), held_);
    line_ = bigger;
  }
  std::memcpy(static_cast<unsigned char*>(line_->GetData()) + held_, src, count);
  held_ += count;
}

unsigned LineModeSyncOutputStream::LastLineEnd() {
  const auto* data = static_cast<const unsigned char*>(line_->GetData());
  // Unit boundaries of the held bytes lie where phase_ + offset is a multiple of unit_.
  unsigned offset = scanned_;
  const unsigned misalign = (phase_ + offset) % unit_;
  if (misalign != 0) offset += unit_ - misalign;
  unsigned last = 0;
  while (offset < held_ && held_ - offset >= unit_) {
    const unsigned end = FindLineEnd(data + offset, held_ - offset, unit_);
    if (end == 0) {
      offset = held_ - (held_ - offset) % unit_;
      break;
    }
    offset += end;
    last = offset;
  }
  scanned_ = std::max(scanned_, offset);
  return last;
}

bool LineModeSyncOutputStream::Push(unsigned n) {
  if (n == 0) return true;
  const auto* data = static_cast<const unsigned char*>(line_->GetData());
  const unsigned sent = WriteFully(Wrapped().GetObjRef(), data, n);
  if (sent > 0) {
    held_ -= sent;
    if (held_ > 0) std::memmove(line_->GetData(), data + sent, held_);
    scanned_ = scanned_ > sent ? scanned_ - sent : 0;
    complete_ = complete_ > sent ? complete_ - sent : 0;
    phase_ = (phase_ + sent) % unit_;
  }
  return sent == n;
}

unsigned LineModeSyncOutputStream::Write(const void* src, unsigned count) {
  if (count == 0 || src == nullptr) return 0;
  if (blocked_) {
    if (!Push(complete_)) return 0;
    blocked_ = false;
  }
  Append(src, count);
  complete_ = std::max(complete_, LastLineEnd());
  if (held_ >= kMaxLine) complete_ = held_ - (phase_ + held_) % unit_;
  if (complete_ > 0 && !Push(complete_)) blocked_ = true;
  return count;
}

bool LineModeSyncOutputStream::Write(unsigned char byte) { return Write(&byte, 1) == 1; }

void LineModeSyncOutputStream::Flush() {
  complete_ = held_;
  blocked_ = !Push(held_);
  Wrapped()->Flush();
}

bool LineModeSyncOutputStream::IsRandomAccess() const { return false; }

Ref<StreamMarkerItf> LineModeSyncOutputStream::ToStreamMarker() {
  throw NotRandomAccessException();
}

Ref<StreamMarkerItf> LineModeSyncOutputStream::ToStreamMarker() const {
  throw NotRandomAccessException();
}

TextEncoding LineModeSyncOutputStream::GetTextEncoding() const { return encoding_; }

void LineModeSyncOutputStream::SetTextEncoding(const TextEncoding& encoding) {
  complete_ = held_;
  blocked_ = !Push(held_);
  encoding_ = encoding;
  unit_ = CodeUnitBytes(encoding);
  // Whatever the sink refused stays held as it is; the new text begins at a unit boundary.
  scanned_ = held_;
  phase_ = (unit_ - held_ % unit_) % unit_;
}

bool LineModeSyncOutputStream::HandOn() {
  complete_ = held_;
  blocked_ = !Push(held_);
  return !blocked_;
}

SyncOutputStream LineModeSyncOutputStreamExp::Make(const SyncOutputStream& out,
                                                   const TextEncoding& encoding) {
  return SyncOutputStream(new LineModeSyncOutputStream(out, encoding));
}

// ---------------------------------------------------------------------------------------------
// WriterImpl

WriterImpl::WriterImpl(const TextEncoding& encoding, const SyncOutputStream& out)
    : raw_(out), line_(new LineModeSyncOutputStream(out, encoding)) {
  NoteEncoding();
}

WriterImpl::~WriterImpl() = default;

void WriterImpl::NoteEncoding() {
  // Every writer asks this when it is made, so the built-in encodings (which live as long as the
  // process) are fetched once, and compared as the objects they are.
  static const TextEncoding system = TextEncodingExp::MakeSystemDefault();
  static const TextEncoding ascii = TextEncodingExp::MakeAscii();
  static const TextEncoding utf8 = TextEncodingExp::MakeUTF8();
  static const TextEncoding utf16 = TextEncodingExp::MakeUTF16();
  static const TextEncoding utf32 = TextEncodingExp::MakeUTF32();
  const TextEncodingItf* encoding = line_->GetTextEncoding().Get();
  is_system_ = encoding == system.Get();
  is_ascii_ = encoding == ascii.Get();
  is_utf8_ = encoding == utf8.Get();
  ascii_compatible_ = is_system_ || is_ascii_ || is_utf8_;
  is_utf16_ = encoding == utf16.Get();
  is_utf32_ = encoding == utf32.Get();
}

TextEncoding WriterImpl::GetTextEncoding() const { return line_->GetTextEncoding(); }

void WriterImpl::SetTextEncoding(const TextEncoding& encoding) {
  if (!encoding) Object::DereferencingNULLObj(typeid(TextEncodingItf*));
  line_->SetTextEncoding(encoding);
  NoteEncoding();
}

unsigned WriterImpl::WriteBytes(const void* data, unsigned count) {
  if (data == nullptr || count == 0) return 0;
  SyncOutputStreamItf& out =
      line_mode_ ? static_cast<SyncOutputStreamItf&>(*line_.Get()) : raw_.GetObjRef();
  return WriteFully(out, data, count);
}

bool WriterImpl::Write(const String& text) {
  const String encoded = text->Encode(line_->GetTextEncoding());
  const unsigned bytes = encoded->ByteLength();
  return WriteBytes(encoded->GetData(), bytes) == bytes;
}

bool WriterImpl::WriteLine(const String& text) { return Write(text) && NewLine(); }

bool WriterImpl::Write(const char* text) {
  if (text == nullptr) return true;
  const TextEncoding system = TextEncodingExp::MakeSystemDefault();
  unsigned bytes = 0;
  system->TerminatedLength(text, bytes);
  if (bytes == 0) return true;
  if (is_system_) return WriteBytes(text, bytes) == bytes;
  if (is_ascii_ && bytes <= 4096) {
    bool pure = true;
    for (unsigned i = 0; i < bytes && pure; ++i) pure = static_cast<unsigned char>(text[i]) < 128;
    if (pure) return WriteBytes(text, bytes) == bytes;
  }
  return Write(String(system, static_cast<const void*>(text), bytes));
}

bool WriterImpl::Write(const unsigned short* text) {
  if (text == nullptr) return true;
  unsigned units = 0;
  while (text[units] != 0) ++units;
  if (units == 0) return true;
  if (is_utf16_) return WriteBytes(text, units * 2) == units * 2;
  return Write(String(TextEncodingExp::MakeUTF16(), static_cast<const void*>(text), units * 2));
}

bool WriterImpl::WriteChar(std::uint32_t c) {
  if (c < 0x80 && ascii_compatible_) {
    const auto byte = static_cast<unsigned char>(c);
    return WriteBytes(&byte, 1) == 1;
  }
  if (c > codec::kMaxScalar || (codec::IsSurrogate(c) && !is_utf16_)) {
    throw CannotConvertException();
  }
  // The Unicode encodings are written here directly: the library's conversions go through
  // 16-bit units one at a time and would write a surrogate pair as two separate characters.
  if (is_utf8_) {
    unsigned char bytes[codec::kStandardUtf8MaxLength];
    const auto n = static_cast<unsigned>(codec::Utf8Encode(bytes, bytes + sizeof bytes, c));
    return WriteBytes(bytes, n) == n;
  }
  if (is_utf32_) return WriteBytes(&c, 4) == 4;
  unsigned short units[2];
  const int n = UTF32toUTF16(units, units + 2, c);
  if (n <= 0) throw CannotConvertException();
  const unsigned bytes = static_cast<unsigned>(n) * 2;
  if (is_utf16_) return WriteBytes(units, bytes) == bytes;
  return Write(String(TextEncodingExp::MakeUTF16(), static_cast<void*>(units), bytes));
}

bool WriterImpl::Write(char c) { return WriteChar(static_cast<unsigned char>(c)); }

bool WriterImpl::WriteAscii(const char* text, unsigned length) {
  if (length == 0) return true;
  if (ascii_compatible_) return WriteBytes(text, length) == length;
  if (is_utf16_ && length <= 64) {
    unsigned short wide[64];
    for (unsigned i = 0; i < length; ++i) wide[i] = static_cast<unsigned char>(text[i]);
    return WriteBytes(wide, length * 2) == length * 2;
  }
  return Write(String(TextEncodingExp::MakeAscii(), static_cast<const void*>(text), length));
}

namespace {

unsigned Clip(int n, unsigned size) {
  if (n < 0) return 0;
  return std::min(static_cast<unsigned>(n), size - 1);
}

}  // namespace

bool WriterImpl::Write(std::int32_t value) {
  char text[16];
  return WriteAscii(text, Clip(std::snprintf(text, sizeof text, "%" PRId32, value), sizeof text));
}

bool WriterImpl::Write(std::uint32_t value) {
  char text[16];
  return WriteAscii(text, Clip(std::snprintf(text, sizeof text, "%" PRIu32, value), sizeof text));
}

bool WriterImpl::Write(std::int64_t value) {
  char text[24];
  return WriteAscii(text, Clip(std::snprintf(text, sizeof text, "%" PRId64, value), sizeof text));
}

bool WriterImpl::Write(std::uint64_t value) {
  char text[24];
  return WriteAscii(text, Clip(std::snprintf(text, sizeof text, "%" PRIu64, value), sizeof text));
}

bool WriterImpl::Write(double value) {
  char text[32];
  return WriteAscii(text, Clip(std::snprintf(text, sizeof text, "%g", value), sizeof text));
}

bool WriterImpl::WriteHex(std::uint64_t value, unsigned min_digits) {
  char text[40];
  const int digits = static_cast<int>(std::min(min_digits, 32u));
  return WriteAscii(
      text, Clip(std::snprintf(text, sizeof text, "%0*" PRIx64, digits, value), sizeof text));
}

bool WriterImpl::NewLine() { return WriteAscii("\n", 1); }

void WriterImpl::Flush() { line_->Flush(); }

SyncOutputStream WriterImpl::GetOutputStream() const { return raw_; }

void WriterImpl::SetLineMode(bool line_mode) {
  if (line_mode_ && !line_mode) line_->HandOn();
  line_mode_ = line_mode;
}

Writer WriterExp::Make(const TextEncoding& encoding, const SyncOutputStream& out) {
  if (!encoding) Object::DereferencingNULLObj(typeid(TextEncodingItf*));
  return Writer(new WriterImpl(encoding, out));
}

}  // namespace kiv
