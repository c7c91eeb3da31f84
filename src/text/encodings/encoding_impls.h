// The text encoding classes: a common base holding the four converters, fixed-width encodings of
// 8-, 16- and 32-bit units, a variable-width encoding that walks its text with an enumeration
// cursor, the four built-in encodings and standard UTF-8.
#ifndef KIV_SRC_TEXT_ENCODINGS_ENCODING_IMPLS_H_
#define KIV_SRC_TEXT_ENCODINGS_ENCODING_IMPLS_H_

#include <cstdint>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "unicode/utf_codec.h"

namespace kiv {

// Holds the converters of an encoding (any of them may be null and is then returned as null).
class CommonTextEncodingImpl : public TextEncodingItf {
 public:
  CommonTextEncodingImpl(const BlockConverter& from_wide, const BlockConverter& to_wide,
                         const BlockConverter& to_lower, const BlockConverter& to_upper);
  ~CommonTextEncodingImpl() override;

  bool GetFlag() const override { return true; }
  BlockConverter GetToWideConverter() const override { return to_wide_; }
  BlockConverter GetFromWideConverter() const override { return from_wide_; }
  BlockConverter GetToLowerConverter() const override { return to_lower_; }
  BlockConverter GetToUpperConverter() const override { return to_upper_; }

 private:
  BlockConverter from_wide_;
  BlockConverter to_wide_;
  BlockConverter to_lower_;
  BlockConverter to_upper_;
};

// A fixed-width encoding of units of type T (char, unsigned short or std::uint32_t).
//
// KEPT: the 8-bit form compares signed bytes: Find and FindLast sign-extend a byte before
// comparing it with the character, so a search for 0x80-0xFF never matches, and Compare subtracts
// signed bytes; stored orderings and lookups depend on that. The wider forms compare unsigned
// units. White space: isspace on bytes up to 127 (a byte above stops trimming), iswspace on
// every 16-bit unit, iswspace on 32-bit values below 0xD800 (a value from 0xD800 up stops).
template <class T>
class FixedTextEncoding : public CommonTextEncodingImpl {
 public:
  FixedTextEncoding(const BlockConverter& from_wide, const BlockConverter& to_wide,
                    const BlockConverter& to_lower, const BlockConverter& to_upper);
  ~FixedTextEncoding() override;

  unsigned UnitBits() const override { return 8 * sizeof(T); }
  bool GetFlag() const override { return flag_; }
  using TextEncodingItf::DataAt;
  // An index one past the last character is allowed and gives the end with `length` 0.
  const void* DataAt(const void* data, unsigned& length, std::int32_t index) const override;
  std::int32_t Find(std::uint32_t c, const void* data, unsigned length) const override;
  // Scans the first `count` units from the back; `length` is not consulted.
  std::int32_t FindLast(std::uint32_t c, const void* data, unsigned length,
                        unsigned count) const override;
  using TextEncodingItf::Compare;
  // 32-bit differences that do not fit an int are saturated, so the sign is always right.
  int Compare(const void* a, unsigned length_a, const void* b, unsigned length_b) const override;
  unsigned TerminatedLength(const void* data, unsigned& length) const override;
  unsigned CharacterCount(const void* data, unsigned length) const override;
  unsigned Trim(const void*& data, unsigned& length) const override;
  bool IsTerminatorAt(const void* data, unsigned offset) const override;
  bool Terminate(void* data, unsigned offset, unsigned capacity) const override;

 private:
  bool flag_;
};

// The cursor with which a UTF-8 encoding walks its text, in one of the two forms of
// unicode/utf_codec.h: lenient (the "utf-8" encoding: one to six bytes, overlong forms invalid) or
// standard (the "utf-8-standard" encoding: exactly the characters its converter accepts).
template <bool kStandard>
class BasicUTF8TextEnumeration {
 public:
  void Start(const void* data, unsigned length) noexcept {
    pos_ = static_cast<const unsigned char*>(data);
    end_ = pos_ + length;
    bounded_ = true;
    value_ = 0;
    count_ = 0;
    truncated_ = false;
  }
  // Zero-terminated text: no end limit.
  void StartTerminated(const void* data) noexcept {
    pos_ = static_cast<const unsigned char*>(data);
    end_ = nullptr;
    bounded_ = false;
    value_ = 0;
    count_ = 0;
    truncated_ = false;
  }
  bool HasMore() const noexcept { return !bounded_ || pos_ < end_; }
  // Decodes the character at the position: stores its value, steps over it and answers true. A
  // sequence cut off by the end sets the truncated flag and answers false without moving. An
  // invalid sequence throws CannotConvertException.
  bool Next() {
    std::uint32_t value = 0;
    int length;
    if constexpr (kStandard) {
      length = bounded_ ? codec::StandardUtf8Decode<true>(pos_, end_, value)
                        : codec::StandardUtf8Decode<false>(pos_, nullptr, value);
    } else {
      length = bounded_ ? codec::LenientUtf8Decode<true>(pos_, end_, value)
                        : codec::LenientUtf8Decode<false>(pos_, nullptr, value);
    }
    if (length == codec::kUtf8Incomplete) {
      truncated_ = true;
      return false;
    }
    if (length < 0) throw CannotConvertException();
    value_ = value;
    pos_ += length;
    ++count_;
    return true;
  }
  std::uint32_t Value() const noexcept { return value_; }
  // Characters stepped over so far.
  unsigned Count() const noexcept { return count_; }
  bool Truncated() const noexcept { return truncated_; }
  const unsigned char* Position() const noexcept { return pos_; }
  const unsigned char* End() const noexcept { return end_; }

 private:
  const unsigned char* pos_ = nullptr;
  const unsigned char* end_ = nullptr;
  std::uint32_t value_ = 0;
  unsigned count_ = 0;
  bool truncated_ = false;
  bool bounded_ = true;
};

using UTF8TextEnumeration = BasicUTF8TextEnumeration<false>;
using StandardUTF8TextEnumeration = BasicUTF8TextEnumeration<true>;

// A variable-width encoding over units of type U, walked with the cursor E. Compare subtracts
// unsigned units, so UTF-8 text compares in code point order. Unlike the fixed encodings, DataAt
// needs a character at the index: an index equal to the number of characters throws (index 0
// always answers the start).
template <class U, class E>
class VariableTextEncoding : public CommonTextEncodingImpl {
 public:
  VariableTextEncoding(const BlockConverter& from_wide, const BlockConverter& to_wide,
                       const BlockConverter& to_lower, const BlockConverter& to_upper);
  ~VariableTextEncoding() override;

  unsigned UnitBits() const override { return 8 * sizeof(U); }
  using TextEncodingItf::DataAt;
  const void* DataAt(const void* data, unsigned& length, std::int32_t index) const override;
  std::int32_t Find(std::uint32_t c, const void* data, unsigned length) const override;
  std::int32_t FindLast(std::uint32_t c, const void* data, unsigned length,
                        unsigned count) const override;
  using TextEncodingItf::Compare;
  int Compare(const void* a, unsigned length_a, const void* b, unsigned length_b) const override;
  unsigned TerminatedLength(const void* data, unsigned& length) const override;
  // A sequence cut off at the end stops the count without error.
  unsigned CharacterCount(const void* data, unsigned length) const override;
  // White space is iswspace on values below 0xD800. A sequence cut off while leading white space
  // is skipped leaves `data` at it, `length` 0 and the result 0.
  unsigned Trim(const void*& data, unsigned& length) const override;
  bool IsTerminatorAt(const void* data, unsigned offset) const override;
  bool Terminate(void* data, unsigned offset, unsigned capacity) const override;
};

class AsciiTextEncodingImpl : public FixedTextEncoding<char> {
 public:
  AsciiTextEncodingImpl();
  ~AsciiTextEncodingImpl() override;
};

class UTF16TextEncodingImpl : public FixedTextEncoding<unsigned short> {
 public:
  UTF16TextEncodingImpl();
  ~UTF16TextEncodingImpl() override;

 private:
  explicit UTF16TextEncodingImpl(const BlockConverter& copy);
};

class UTF32TextEncodingImpl : public FixedTextEncoding<std::uint32_t> {
 public:
  UTF32TextEncodingImpl();
  ~UTF32TextEncodingImpl() override;
};

class UTF8TextEncodingImpl : public VariableTextEncoding<unsigned char, UTF8TextEnumeration> {
 public:
  UTF8TextEncodingImpl();
  ~UTF8TextEncodingImpl() override;

 private:
  UTF8TextEncodingImpl(const BlockConverter& to_wide, const BlockConverter& from_wide,
                       const TextEncoding& utf16);
};

// Standard UTF-8 beside the lenient "utf-8": its converters pair surrogates into four-byte
// sequences and accept only well-formed text, and its cursor steps by the same rules, so counts,
// indexes and searches agree with what the converters produce. Case is folded per character over
// the whole value (StandardUTF8CaseConverterImpl).
class StandardUTF8TextEncodingImpl
    : public VariableTextEncoding<unsigned char, StandardUTF8TextEnumeration> {
 public:
  StandardUTF8TextEncodingImpl();
  ~StandardUTF8TextEncodingImpl() override;
};

// Holders of the shared encodings.
class AsciiTextEncodingHolder : public StaticRef<TextEncodingItf, AsciiTextEncodingHolder> {
 public:
  static TextEncodingItf* Make() { return new AsciiTextEncodingImpl(); }
};
class UTF8TextEncodingHolder : public StaticRef<TextEncodingItf, UTF8TextEncodingHolder> {
 public:
  static TextEncodingItf* Make() { return new UTF8TextEncodingImpl(); }
};
class StandardUTF8TextEncodingHolder
    : public StaticRef<TextEncodingItf, StandardUTF8TextEncodingHolder> {
 public:
  static TextEncodingItf* Make() { return new StandardUTF8TextEncodingImpl(); }
};
class UTF16TextEncodingHolder : public StaticRef<TextEncodingItf, UTF16TextEncodingHolder> {
 public:
  static TextEncodingItf* Make() { return new UTF16TextEncodingImpl(); }
};
class UTF32TextEncodingHolder : public StaticRef<TextEncodingItf, UTF32TextEncodingHolder> {
 public:
  static TextEncodingItf* Make() { return new UTF32TextEncodingImpl(); }
};

}  // namespace kiv

#endif  // KIV_SRC_TEXT_ENCODINGS_ENCODING_IMPLS_H_
