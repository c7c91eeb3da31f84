// The read-only operations shared by strings and string buffers.
#include <atomic>
#include <cstring>

#include "kiv/exception.h"
#include "text/string_impl.h"
#include "unicode/utf_codec.h"

namespace kiv {

BasicStringItf::~BasicStringItf() = default;
StringItf::~StringItf() = default;
StringBufferItf::~StringBufferItf() = default;

namespace {

std::uint32_t LoadCount(const std::uint32_t& chars) {
  return std::atomic_ref<std::uint32_t>(const_cast<std::uint32_t&>(chars))
      .load(std::memory_order_relaxed);
}

}  // namespace

template <class Itf>
std::uint32_t BasicStringImpl<Itf>::Length() const {
  // Counted on first use (a UTF-8 count walks the text) and cached; two threads that race here
  // store the same value.
  std::uint32_t n = LoadCount(chars_);
  if (n == kUnknownLength) {
    n = bytes_ == 0 ? 0 : encoding_->CharacterCount(data_, bytes_);
    std::atomic_ref<std::uint32_t>(chars_).store(n, std::memory_order_relaxed);
  }
  return n;
}

template <class Itf>
const void* BasicStringImpl<Itf>::DataAt(std::int32_t index, unsigned& bytes) const {
  bytes = bytes_;
  return encoding_->DataAt(data_, bytes, index);
}

template <class Itf>
std::uint32_t BasicStringImpl<Itf>::CharAt(std::int32_t index) const {
  if (index < 0) throw BoundsException(index);
  unsigned rest = bytes_;
  const void* at = nullptr;
  try {
    at = encoding_->DataAt(data_, rest, index);
  } catch (const NoSuchElementException&) {
    throw BoundsException(index);
  }
  if (rest == 0) throw BoundsException(index);
  unsigned unit = UnitBytes();
  if (unit == 2) {
    if (rest < 2) throw BoundsException(index);  // a stray odd byte is no character
    return codec::Load16(at);
  }
  // Any other encoding: the character's first wide unit through the encoding's own converter,
  // so that, for example, ASCII bytes above 0x7F read as the converter widens them.
  DataConverter dc = encoding_->GetToWideConverter()->GetDataConverter();
  unsigned short wide[2] = {0, 0};
  unsigned out = sizeof wide;
  unsigned in = rest;
  if (dc->Convert(wide, out, at, in, true) != DataConverterItf::ResultOK) {
    throw BoundsException(index);
  }
  if (out == 4 && codec::IsLeadSurrogate(wide[0]))
    return codec::CombineSurrogates(wide[0], wide[1]);
  return wide[0];
}

template <class Itf>
typename BasicStringImpl<Itf>::View BasicStringImpl<Itf>::ViewInMyEncoding(
    const BasicStringItf& other) const {
  const TextEncodingItf* fast = text::FastEncodingOf(other);
  bool same = fast != nullptr ? RefCount::Equals(fast, encoding_.Get())
                              : RefCount::Equals(other.GetEncoding().Get(), encoding_.Get());
  if (same) return View{other.GetData(), other.ByteLength(), String()};
  String copy = text::Reencode(other.GetEncoding(), other.GetData(), other.ByteLength(), encoding_);
  return View{copy->GetData(), copy->ByteLength(), copy};
}

template <class Itf>
bool BasicStringImpl<Itf>::SameEncodingText(const BasicStringItf& other, text::RawText& raw) const {
  return text::FastTextOf(other, raw) && raw.encoding == encoding_.Get();
}

template <class Itf>
std::int64_t BasicStringImpl<Itf>::FindBytes(const void* needle, unsigned needle_bytes,
                                             unsigned from) const {
  if (needle_bytes == 0) return from <= bytes_ ? from : -1;
  if (needle_bytes > bytes_) return -1;
  const unsigned char* hay = static_cast<const unsigned char*>(data_);
  const unsigned char* pat = static_cast<const unsigned char*>(needle);
  unsigned step = UnitBytes();
  if (step == 0) step = 1;
  // Matches must start on a code unit; UTF-8 needs no more, since a needle starts with a lead
  // byte, which never matches inside another character.
  for (unsigned at = from; at + needle_bytes <= bytes_;) {
    const void* hit = std::memchr(hay + at, pat[0], bytes_ - needle_bytes - at + 1);
    if (hit == nullptr) return -1;
    unsigned pos = static_cast<unsigned>(static_cast<const unsigned char*>(hit) - hay);
    if ((pos - from) % step != 0) {
      at = pos + 1;
      continue;
    }
    if (std::memcmp(hay + pos, pat, needle_bytes) == 0) return pos;
    at = pos + step;
  }
  return -1;
}

template <class Itf>
std::int64_t BasicStringImpl<Itf>::FindLastBytes(const void* needle, unsigned needle_bytes) const {
  if (needle_bytes == 0) return bytes_;
  if (needle_bytes > bytes_) return -1;
  const unsigned char* hay = static_cast<const unsigned char*>(data_);
  unsigned step = UnitBytes();
  if (step == 0) step = 1;
  unsigned last = (bytes_ - needle_bytes) / step * step;
  for (std::int64_t at = last; at >= 0; at -= step) {
    if (std::memcmp(hay + at, needle, needle_bytes) == 0) return at;
  }
  return -1;
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexAtOffset(std::int64_t offset) const {
  if (offset < 0) return -1;
  if (offset == 0) return 0;
  return static_cast<std::int32_t>(encoding_->CharacterCount(data_, static_cast<unsigned>(offset)));
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOfText(const BasicStringItf& text) const {
  text::RawText raw;
  if (SameEncodingText(text, raw)) return IndexAtOffset(FindBytes(raw.data, raw.bytes, 0));
  View needle = ViewInMyEncoding(text);
  return IndexAtOffset(FindBytes(needle.data, needle.bytes, 0));
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::LastIndexOfText(const BasicStringItf& text) const {
  View needle = ViewInMyEncoding(text);
  return IndexAtOffset(FindLastBytes(needle.data, needle.bytes));
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOf(std::uint32_t c) const {
  return bytes_ == 0 ? -1 : encoding_->Find(c, data_, bytes_);
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOf(const void* text) const {
  return IndexOfText(*String(encoding_, text).operator->());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOf(const StringBuffer& text) const {
  return IndexOfText(*text.operator->());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOf(const String& text) const {
  return IndexOfText(*text.operator->());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::IndexOf(const String& text, std::int32_t from) const {
  if (from <= 0) return IndexOf(text);
  unsigned rest = bytes_;
  const void* at = nullptr;
  try {
    at = encoding_->DataAt(data_, rest, from);
  } catch (const Exception&) {
    return -1;
  }
  View needle = ViewInMyEncoding(*text.operator->());
  unsigned offset =
      static_cast<unsigned>(static_cast<const char*>(at) - static_cast<const char*>(data_));
  return IndexAtOffset(FindBytes(needle.data, needle.bytes, offset));
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::LastIndexOf(std::uint32_t c) const {
  return bytes_ == 0 ? -1 : encoding_->FindLast(c, data_, bytes_, Length());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::LastIndexOf(const void* text) const {
  return LastIndexOfText(*String(encoding_, text).operator->());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::LastIndexOf(const StringBuffer& text) const {
  return LastIndexOfText(*text.operator->());
}

template <class Itf>
std::int32_t BasicStringImpl<Itf>::LastIndexOf(const String& text) const {
  return LastIndexOfText(*text.operator->());
}

template <class Itf>
bool BasicStringImpl<Itf>::Contains(const String& text) const {
  return IndexOf(text) >= 0;
}

template <class Itf>
bool BasicStringImpl<Itf>::StartsWith(const String& prefix) const {
  View p = ViewInMyEncoding(*prefix.operator->());
  return p.bytes == 0 || (p.bytes <= bytes_ && std::memcmp(data_, p.data, p.bytes) == 0);
}

template <class Itf>
bool BasicStringImpl<Itf>::EndsWith(const String& suffix) const {
  View s = ViewInMyEncoding(*suffix.operator->());
  return s.bytes == 0 ||
         (s.bytes <= bytes_ &&
          std::memcmp(static_cast<const char*>(data_) + (bytes_ - s.bytes), s.data, s.bytes) == 0);
}

template <class Itf>
bool BasicStringImpl<Itf>::StartsWith(const void* text) const {
  return StartsWith(String(encoding_, text));
}

template <class Itf>
bool BasicStringImpl<Itf>::EndsWith(const void* text) const {
  return EndsWith(String(encoding_, text));
}

template <class Itf>
int BasicStringImpl<Itf>::CompareWith(const BasicStringItf& other) const {
  text::RawText raw;
  if (SameEncodingText(other, raw)) return encoding_->Compare(data_, bytes_, raw.data, raw.bytes);
  View o = ViewInMyEncoding(other);
  return encoding_->Compare(data_, bytes_, o.data, o.bytes);
}

template <class Itf>
int BasicStringImpl<Itf>::CompareTo(const String& other) const {
  return CompareWith(*other.operator->());
}

template <class Itf>
int BasicStringImpl<Itf>::CompareTo(const StringBuffer& other) const {
  return CompareWith(*other.operator->());
}

template <class Itf>
int BasicStringImpl<Itf>::Compare(const void* text) const {
  unsigned length = 0;
  if (text != nullptr) encoding_->TerminatedLength(text, length);  // null: the empty text
  return encoding_->Compare(data_, bytes_, text, length);
}

template <class Itf>
int BasicStringImpl<Itf>::CompareIgnoreCase(const String& other) const {
  String mine(encoding_, Buffer(buffer_), data_, bytes_);
  return mine->ToLower().operator->()->CompareTo(other->ToLower());
}

template <class Itf>
bool BasicStringImpl<Itf>::EqualsIgnoreCase(const String& other) const {
  return CompareIgnoreCase(other) == 0;
}

template <class Itf>
std::uint32_t BasicStringImpl<Itf>::CountOf(std::uint32_t c) const {
  std::uint32_t count = 0;
  const char* at = static_cast<const char*>(data_);
  unsigned rest = bytes_;
  while (rest > 0) {
    std::int32_t i = encoding_->Find(c, at, rest);
    if (i < 0) break;
    ++count;
    unsigned tail = rest;
    const char* hit = i == 0 ? at : static_cast<const char*>(encoding_->DataAt(at, tail, i));
    unsigned skipped = static_cast<unsigned>(hit - at);
    unsigned width = text::FirstCharacterBytes(*encoding_.Get(), hit, rest - skipped);
    at = hit + width;
    rest -= skipped + width;
  }
  return count;
}

template <class Itf>
unsigned BasicStringImpl<Itf>::CopyTo(void* dst, unsigned capacity,
                                      const TextEncoding& encoding) const {
  if (dst == nullptr || capacity == 0) return 0;
  String text = text::Reencode(encoding_, data_, bytes_, encoding);
  unsigned n = text->ByteLength();
  unsigned unit = encoding->UnitBits() / 8;
  if (unit == 0) unit = 1;
  if (n > capacity) {
    n = capacity / unit * unit;
    // Whole characters only: never end inside a multi-byte sequence or a surrogate pair.
    const unsigned char* bytes = static_cast<const unsigned char*>(text->GetData());
    if (unit == 1) {
      while (n > 0 && codec::IsUtf8Continuation(bytes[n])) --n;
    } else if (unit == 2 && n >= 2) {
      if (codec::IsLeadSurrogate(codec::Load16(bytes + n - 2))) n -= 2;
    }
  }
  if (n > 0) std::memcpy(dst, text->GetData(), n);
  encoding->Terminate(dst, n, capacity);
  return n;
}

template <class Itf>
std::uint32_t BasicStringImpl<Itf>::Hash() const {
  std::uint32_t h = 2166136261u;
  const unsigned char* p = static_cast<const unsigned char*>(data_);
  for (unsigned i = 0; i < bytes_; ++i) h = (h ^ p[i]) * 16777619u;
  return h;
}

template <class Itf>
bool BasicStringImpl<Itf>::IsBlank() const {
  const void* data = data_;
  unsigned length = bytes_;
  return bytes_ == 0 || encoding_->Trim(data, length) == 0;
}

template <class Itf>
bool BasicStringImpl<Itf>::Equals(const RefCount& other) const {
  if (&other == this) return true;
  const BasicStringItf* s = dynamic_cast<const BasicStringItf*>(&other);
  return s != nullptr && CompareWith(*s) == 0;
}

template <class Itf>
int BasicStringImpl<Itf>::Compare(const RefCount& other) const {
  const BasicStringItf* s = dynamic_cast<const BasicStringItf*>(&other);
  return s != nullptr ? CompareWith(*s) : RefCount::Compare(other);
}

template class BasicStringImpl<StringItf>;
template class BasicStringImpl<StringBufferItf>;

int CompareWithCharacter(const BasicStringItf& s, unsigned short c) {
  String one = text::OneCharacter(s.GetEncoding(), c);
  return s.CompareTo(one);
}

}  // namespace kiv
