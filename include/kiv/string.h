// Strings that carry their own text encoding.
//
// A `String` is an immutable run of bytes plus the `TextEncoding` that reads them; every
// character-level operation (length, index, search, comparison, case, trimming) asks that
// encoding. `StringBuffer` is the mutable counterpart. `CString` and `MacPascalString` are narrow
// and length-prefixed views for C and Pascal style callers.
//
// Characters passed as numbers are laid out in the string's own code units, so that what Concat
// or Append writes is what IndexOf, CountOf and Split find: ASCII holds values up to 0xFF as that
// byte (its searches sign-extend bytes, so only 0x00-0x7F and 0xFFFFFF80 upward are ever found;
// the widened forms 0xFF80-0xFFFF that operator[] returns for a high byte write that byte again);
// UTF-8 writes any value up to 0x7FFFFFFF in its up-to-six-byte form; UTF-16 one unit up to
// 0xFFFF and a surrogate pair above (up to 0x10FFFF; a search for such a value finds nothing, as
// the search compares single units); UTF-32 one unit of any value. A value ASCII cannot hold
// becomes '.', as in every conversion to ASCII; a value the others cannot hold (above 0x7FFFFFFF
// in UTF-8, above 0x10FFFF in UTF-16) throws CannotConvertException. Raw text (`const void*`) is
// terminated text already in the string's own encoding.
//
// Text from standard C++: `String(std::string_view)` (UTF-8) and `String(std::u16string_view)`
// (UTF-16) copy; `ToUTF8()` and `ToUTF16()` give standard strings back; strings compare with both
// views, print to a `std::ostream` as UTF-8 and hash with `std::hash`. A C++ text literal is never
// taken as raw text by an operation on an existing string: the string's encoding is known only at
// run time, so no literal width is right for every string, and `wide == "abc"`,
// `wide->Split(", ", ...)`, `wide->StartsWith("a")` and their kin do not compile (see
// `TextLiteralUnit`; only arrays are refused: a `const char*` variable still reaches the raw-text
// form, as a deliberate pointer to raw text). Spell UTF-8 text as `std::string_view` (`"abc"sv`)
// and raw text in the string's own encoding as `static_cast<const void*>(...)`. The constructors
// cannot refuse a literal in the same way: `String(encoding, "abc")` is how constant text is
// wrapped, and whether the literal's width matches the encoding written beside it is a run-time
// fact, so `String(utf8, u"abc")` still compiles (write `String(u"abc")` for UTF-16 text instead).
//
//   kiv::String name(u"caf\u00e9");            // UTF-16, copied
//   std::string utf8 = name.ToUTF8();           // "café"
//   if (name == "café"sv) { ... }               // compared as standard text
//   for (kiv::String piece : name->Split(kiv::String(","), true, 10)) { ... }
#ifndef KIV_STRING_H_
#define KIV_STRING_H_

#include <kiv/export.h>
#include <kiv/object.h>

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace kiv {

class Buffer;
class Container;
class String;
class StringBuffer;
class TextEncoding;

// The character types of C++ text literals. Operations that take raw text of an existing string
// refuse arrays of these at compile time (they are declared deleted beside the raw-text form):
// the literal would be read in whatever unit width the string's run-time encoding has.
template <class C>
concept TextLiteralUnit = std::same_as<C, char> || std::same_as<C, char8_t> ||
    std::same_as<C, char16_t> || std::same_as<C, char32_t> || std::same_as<C, wchar_t>;

// A text literal given where raw text of a string's own encoding is expected; see TextLiteralUnit.
#define KIV_REFUSE_TEXT_LITERAL(declaration)           \
  template <::kiv::TextLiteralUnit C, ::std::size_t N> \
  declaration = delete

// The read-only operations shared by strings and string buffers. Offsets and lengths are bytes;
// indexes are characters. Index results are -1 when nothing is found.
struct KIV_EXPORT BasicStringItf : public virtual RefCount {
  ~BasicStringItf() override;

  virtual TextEncoding GetEncoding() const = 0;
  // The storage; its used bytes are [GetData(), GetData() + ByteLength()).
  virtual Buffer GetBuffer() const = 0;
  virtual unsigned ByteLength() const = 0;
  // Length in characters as the encoding counts them (0 for an empty string): UTF-16 counts
  // 16-bit units, so a character above U+FFFF counts twice; UTF-8 and UTF-32 count characters.
  virtual std::uint32_t Length() const = 0;
  virtual const void* GetData() const = 0;
  // The character at `index` as a wide character; BoundsException at or past the end.
  virtual std::uint32_t CharAt(std::int32_t index) const = 0;
  // Address of character `index`; `bytes` receives the bytes from there to the end.
  virtual const void* DataAt(std::int32_t index, unsigned& bytes) const = 0;
  virtual bool IsEmpty() const = 0;
  virtual bool StartsWith(const String& prefix) const = 0;
  virtual std::int32_t IndexOf(std::uint32_t c) const = 0;
  virtual std::int32_t IndexOf(const void* text) const = 0;
  virtual std::int32_t IndexOf(const StringBuffer& text) const = 0;
  virtual std::int32_t IndexOf(const String& text) const = 0;
  virtual bool EndsWith(const String& suffix) const = 0;
  // Three-way comparisons, code unit by code unit in this string's encoding (the other operand is
  // re-encoded when its encoding differs); a proper prefix is smaller.
  virtual int CompareTo(const String& other) const = 0;
  virtual int CompareTo(const StringBuffer& other) const = 0;
  // As CompareTo, after lower-casing both operands.
  virtual int CompareIgnoreCase(const String& other) const = 0;
  virtual std::int32_t LastIndexOf(std::uint32_t c) const = 0;
  virtual std::int32_t LastIndexOf(const void* text) const = 0;
  virtual std::int32_t LastIndexOf(const StringBuffer& text) const = 0;
  virtual std::int32_t LastIndexOf(const String& text) const = 0;
  virtual bool Contains(const String& text) const = 0;
  // First occurrence of `text` at or after character `from`.
  virtual std::int32_t IndexOf(const String& text, std::int32_t from) const = 0;
  // How often the character occurs.
  virtual std::uint32_t CountOf(std::uint32_t c) const = 0;
  // Writes the text re-encoded into `encoding` to `dst` (at most `capacity` bytes, terminated
  // when room is left) and returns the bytes of text written; characters that do not fit whole
  // are left out.
  virtual unsigned CopyTo(void* dst, unsigned capacity, const TextEncoding& encoding) const = 0;
  virtual bool EqualsIgnoreCase(const String& other) const = 0;
  virtual bool StartsWith(const void* text) const = 0;
  virtual bool EndsWith(const void* text) const = 0;
  // A hash of the bytes (FNV-1a); equal strings in one encoding hash equally.
  virtual std::uint32_t Hash() const = 0;
  // True when the string is empty or holds only white space.
  virtual bool IsBlank() const = 0;
  // Three-way comparison with terminated raw text in this string's encoding.
  virtual int Compare(const void* text) const = 0;

  using RefCount::Compare;

  KIV_REFUSE_TEXT_LITERAL(std::int32_t IndexOf(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(std::int32_t LastIndexOf(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool StartsWith(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool EndsWith(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(int Compare(const C (&text)[N]) const);
};

// An immutable string.
struct KIV_EXPORT StringItf : public BasicStringItf {
  ~StringItf() override;

  // This very string when `encoding` equals its own, else a re-encoded copy.
  [[nodiscard]] virtual String Encode(const TextEncoding& encoding) const = 0;
  [[nodiscard]] virtual String Concat(std::uint32_t c) const = 0;
  [[nodiscard]] virtual String Concat(const void* text) const = 0;
  [[nodiscard]] virtual String Concat(const StringBuffer& text) const = 0;
  [[nodiscard]] virtual String Concat(const String& text) const = 0;
  // The text in double quotes, with backslash escapes for the quote, the backslash and control
  // characters (\n, \r, \t, and \uXXXX for the rest), so that a dump line stays one line.
  [[nodiscard]] virtual String Quote() const = 0;
  // Parts of the string; they share this string's buffer. Indexes are clamped to the string.
  [[nodiscard]] virtual String Substring(std::int32_t start) const = 0;
  [[nodiscard]] virtual String Substring(std::int32_t start, std::int32_t count) const = 0;
  [[nodiscard]] virtual String Trim() const = 0;
  // Case-mapped copies, through the encoding's case converters. In the lenient "utf-8" these
  // work one 16-bit unit at a time and throw InternalError at a character above U+FFFF; UTF-16
  // text leaves such characters as they are, and "utf-8-standard" maps them.
  [[nodiscard]] virtual String ToLower() const = 0;
  [[nodiscard]] virtual String ToUpper() const = 0;
  // A list of the pieces. With `trim` the string and every piece are trimmed. With `max` below 2
  // the whole string is the one piece; otherwise at most `max` pieces, the last one unsplit.
  [[nodiscard]] virtual Container Split(std::uint32_t separator, bool trim,
                                        std::int32_t max) const = 0;
  [[nodiscard]] virtual Container Split(const void* separator, bool trim,
                                        std::int32_t max) const = 0;
  [[nodiscard]] virtual Container Split(const StringBuffer& separator, bool trim,
                                        std::int32_t max) const = 0;
  [[nodiscard]] virtual Container Split(const String& separator, bool trim,
                                        std::int32_t max) const = 0;

  KIV_REFUSE_TEXT_LITERAL(String Concat(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(Container Split(const C (&separator)[N], bool trim, std::int32_t max)
                              const);
};

// A mutable string. It grows by exact fit: room for n bytes is made by keeping the buffer when it
// holds n, else by moving to a buffer of exactly n bytes.
struct KIV_EXPORT StringBufferItf : public BasicStringItf {
  ~StringBufferItf() override;

  virtual void Append(const String& text) = 0;
  virtual void Append(const StringBuffer& text) = 0;
  virtual void Append(const void* text) = 0;
  virtual void Append(std::uint32_t c) = 0;
  virtual void Assign(const String& text) = 0;
  virtual void Assign(const StringBuffer& text) = 0;
  virtual void Assign(const void* text) = 0;
  virtual void Assign(std::uint32_t c) = 0;
  // A string of the current contents (a copy; later appends do not change it).
  virtual String ToString() const = 0;
  virtual void Clear() = 0;
  // Makes room for at least `bytes` bytes in all.
  virtual void Reserve(unsigned bytes) = 0;
  virtual unsigned Capacity() const = 0;

  KIV_REFUSE_TEXT_LITERAL(void Append(const C (&text)[N]));
  KIV_REFUSE_TEXT_LITERAL(void Assign(const C (&text)[N]));
};

// The text of `s` as standard UTF-8 and as UTF-16 units; see BasicString::ToUTF8 and ToUTF16.
KIV_EXPORT std::string StringToUTF8(const BasicStringItf& s);
KIV_EXPORT std::u16string StringToUTF16(const BasicStringItf& s);
// Three-way comparisons of `s` with UTF-8 and UTF-16 text, as standard text; see BasicString.
KIV_EXPORT int CompareWithUTF8(const BasicStringItf& s, std::string_view utf8);
KIV_EXPORT int CompareWithUTF16(const BasicStringItf& s, std::u16string_view utf16);

// Common part of the String and StringBuffer handles: access and comparison. Comparisons use the
// three-way comparison of the left operand's encoding.
template <class I>
class BasicString {
 public:
  I* operator->() { return ref_.operator->(); }
  const I* operator->() const { return ref_.operator->(); }
  bool operator!() const noexcept { return !ref_; }
  const Ref<I>& GetRef() const noexcept { return ref_; }
  operator Object() const noexcept { return ref_; }

  // The character at `index` as a 16-bit wide character; BoundsException at or past the end.
  unsigned short operator[](std::int32_t index) const {
    return static_cast<unsigned short>(ref_->CharAt(index));
  }

  bool operator==(const String& s) const { return ref_->CompareTo(s) == 0; }
  bool operator!=(const String& s) const { return ref_->CompareTo(s) != 0; }
  bool operator<(const String& s) const { return ref_->CompareTo(s) < 0; }
  bool operator<=(const String& s) const { return ref_->CompareTo(s) <= 0; }
  bool operator>(const String& s) const { return ref_->CompareTo(s) > 0; }
  bool operator>=(const String& s) const { return ref_->CompareTo(s) >= 0; }
  bool operator==(const StringBuffer& s) const { return ref_->CompareTo(s) == 0; }
  bool operator!=(const StringBuffer& s) const { return ref_->CompareTo(s) != 0; }
  bool operator<(const StringBuffer& s) const { return ref_->CompareTo(s) < 0; }
  bool operator<=(const StringBuffer& s) const { return ref_->CompareTo(s) <= 0; }
  bool operator>(const StringBuffer& s) const { return ref_->CompareTo(s) > 0; }
  bool operator>=(const StringBuffer& s) const { return ref_->CompareTo(s) >= 0; }
  bool operator==(const void* text) const { return ref_->Compare(text) == 0; }
  bool operator!=(const void* text) const { return ref_->Compare(text) != 0; }
  bool operator<(const void* text) const { return ref_->Compare(text) < 0; }
  bool operator<=(const void* text) const { return ref_->Compare(text) <= 0; }
  bool operator>(const void* text) const { return ref_->Compare(text) > 0; }
  bool operator>=(const void* text) const { return ref_->Compare(text) >= 0; }
  bool operator==(unsigned short c) const { return CompareChar(c) == 0; }
  bool operator!=(unsigned short c) const { return CompareChar(c) != 0; }
  bool operator<(unsigned short c) const { return CompareChar(c) < 0; }
  bool operator<=(unsigned short c) const { return CompareChar(c) <= 0; }
  bool operator>(unsigned short c) const { return CompareChar(c) > 0; }
  bool operator>=(unsigned short c) const { return CompareChar(c) >= 0; }

  // Comparison with UTF-8 or UTF-16 text from standard C++, as standard text: the string's
  // ToUTF8() (or ToUTF16()) against the view, byte by byte (or unit by unit) as unsigned numbers,
  // a proper prefix smaller. So the result does not depend on the string's encoding, and a view
  // that is not valid UTF-8 simply never equals a string. The other comparison operators (!=, <,
  // <=, >, >=, and either operand order) are derived from these.
  bool operator==(std::string_view utf8) const { return CompareUTF8(utf8) == 0; }
  bool operator==(std::u16string_view utf16) const { return CompareUTF16(utf16) == 0; }
  std::weak_ordering operator<=>(std::string_view utf8) const { return Order(CompareUTF8(utf8)); }
  std::weak_ordering operator<=>(std::u16string_view utf16) const {
    return Order(CompareUTF16(utf16));
  }
  KIV_REFUSE_TEXT_LITERAL(bool operator==(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool operator!=(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool operator<(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool operator<=(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool operator>(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(bool operator>=(const C (&text)[N]) const);
  KIV_REFUSE_TEXT_LITERAL(std::weak_ordering operator<=>(const C (&text)[N]) const);

  // The text as standard UTF-8 (copied): characters are read through the encoding's to-wide
  // converter, a surrogate pair becomes one four-byte sequence and a surrogate without its
  // partner becomes U+FFFD, so the result is always valid UTF-8. Text that does not convert
  // (malformed UTF-8, a UTF-32 value above 0x10FFFF) throws CannotConvertException.
  [[nodiscard]] std::string ToUTF8() const { return StringToUTF8(*ref_.operator->()); }
  // The text as UTF-16 units (copied), surrogates as they come from the to-wide converter, paired
  // or not. Text that does not convert throws CannotConvertException.
  [[nodiscard]] std::u16string ToUTF16() const { return StringToUTF16(*ref_.operator->()); }

 protected:
  BasicString() noexcept = default;
  explicit BasicString(const Ref<I>& ref) noexcept : ref_(ref) {}
  explicit BasicString(Ref<I>&& ref) noexcept : ref_(static_cast<Ref<I>&&>(ref)) {}
  int CompareChar(unsigned short c) const;
  int CompareUTF8(std::string_view utf8) const;
  int CompareUTF16(std::u16string_view utf16) const;
  static std::weak_ordering Order(int c) noexcept {
    return c < 0   ? std::weak_ordering::less
           : c > 0 ? std::weak_ordering::greater
                   : std::weak_ordering::equivalent;
  }

  Ref<I> ref_;
};

// Handle of an immutable string. A default handle is null; calls through it throw
// NullPointerException ("kiv::StringItf").
class KIV_EXPORT String : public BasicString<StringItf> {
 public:
  String() noexcept = default;
  String(const StringItf* s) noexcept : BasicString(Ref<StringItf>(s)) {}   // NOLINT
  String(const StringItf& s) noexcept : BasicString(Ref<StringItf>(&s)) {}  // NOLINT
  String(StringItf* s, AdoptRef) noexcept : BasicString(Ref<StringItf>(s, kAdoptRef)) {}
  String(const String& s) noexcept = default;
  String(String&& s) noexcept = default;
  // Throws BadCastException when `o` is not a string.
  String(const Object& o);  // NOLINT
  // A string of the buffer's current contents.
  String(const StringBuffer& buffer);  // NOLINT
  // The empty string in `encoding`.
  explicit String(const TextEncoding& encoding);
  // A one-character string.
  String(const TextEncoding& encoding, unsigned short c);
  // Wrap or copy: text reached through `const void*` (and a Buffer) is wrapped, not copied, so it
  // must outlive the string: this is for constant text such as literals. Text reached through
  // `void*` is copied. A `const std::string`'s data() picks the wrapping form, which then outlives
  // the std::string: hand standard strings over as views (below), which always copy.
  //
  // Standard C++ text, copied into a string of its own: UTF-8 into the UTF-8 encoding (text that
  // the library's UTF-8 encoding cannot read throws CannotConvertException: a stray continuation
  // byte, an overlong form, a sequence cut off at the end), UTF-16 units into the UTF-16 encoding
  // as they are (an unpaired surrogate stays). Text of 4 GiB or more throws std::length_error.
  explicit String(std::string_view utf8);
  explicit String(std::u16string_view utf16);
  // Terminated constant text in `encoding`: wrapped, not copied, so it must outlive the string.
  // Null text is the empty string (here and in the writable-text form).
  String(const TextEncoding& encoding, const void* text);
  String(const TextEncoding& encoding, const void* text, unsigned bytes);
  String(const TextEncoding& encoding, const void* text, unsigned bytes, std::uint32_t chars);
  // Writable text: copied into a buffer of its own (with room for a terminator).
  String(const TextEncoding& encoding, void* text);
  String(const TextEncoding& encoding, void* text, unsigned bytes);
  String(const TextEncoding& encoding, void* text, unsigned bytes, std::uint32_t chars);
  // The whole buffer as text.
  String(const TextEncoding& encoding, const Buffer& buffer);
  String(const TextEncoding& encoding, const Buffer& buffer, std::uint32_t chars);
  // The `bytes` bytes at `text`, which lie within `buffer`.
  String(const TextEncoding& encoding, const Buffer& buffer, const void* text, unsigned bytes);
  String(const TextEncoding& encoding, const Buffer& buffer, const void* text, unsigned bytes,
         std::uint32_t chars);
  // Another string or buffer re-encoded into `encoding`.
  String(const TextEncoding& encoding, const StringItf& text);
  String(const TextEncoding& encoding, const StringBufferItf& text);
  ~String();

  String& operator=(const String& s) noexcept = default;
  String& operator=(String&& s) noexcept = default;

  // Replace the contents, keeping the present encoding (a null handle takes the application
  // default encoding). A buffer is taken as text in that encoding; a number is one character.
  String& Assign(const Buffer& buffer);
  String& Assign(const void* text);
  String& Assign(void* text);
  String& Assign(std::uint32_t c);
  String& Assign(const String& text);
  String& Assign(const StringBuffer& text);

  // New strings in the left operand's encoding, built in one allocation.
  [[nodiscard]] String operator+(const String& right) const;
  [[nodiscard]] String operator+(const StringBuffer& right) const;
  [[nodiscard]] String operator+(const void* right) const;
  [[nodiscard]] String operator+(unsigned short right) const;

  KIV_REFUSE_TEXT_LITERAL(String& Assign(const C (&text)[N]));
  KIV_REFUSE_TEXT_LITERAL(String operator+(const C (&right)[N]) const);

  using BasicString::operator==;
  using BasicString::operator!=;
  bool operator==(const StringItf* s) const;
  bool operator!=(const StringItf* s) const { return !(*this == s); }
};

// Handle of a mutable string buffer. Assignment operators replace the contents of the buffer the
// handle refers to (a null handle first gets a new buffer in the source's encoding, or in the
// application default for raw text and characters); copying the handle shares the buffer.
class KIV_EXPORT StringBuffer : public BasicString<StringBufferItf> {
 public:
  StringBuffer() noexcept = default;
  StringBuffer(const StringBufferItf* s) noexcept
      : BasicString(Ref<StringBufferItf>(s)) {}  // NOLINT
  StringBuffer(const StringBufferItf& s) noexcept
      : BasicString(Ref<StringBufferItf>(&s)) {}  // NOLINT
  StringBuffer(const StringBuffer& s) noexcept = default;
  StringBuffer(StringBuffer&& s) noexcept = default;
  StringBuffer(const Object& o);  // NOLINT
  explicit StringBuffer(const TextEncoding& encoding);
  // Over caller-supplied storage, which sets the initial capacity.
  StringBuffer(const TextEncoding& encoding, const Buffer& storage);
  ~StringBuffer();

  StringBuffer& operator=(const String& text);
  StringBuffer& operator=(const StringBuffer& text);
  StringBuffer& operator=(const void* text);
  StringBuffer& operator=(unsigned short c);
  StringBuffer& operator+=(const String& text);
  StringBuffer& operator+=(const StringBuffer& text);
  StringBuffer& operator+=(const void* text);
  StringBuffer& operator+=(unsigned short c);
  KIV_REFUSE_TEXT_LITERAL(StringBuffer& operator=(const C (&text)[N]));
  KIV_REFUSE_TEXT_LITERAL(StringBuffer& operator+=(const C (&text)[N]));

  // The contents as a string.
  String ToString() const;
};

// A terminated view of a string's own bytes (8-bit or 16-bit units), alive as long as the CString.
// Callers that need 8-bit text re-encode to ASCII or UTF-8 first.
class KIV_EXPORT CString {
 public:
  explicit CString(const String& s);
  CString(const CString& other);
  CString& operator=(const CString& other);
  ~CString();

  operator const char*() const noexcept { return static_cast<const char*>(data_); }
  operator const unsigned short*() const noexcept {
    return static_cast<const unsigned short*>(data_);
  }
  const char* c_str() const noexcept { return static_cast<const char*>(data_); }
  unsigned ByteLength() const noexcept { return bytes_; }

 private:
  void CopyFrom(const void* data, unsigned bytes);
  void* data_;
  unsigned bytes_;
};

// A length-prefixed 8-bit string: the first byte holds the length (at most 255). Made from a
// String re-encoded as ASCII; longer text is cut at 255 bytes.
class KIV_EXPORT MacPascalString {
 public:
  explicit MacPascalString(const String& s);
  // Copies an existing Pascal string (length byte first).
  explicit MacPascalString(const unsigned char* pascal);
  MacPascalString(const MacPascalString& other) = default;
  MacPascalString& operator=(const MacPascalString& other) = default;
  ~MacPascalString();

  operator const char*() const noexcept { return reinterpret_cast<const char*>(bytes_); }
  operator char*() noexcept { return reinterpret_cast<char*>(bytes_); }
  operator const unsigned char*() const noexcept { return bytes_; }
  operator unsigned char*() noexcept { return bytes_; }
  unsigned Length() const noexcept { return bytes_[0]; }
  // The text as an ASCII string.
  String ToString() const;

 private:
  unsigned char bytes_[256];
};

// Three-way comparison of `s` with the one-character string of `c` in the encoding of `s`.
KIV_EXPORT int CompareWithCharacter(const BasicStringItf& s, unsigned short c);

template <class I>
int BasicString<I>::CompareChar(unsigned short c) const {
  return CompareWithCharacter(*ref_.operator->(), c);
}
template <class I>
int BasicString<I>::CompareUTF8(std::string_view utf8) const {
  return CompareWithUTF8(*ref_.operator->(), utf8);
}
template <class I>
int BasicString<I>::CompareUTF16(std::u16string_view utf16) const {
  return CompareWithUTF16(*ref_.operator->(), utf16);
}

// Writes the text as standard UTF-8 (ToUTF8). A null handle throws NullPointerException.
KIV_EXPORT std::ostream& operator<<(std::ostream& out, const String& s);
KIV_EXPORT std::ostream& operator<<(std::ostream& out, const StringBuffer& s);

// A hash of the text's UTF-16 form, so that a string hashes alike in every encoding whose text
// converts to 16-bit units without loss (the hash of UTF-16 text is its Hash()). Text that does
// not convert throws CannotConvertException.
[[nodiscard]] KIV_EXPORT std::size_t HashOfText(const BasicStringItf& s);

// A string whose value comes from configuration: the string held by the global registry's node
// at `path` (its first element). When nothing is configured there it is the empty string in the
// application default encoding, or `fallback` in the two-argument form.
class KIV_EXPORT NamedString : public String {
 public:
  explicit NamedString(const String& path);
  NamedString(const String& path, const String& fallback);
  NamedString(const NamedString& other) noexcept = default;
  NamedString& operator=(const NamedString& other) noexcept = default;
  ~NamedString();
};

}  // namespace kiv

// Strings as keys of standard unordered containers; see kiv::HashOfText.
template <>
struct std::hash<kiv::String> {
  std::size_t operator()(const kiv::String& s) const { return kiv::HashOfText(*s.operator->()); }
};

#undef KIV_REFUSE_TEXT_LITERAL

#endif  // KIV_STRING_H_
