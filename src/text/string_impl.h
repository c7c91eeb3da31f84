// The string implementations: one shared template for the read-only part, and the immutable and
// mutable strings on top of it.
#ifndef KIV_SRC_TEXT_STRING_IMPL_H_
#define KIV_SRC_TEXT_STRING_IMPL_H_

#include <cstdint>
#include <cstring>
#include <new>
#include <typeinfo>
#include <vector>

#include "kiv/buffer.h"
#include "kiv/encodings.h"
#include "kiv/string.h"

namespace kiv {

// Marks a character count that has not been computed yet.
inline constexpr std::uint32_t kUnknownLength = 0xFFFFFFFFu;

namespace text {
// A string's text as its implementation holds it: the encoding (not counted) and the bytes.
struct RawText {
  const TextEncodingItf* encoding;
  const void* data;
  unsigned bytes;
};
}  // namespace text

// The zero bytes every string's storage keeps behind its text, so that a terminator of any unit
// width (one, two or four bytes) is in place for callers that read the text as a C string.
inline constexpr unsigned kTerminatorRoom = 4;

inline void PutTerminator(void* end) noexcept { std::memset(end, 0, kTerminatorRoom); }

// State and read-only operations shared by strings and string buffers: the encoding, the buffer
// holding the bytes, where the text starts in it, its length in bytes and (once known) in
// characters.
template <class Itf>
class BasicStringImpl : public Itf {
 public:
  TextEncoding GetEncoding() const override { return encoding_; }
  Buffer GetBuffer() const override { return buffer_; }
  unsigned ByteLength() const override { return bytes_; }
  std::uint32_t Length() const override;
  const void* GetData() const override { return data_; }
  std::uint32_t CharAt(std::int32_t index) const override;
  const void* DataAt(std::int32_t index, unsigned& bytes) const override;
  bool IsEmpty() const override { return bytes_ == 0; }
  bool StartsWith(const String& prefix) const override;
  std::int32_t IndexOf(std::uint32_t c) const override;
  std::int32_t IndexOf(const void* text) const override;
  std::int32_t IndexOf(const StringBuffer& text) const override;
  std::int32_t IndexOf(const String& text) const override;
  bool EndsWith(const String& suffix) const override;
  int CompareTo(const String& other) const override;
  int CompareTo(const StringBuffer& other) const override;
  int CompareIgnoreCase(const String& other) const override;
  std::int32_t LastIndexOf(std::uint32_t c) const override;
  std::int32_t LastIndexOf(const void* text) const override;
  std::int32_t LastIndexOf(const StringBuffer& text) const override;
  std::int32_t LastIndexOf(const String& text) const override;
  bool Contains(const String& text) const override;
  std::int32_t IndexOf(const String& text, std::int32_t from) const override;
  std::uint32_t CountOf(std::uint32_t c) const override;
  unsigned CopyTo(void* dst, unsigned capacity, const TextEncoding& encoding) const override;
  bool EqualsIgnoreCase(const String& other) const override;
  bool StartsWith(const void* text) const override;
  bool EndsWith(const void* text) const override;
  std::uint32_t Hash() const override;
  bool IsBlank() const override;
  int Compare(const void* text) const override;

  // The encoding without the two interlocked operations that GetEncoding's handle costs; for hot
  // paths inside the library (table keys, paths).
  const TextEncodingItf* EncodingPtr() const noexcept { return encoding_.Get(); }

  // Strings compare by content with other strings, and by identity with anything else.
  bool Equals(const RefCount& other) const override;
  int Compare(const RefCount& other) const override;

 protected:
  // The buffer is taken by value so that callers handing over a fresh one can move it in.
  BasicStringImpl(const TextEncoding& encoding, Buffer buffer, const void* data, unsigned bytes,
                  std::uint32_t chars)
      : encoding_(encoding),
        buffer_(static_cast<Buffer&&>(buffer)),
        data_(data),
        bytes_(bytes),
        chars_(chars) {}

  // The bytes of `other`'s text in this string's encoding, without allocating when the encodings
  // already agree: `data`/`bytes` point into `other` itself, or into `copy` when a re-encoded
  // copy had to be made.
  struct View {
    const void* data;
    unsigned bytes;
    String copy;
  };
  View ViewInMyEncoding(const BasicStringItf& other) const;
  // True with `raw` filled when `other` is one of the library's own strings in this very encoding
  // object: the common case, which needs neither a view nor a copy.
  bool SameEncodingText(const BasicStringItf& other, text::RawText& raw) const;
  // Byte offset of the first (or last) occurrence of the needle, or -1.
  std::int64_t FindBytes(const void* needle, unsigned needle_bytes, unsigned from) const;
  std::int64_t FindLastBytes(const void* needle, unsigned needle_bytes) const;
  std::int32_t IndexOfText(const BasicStringItf& text) const;
  std::int32_t LastIndexOfText(const BasicStringItf& text) const;
  std::int32_t IndexAtOffset(std::int64_t offset) const;
  int CompareWith(const BasicStringItf& other) const;
  unsigned UnitBytes() const { return encoding_->UnitBits() / 8; }

  TextEncoding encoding_;
  Buffer buffer_;
  const void* data_;
  unsigned bytes_;
  mutable std::uint32_t chars_;
};

class StringImpl final : public BasicStringImpl<StringItf> {
 public:
  StringImpl(const TextEncoding& encoding, Buffer buffer, const void* data, unsigned bytes,
             std::uint32_t chars = kUnknownLength)
      : BasicStringImpl(encoding, static_cast<Buffer&&>(buffer), data, bytes, chars) {}
  // The same, made with one reference for the caller to adopt.
  StringImpl(AdoptRef, const TextEncoding& encoding, Buffer buffer, const void* data,
             unsigned bytes)
      : RefCount(1),
        BasicStringImpl(encoding, static_cast<Buffer&&>(buffer), data, bytes, kUnknownLength) {}
  ~StringImpl() override;

  // A new string over fresh storage of `size` bytes, its text the first `bytes` of them, which the
  // caller writes through `storage` before handing the string out. The string object, its buffer
  // object and the bytes share one allocation.
  static String MakeWithStorage(const TextEncoding& encoding, unsigned size, unsigned bytes,
                                char*& storage);
  // A string made by MakeWithStorage lives inside its buffer's block, which the buffer frees:
  // such a string is destroyed here, without freeing, and drops its buffer reference only after
  // that. Every other string is destroyed and freed as usual.
  static void operator delete(StringImpl* p, std::destroying_delete_t) noexcept;
  // For a constructor that throws inside a new-expression.
  static void operator delete(void* p) noexcept { RefCount::operator delete(p); }

  String Encode(const TextEncoding& encoding) const override;
  String Concat(std::uint32_t c) const override;
  String Concat(const void* text) const override;
  String Concat(const StringBuffer& text) const override;
  String Concat(const String& text) const override;
  String Quote() const override;
  String Substring(std::int32_t start) const override;
  String Substring(std::int32_t start, std::int32_t count) const override;
  String Trim() const override;
  String ToLower() const override;
  String ToUpper() const override;
  Container Split(std::uint32_t separator, bool trim, std::int32_t max) const override;
  Container Split(const void* separator, bool trim, std::int32_t max) const override;
  Container Split(const StringBuffer& separator, bool trim, std::int32_t max) const override;
  Container Split(const String& separator, bool trim, std::int32_t max) const override;

 private:
  // This string followed by `bytes` bytes of text in its encoding; `own_bytes` is what the right
  // operand took in its own encoding.
  String Joined(const void* data, unsigned bytes, unsigned own_bytes) const;
  // A copy through a case converter of this string's encoding.
  String CaseCopy(const BlockConverter& converter) const;
  String SplitPiece(const void* data, unsigned bytes, bool trim) const;
  Container SplitOn(const String& separator, bool trim, std::int32_t max) const;
};

class StringBufferImpl final : public BasicStringImpl<StringBufferItf> {
 public:
  // Empty, with no storage yet (`storage` null) or over the given storage.
  StringBufferImpl(const TextEncoding& encoding, const Buffer& storage);
  ~StringBufferImpl() override;

  void Append(const String& text) override;
  void Append(const StringBuffer& text) override;
  void Append(const void* text) override;
  void Append(std::uint32_t c) override;
  void Assign(const String& text) override;
  void Assign(const StringBuffer& text) override;
  void Assign(const void* text) override;
  void Assign(std::uint32_t c) override;
  String ToString() const override;
  void Clear() override;
  void Reserve(unsigned bytes) override;
  unsigned Capacity() const override { return !buffer_ ? 0 : buffer_->GetSize(); }

 private:
  // Appends bytes already in this buffer's encoding.
  void AppendBytes(const void* data, unsigned bytes, std::uint32_t chars);
  // Makes room for `bytes` bytes in all, by exact fit.
  void Grow(unsigned bytes);
  // A String handed out by ToString shares the storage up to `shared_`; writes below that mark
  // first move to storage of their own.
  mutable unsigned shared_ = 0;
};

// Helpers shared by the string code.
namespace text {

// The encoding and bytes of a string or string buffer of the library's own classes, read without
// counting or virtual calls (both classes are final); false for any other implementation (ask
// through the interface then). The hot paths of comparison, search and concatenation start here.
inline bool FastTextOf(const BasicStringItf& s, RawText& out) noexcept {
  const std::type_info& type = typeid(s);
  if (type == typeid(StringImpl)) {
    const auto& impl = static_cast<const StringImpl&>(s);
    out = {impl.EncodingPtr(), impl.GetData(), impl.ByteLength()};
    return true;
  }
  if (type == typeid(StringBufferImpl)) {
    const auto& impl = static_cast<const StringBufferImpl&>(s);
    out = {impl.EncodingPtr(), impl.GetData(), impl.ByteLength()};
    return true;
  }
  return false;
}

// The encoding of a string or string buffer of the library's own classes, read without counting;
// null for any other implementation (ask GetEncoding then).
inline const TextEncodingItf* FastEncodingOf(const BasicStringItf& s) noexcept {
  RawText raw;
  return FastTextOf(s, raw) ? raw.encoding : nullptr;
}

// Converts a whole text with a block converter into a new owned buffer (with kTerminatorRoom spare
// bytes); `bytes` receives the bytes produced. An incomplete sequence at the end of the text
// is malformed text: CannotConvertException.
Buffer ConvertAll(const BlockConverter& converter, const void* in, unsigned in_bytes,
                  unsigned& bytes);
// `text` re-encoded from `from` into `to` (a copy, even when the encodings are equal).
String Reencode(const TextEncoding& from, const void* text, unsigned bytes, const TextEncoding& to);
// How the text of a built-in encoding is laid out; kOther for any other encoding, which is then
// known only through its converters.
enum class Layout { kAscii, kUtf8, kUtf16, kUtf32, kOther };
Layout LayoutOf(const TextEncodingItf& encoding);

// The one-character string of character `c` in `encoding`, its value laid out in that encoding's
// own code units, so that the encoding's Find locates it: ASCII holds values up to 0xFF as the byte
// itself, and the widened forms of a high byte (0xFF80-0xFFFF, as the to-wide converter gives
// them, and 0xFFFFFF80 upward, as Find sign-extends a byte) as that byte; UTF-8 writes the value
// in its up-to-six-byte form (up to 0x7FFFFFFF); UTF-16 one unit up to 0xFFFF, else a surrogate
// pair (up to 0x10FFFF); UTF-32 one unit of any value. A value ASCII cannot hold becomes '.' (the
// rule of every conversion to ASCII); one the others cannot hold throws CannotConvertException.
// Other encodings get the character through their from-wide converter.
String OneCharacter(const TextEncoding& encoding, std::uint32_t c);
// The bytes of the character at `data` (of `length` bytes, at least one character) in `encoding`.
unsigned FirstCharacterBytes(const TextEncodingItf& encoding, const void* data, unsigned length);

}  // namespace text

}  // namespace kiv

#endif  // KIV_SRC_TEXT_STRING_IMPL_H_
