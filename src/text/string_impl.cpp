// Immutable strings, string buffers and the conversion helpers they share.
#include <algorithm>
#include <cstring>
#include <typeinfo>
#include <utility>
#include <vector>

#include "core/buffer_impl.h"
#include "kiv/containers.h"
#include "kiv/exception.h"
#include "text/encodings/encoding_impls.h"
#include "text/string_impl.h"
#include "unicode/utf_codec.h"

namespace kiv {

namespace text {

Buffer ConvertAll(const BlockConverter& converter, const void* in, unsigned in_bytes,
                  unsigned& bytes) {
  BlockConverter conv = converter;
  // Start from the converter's own estimate and grow when it asks for more; each call converts
  // as much as fits, so the loop ends after a few rounds even for a poor estimate.
  unsigned estimate = 0;
  unsigned estimate_in = in_bytes;
  conv->EstimateSizes(estimate, 0, in, estimate_in, 0, true);
  unsigned capacity = std::max(estimate, in_bytes) + 8;
  Buffer out = BufferExp::Make(capacity);
  unsigned written = 0;
  unsigned consumed = 0;
  unsigned out_pos = 0;
  unsigned in_pos = 0;
  while (consumed < in_bytes) {
    unsigned room = capacity - kTerminatorRoom - written;
    unsigned out_size = room;
    unsigned in_size = in_bytes - consumed;
    auto result = conv->Convert(static_cast<char*>(out->GetData()) + written, out_size, out_pos,
                                static_cast<const char*>(in) + consumed, in_size, in_pos, true);
    if (result == DataConverterItf::ResultOutputTooSmall && out_size > room) {
      // Nothing fitted: `out_size` is what the next character (or the whole rest) needs.
      unsigned grown = capacity + std::max(out_size, (in_bytes - consumed) * 2) + 8;
      Buffer bigger = BufferExp::Make(grown);
      std::memcpy(bigger->GetData(), out->GetData(), written);
      out = bigger;
      capacity = grown;
      continue;
    }
    if (in_size == 0) {
      // An incomplete sequence at the very end, or a converter that cannot move on: the text is
      // malformed for this conversion.
      throw CannotConvertException();
    }
    written += out_size;
    consumed += in_size;
  }
  PutTerminator(static_cast<char*>(out->GetData()) + written);
  bytes = written;
  return out;
}

String Reencode(const TextEncoding& from, const void* data, unsigned bytes,
                const TextEncoding& to) {
  if (bytes == 0) return String(to);
  TextEncoding utf16 = TextEncodingExp::MakeUTF16();
  const void* wide = data;
  unsigned wide_bytes = bytes;
  Buffer wide_buffer;
  if (!RefCount::Equals(from.Get(), utf16.Get())) {
    wide_buffer = ConvertAll(from->GetToWideConverter(), data, bytes, wide_bytes);
    wide = wide_buffer->GetData();
  }
  if (RefCount::Equals(to.Get(), utf16.Get())) {
    if (!wide_buffer) {
      return String(to, const_cast<void*>(wide), wide_bytes);
    }
    return String(to, wide_buffer, wide, wide_bytes);
  }
  unsigned out_bytes = 0;
  Buffer out = ConvertAll(to->GetFromWideConverter(), wide, wide_bytes, out_bytes);
  return String(to, out, out->GetData(), out_bytes);
}

Layout LayoutOf(const TextEncodingItf& encoding) {
  // The built-in encodings are told apart by class, which costs no reference counting.
  const std::type_info& type = typeid(encoding);
  if (type == typeid(UTF16TextEncodingImpl)) return Layout::kUtf16;
  if (type == typeid(UTF8TextEncodingImpl)) return Layout::kUtf8;
  if (type == typeid(AsciiTextEncodingImpl)) return Layout::kAscii;
  if (type == typeid(UTF32TextEncodingImpl)) return Layout::kUtf32;
  return Layout::kOther;
}

namespace {

// Values an 8-bit unit holds: the byte values themselves, and the two widened forms of a byte
// above 0x7F (16-bit from the to-wide converter, 32-bit from Find's sign extension).
bool IsByteValue(std::uint32_t c) noexcept {
  return c <= 0xFF || (c >= 0xFF80 && c <= 0xFFFF) || c >= 0xFFFFFF80u;
}

// The largest value the six-byte form of UTF-8 can carry.
constexpr std::uint32_t kMaxUtf8Value = 0x7FFFFFFF;

}  // namespace

String OneCharacter(const TextEncoding& encoding, std::uint32_t c) {
  unsigned char bytes[8];
  unsigned n = 0;
  switch (LayoutOf(*encoding.operator->())) {
    case Layout::kAscii:
      // What ASCII cannot hold becomes '.', as in every conversion to ASCII: never reported.
      bytes[0] = IsByteValue(c) ? static_cast<unsigned char>(c & 0xFF) : '.';
      n = 1;
      break;
    case Layout::kUtf8:
      if (c > kMaxUtf8Value) throw CannotConvertException();
      n = static_cast<unsigned>(codec::Utf8Encode(bytes, bytes + sizeof bytes, c));
      break;
    case Layout::kUtf16: {
      unsigned short units[2];
      int count = UTF32toUTF16(units, units + 2, c);
      if (count <= 0) throw CannotConvertException();
      n = static_cast<unsigned>(count) * 2;
      std::memcpy(bytes, units, n);
      break;
    }
    case Layout::kUtf32:
      codec::Store32(bytes, c);
      n = 4;
      break;
    case Layout::kOther: {
      unsigned short wide[2];
      int units = UTF32toUTF16(wide, wide + 2, c);
      if (units <= 0) throw CannotConvertException();
      return Reencode(TextEncodingExp::MakeUTF16(), wide, static_cast<unsigned>(units) * 2,
                      encoding);
    }
  }
  Buffer buffer = BufferExp::Make(n + kTerminatorRoom);
  void* data = buffer->GetData();
  std::memcpy(data, bytes, n);
  PutTerminator(static_cast<char*>(data) + n);
  return String(new StringImpl(encoding, std::move(buffer), data, n, 1));
}

unsigned FirstCharacterBytes(const TextEncodingItf& encoding, const void* data, unsigned length) {
  switch (LayoutOf(encoding)) {
    case Layout::kAscii:
      return 1;
    case Layout::kUtf16:
      return 2;
    case Layout::kUtf32:
      return 4;
    case Layout::kUtf8: {
      const auto* p = static_cast<const unsigned char*>(data);
      std::uint32_t value = 0;
      int n = codec::LenientUtf8Decode(p, p + length, value);
      if (n <= 0) throw CannotConvertException();
      return static_cast<unsigned>(n);
    }
    case Layout::kOther:
      break;
  }
  // A variable-width encoding may refuse an index equal to its character count: a text of one
  // character is that character.
  if (encoding.CharacterCount(data, length) <= 1) return length;
  unsigned rest = length;
  const void* next = encoding.DataAt(data, rest, 1);
  return static_cast<unsigned>(static_cast<const char*>(next) - static_cast<const char*>(data));
}

}  // namespace text

// ---- StringImpl ----

StringImpl::~StringImpl() = default;

String StringImpl::MakeWithStorage(const TextEncoding& encoding, unsigned size, unsigned bytes,
                                   char*& storage) {
  BufferImpl* block = BufferImpl::MakeOwned(size, sizeof(StringImpl));
  storage = static_cast<char*>(block->GetData());
  auto* string = ::new (block->Room())
      StringImpl(kAdoptRef, encoding, Buffer(block, kAdoptRef), storage, bytes);
  return String(string, kAdoptRef);
}

void StringImpl::operator delete(StringImpl* p, std::destroying_delete_t) noexcept {
  BufferItf* buffer = p->buffer_.Get();
  // Only the library's own buffers keep room for a string; the one living there is the string
  // the buffer was made with (substrings sharing the buffer live elsewhere).
  bool inside = buffer != nullptr && typeid(*buffer) == typeid(BufferImpl) &&
                static_cast<BufferImpl*>(buffer)->Room() == static_cast<void*>(p);
  if (!inside) {
    p->~StringImpl();
    RefCount::operator delete(p);
    return;
  }
  // The buffer, held by this string until now, may be the last owner of the block.
  Buffer keep(std::move(p->buffer_));
  p->~StringImpl();
}

String StringImpl::Encode(const TextEncoding& encoding) const {
  if (RefCount::Equals(encoding.Get(), encoding_.Get())) return String(this);
  return text::Reencode(encoding_, data_, bytes_, encoding);
}

String StringImpl::Concat(std::uint32_t c) const {
  return Concat(text::OneCharacter(encoding_, c));
}

String StringImpl::Concat(const void* text) const { return Concat(String(encoding_, text)); }

String StringImpl::Concat(const StringBuffer& text) const { return Concat(text.ToString()); }

String StringImpl::Concat(const String& text) const {
  const BasicStringItf& other = *text.operator->();
  text::RawText raw;
  if (SameEncodingText(other, raw)) return Joined(raw.data, raw.bytes, raw.bytes);
  View converted = ViewInMyEncoding(other);
  return Joined(converted.data, converted.bytes, other.ByteLength());
}

String StringImpl::Joined(const void* data, unsigned bytes, unsigned own_bytes) const {
  // One allocation: the string, its buffer and the buffer's bytes: both operands' own bytes and
  // the terminator room, the layout a string buffer over such a buffer would produce. A right
  // operand in another encoding is converted first; should it grow, the buffer fits the converted
  // bytes exactly instead.
  unsigned size = bytes_ + std::max(own_bytes, bytes) + kTerminatorRoom;
  char* out = nullptr;
  String joined = MakeWithStorage(encoding_, size, bytes_ + bytes, out);
  if (bytes_ > 0) std::memcpy(out, data_, bytes_);
  if (bytes > 0) std::memcpy(out + bytes_, data, bytes);
  PutTerminator(out + bytes_ + bytes);
  return joined;
}

String StringImpl::Quote() const {
  String wide = Encode(TextEncodingExp::MakeUTF16());
  const unsigned short* p = static_cast<const unsigned short*>(wide->GetData());
  unsigned n = wide->ByteLength() / 2;
  std::vector<unsigned short> out;
  out.reserve(n + 2);
  out.push_back('"');
  static const char kHex[] = "0123456789abcdef";
  for (unsigned i = 0; i < n; ++i) {
    unsigned short c = p[i];
    auto put = [&out](char a, char b) {
      out.push_back(static_cast<unsigned short>(a));
      out.push_back(static_cast<unsigned short>(b));
    };
    switch (c) {
      case '"':
        put('\\', '"');
        break;
      case '\\':
        put('\\', '\\');
        break;
      case '\n':
        put('\\', 'n');
        break;
      case '\r':
        put('\\', 'r');
        break;
      case '\t':
        put('\\', 't');
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          put('\\', 'u');
          for (int shift = 12; shift >= 0; shift -= 4) {
            out.push_back(static_cast<unsigned short>(kHex[(c >> shift) & 0xF]));
          }
        } else {
          out.push_back(c);
        }
    }
  }
  out.push_back('"');
  return text::Reencode(TextEncodingExp::MakeUTF16(), out.data(),
                        static_cast<unsigned>(out.size() * 2), encoding_);
}

String StringImpl::Substring(std::int32_t start) const {
  std::int32_t length = static_cast<std::int32_t>(Length());
  return Substring(start, length);
}

String StringImpl::Substring(std::int32_t start, std::int32_t count) const {
  std::int32_t length = static_cast<std::int32_t>(Length());
  start = std::clamp(start, 0, length);
  count = std::clamp(count, 0, length - start);
  // The end of the text is never looked up through DataAt: variable-width encodings refuse an
  // index equal to their character count.
  const char* end = static_cast<const char*>(data_) + bytes_;
  unsigned rest = bytes_;
  const void* from = start == 0        ? data_
                     : start == length ? end
                                       : encoding_->DataAt(data_, rest, start);
  unsigned tail = rest;
  const void* to = start + count == length ? end
                   : count == 0            ? from
                                           : encoding_->DataAt(from, tail, count);
  unsigned bytes =
      static_cast<unsigned>(static_cast<const char*>(to) - static_cast<const char*>(from));
  return String(new StringImpl(encoding_, buffer_, from, bytes, static_cast<std::uint32_t>(count)));
}

String StringImpl::Trim() const {
  const void* data = data_;
  unsigned length = bytes_;
  std::uint32_t chars = bytes_ == 0 ? 0 : encoding_->Trim(data, length);
  if (bytes_ == 0) length = 0;
  return String(new StringImpl(encoding_, buffer_, data, length, chars));
}

String StringImpl::CaseCopy(const BlockConverter& converter) const {
  if (bytes_ == 0) return String(encoding_);
  unsigned bytes = 0;
  Buffer out = text::ConvertAll(converter, data_, bytes_, bytes);
  void* data = out->GetData();
  return String(new StringImpl(encoding_, std::move(out), data, bytes));
}

String StringImpl::ToLower() const { return CaseCopy(encoding_->GetToLowerConverter()); }

String StringImpl::ToUpper() const { return CaseCopy(encoding_->GetToUpperConverter()); }

String StringImpl::SplitPiece(const void* data, unsigned bytes, bool trim) const {
  String piece(new StringImpl(encoding_, buffer_, data, bytes));
  return trim ? piece->Trim() : piece;
}

Container StringImpl::SplitOn(const String& separator, bool trim, std::int32_t max) const {
  Container pieces = ContainerExp::MakeList();
  String whole = trim ? Trim() : String(this);
  if (max < 2) {
    pieces->AddLast(whole);
    return pieces;
  }
  View sep = ViewInMyEncoding(*separator.operator->());
  const char* start = static_cast<const char*>(whole->GetData());
  unsigned rest = whole->ByteLength();
  const StringImpl* self = static_cast<const StringImpl*>(whole.GetRef().Get());
  unsigned offset = 0;
  std::int32_t made = 0;
  while (made < max - 1 && sep.bytes > 0) {
    std::int64_t at = self->FindBytes(sep.data, sep.bytes, offset);
    if (at < 0) break;
    unsigned pos = static_cast<unsigned>(at);
    pieces->AddLast(SplitPiece(start + offset, pos - offset, trim));
    offset = pos + sep.bytes;
    ++made;
  }
  pieces->AddLast(SplitPiece(start + offset, rest - offset, trim));
  return pieces;
}

Container StringImpl::Split(std::uint32_t separator, bool trim, std::int32_t max) const {
  // The cuts are exactly where IndexOf finds the character: the encoding's own Find, never a
  // byte search for some encoded form of it (an 8-bit encoding, for one, never finds 0x80-0xFF).
  Container pieces = ContainerExp::MakeList();
  String whole = trim ? Trim() : String(this);
  if (max < 2) {
    pieces->AddLast(whole);
    return pieces;
  }
  const char* at = static_cast<const char*>(whole->GetData());
  unsigned rest = whole->ByteLength();
  for (std::int32_t made = 0; made < max - 1 && rest > 0; ++made) {
    std::int32_t index = encoding_->Find(separator, at, rest);
    if (index < 0) break;
    unsigned tail = rest;
    const char* hit =
        index == 0 ? at : static_cast<const char*>(encoding_->DataAt(at, tail, index));
    unsigned before = static_cast<unsigned>(hit - at);
    unsigned width = text::FirstCharacterBytes(*encoding_.Get(), hit, rest - before);
    pieces->AddLast(SplitPiece(at, before, trim));
    at = hit + width;
    rest -= before + width;
  }
  pieces->AddLast(SplitPiece(at, rest, trim));
  return pieces;
}

Container StringImpl::Split(const void* separator, bool trim, std::int32_t max) const {
  return SplitOn(String(encoding_, separator), trim, max);
}

Container StringImpl::Split(const StringBuffer& separator, bool trim, std::int32_t max) const {
  return SplitOn(separator.ToString(), trim, max);
}

Container StringImpl::Split(const String& separator, bool trim, std::int32_t max) const {
  return SplitOn(separator, trim, max);
}

// ---- StringBufferImpl ----

StringBufferImpl::StringBufferImpl(const TextEncoding& encoding, const Buffer& storage)
    : BasicStringImpl(encoding, storage, !storage ? nullptr : storage->GetData(), 0, 0) {}

StringBufferImpl::~StringBufferImpl() = default;

void StringBufferImpl::Grow(unsigned bytes) {
  // KEPT: exact fit, never by a factor: keep the storage when it is large enough, else move to
  // storage of exactly `bytes` bytes. Storage shared with a String is left to it.
  if (buffer_ && shared_ == 0 && buffer_->GetSize() >= bytes) return;
  Buffer next = BufferExp::Make(bytes);
  if (bytes_ > 0) std::memcpy(next->GetData(), data_, bytes_);
  buffer_ = next;
  data_ = buffer_->GetData();
  shared_ = 0;
}

void StringBufferImpl::Reserve(unsigned bytes) {
  if (bytes > Capacity()) Grow(bytes);
}

void StringBufferImpl::AppendBytes(const void* data, unsigned bytes, std::uint32_t chars) {
  if (bytes == 0) return;
  unsigned need = bytes_ + bytes + kTerminatorRoom;
  if (!buffer_ || buffer_->GetSize() < need) {
    shared_ = 0;  // Moving on leaves the shared storage untouched.
    Grow(need);
  }
  // Appending writes only past the end of any shared string, so shared storage stays in use.
  std::memmove(static_cast<char*>(buffer_->GetData()) + bytes_, data, bytes);
  bytes_ += bytes;
  chars_ = (chars_ == kUnknownLength || chars == kUnknownLength) ? kUnknownLength : chars_ + chars;
}

void StringBufferImpl::Append(const String& text) {
  View mine = ViewInMyEncoding(*text.operator->());
  // A re-encoded copy's character count is not known without counting it.
  std::uint32_t chars = !mine.copy ? text->Length() : kUnknownLength;
  AppendBytes(mine.data, mine.bytes, chars);
}

void StringBufferImpl::Append(const StringBuffer& text) { Append(text.ToString()); }

void StringBufferImpl::Append(const void* text) { Append(String(encoding_, text)); }

void StringBufferImpl::Append(std::uint32_t c) {
  String one = text::OneCharacter(encoding_, c);
  AppendBytes(one->GetData(), one->ByteLength(), 1);
}

void StringBufferImpl::Clear() {
  bytes_ = 0;
  chars_ = 0;
  if (shared_ > 0) {
    // The next write would land inside a shared string: start over in fresh storage.
    buffer_ = Buffer();
    data_ = nullptr;
    shared_ = 0;
  }
}

void StringBufferImpl::Assign(const String& text) {
  String keep = text;  // `text` may share this buffer's storage.
  Clear();
  if (buffer_ && keep->GetData() >= buffer_->GetData() &&
      keep->GetData() < static_cast<const char*>(buffer_->GetData()) + buffer_->GetSize()) {
    buffer_ = Buffer();
    data_ = nullptr;
  }
  Append(keep);
}

void StringBufferImpl::Assign(const StringBuffer& text) { Assign(text.ToString()); }

void StringBufferImpl::Assign(const void* text) { Assign(String(encoding_, text)); }

void StringBufferImpl::Assign(std::uint32_t c) { Assign(text::OneCharacter(encoding_, c)); }

String StringBufferImpl::ToString() const {
  if (bytes_ == 0) return String(encoding_);
  // The string shares the storage; writes below its end move the buffer on first.
  shared_ = std::max(shared_, bytes_);
  return String(new StringImpl(encoding_, buffer_, data_, bytes_, chars_));
}

}  // namespace kiv
