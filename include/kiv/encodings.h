// Text encodings: how the characters of one encoding lie in memory, and the converters that turn
// it into wide text and back and fold its case. Built in: "ascii", "utf-8", "utf-16", "utf-32",
// and "utf-8-standard"; the application default is UTF-16.
//
// The two UTF-8 encodings differ where it matters for interchange:
// - "utf-8" is the library's original form. Its decoder takes one to six bytes (overlong forms
//   refused, encoded surrogates accepted) and its encoder writes each 16-bit unit on its own, so a
//   character above U+FFFF leaves as two three-byte sequences. Stored text depends on that.
// - "utf-8-standard" is UTF-8 as HTTP clients and every other program read it: a surrogate pair
//   becomes one four-byte sequence, and only well-formed text decodes (one to four bytes, shortest
//   form, no surrogates, nothing above U+10FFFF). Use it for text that leaves the server.
//
//   TextEncoding utf8 = TextEncodingExp::MakeStandardUTF8();
//   TextValidation v = TextEncodingExp::Validate(utf8, body, body_bytes);
//   if (!v.valid) {
//     // answer 400, naming v.reason at byte v.offset (or wait for more bytes if v.incomplete)
//   }
#ifndef KIV_ENCODINGS_H_
#define KIV_ENCODINGS_H_

#include <kiv/converters.h>
#include <kiv/export.h>
#include <kiv/object.h>

#include <cstddef>
#include <cstdint>

namespace kiv {

// Offsets and lengths are bytes, indexes are characters.
struct KIV_EXPORT TextEncodingItf : public virtual RefCount {
  ~TextEncodingItf() override;

  // Width of one code unit in bits.
  virtual unsigned UnitBits() const = 0;
  // An attribute flag; true for every built-in encoding.
  virtual bool GetFlag() const = 0;
  virtual BlockConverter GetToWideConverter() const = 0;
  virtual BlockConverter GetFromWideConverter() const = 0;
  virtual BlockConverter GetToLowerConverter() const = 0;
  virtual BlockConverter GetToUpperConverter() const = 0;
  // Address of character `index` in the `length` bytes at `data`; `length` becomes the bytes
  // from there to the end. BoundsException (with the index) when out of range, or
  // NoSuchElementException when `length` is 0.
  virtual const void* DataAt(const void* data, unsigned& length, std::int32_t index) const = 0;
  // The same for writable text; by default the first form.
  virtual void* DataAt(void* data, unsigned& length, std::int32_t index);
  // Index of the first character equal to `c`, or -1.
  virtual std::int32_t Find(std::uint32_t c, const void* data, unsigned length) const = 0;
  // Index of the last character equal to `c` among the first `count`, or -1.
  virtual std::int32_t FindLast(std::uint32_t c, const void* data, unsigned length,
                                unsigned count) const = 0;
  // Difference of the first differing code units, else lengthA - lengthB.
  virtual int Compare(const void* a, unsigned length_a, const void* b, unsigned length_b) const = 0;
  // Characters before the terminator; `length` receives their bytes.
  virtual unsigned TerminatedLength(const void* data, unsigned& length) const = 0;
  virtual unsigned CharacterCount(const void* data, unsigned length) const = 0;
  // Moves `data` past leading white space and cuts trailing white space from `length`; returns
  // the characters left.
  virtual unsigned Trim(const void*& data, unsigned& length) const = 0;
  virtual bool IsTerminatorAt(const void* data, unsigned offset) const = 0;
  // Stores a zero unit at `offset` if it fits within `capacity`; false (nothing written) if not.
  virtual bool Terminate(void* data, unsigned offset, unsigned capacity) const = 0;

  using RefCount::Compare;
};

KIV_DECLARE_HANDLE(TextEncoding, TextEncodingItf);

// What TextEncodingExp::Validate found: the first place where the encoding's to-wide converter
// (its decoder) would stop, reading the text as a stream does, to its end.
struct TextValidation {
  // The whole text decodes.
  bool valid;
  // Not valid only because the text ends inside a character that is well-formed so far (the
  // decoder answers ResultInputIncomplete there); a stream would wait for more bytes.
  bool incomplete;
  // The first byte of the character the decoder refuses or finds cut off; the text's length when
  // it is valid.
  std::size_t offset;
  // A short static English text naming the fault ("overlong form", "encoded surrogate", ...);
  // "" when valid.
  const char* reason;
};

struct KIV_EXPORT TextEncodingExp {
  // The shared built-in encodings, each made on first use and kept for the process's life.
  static TextEncoding MakeAscii();
  // The library's own, lenient UTF-8: it reads one- to six-byte forms and encoded surrogates,
  // and writes wide text one 16-bit unit at a time, so a character above U+FFFF (a surrogate
  // pair) goes out as two three-byte sequences that strict readers refuse. Stored text depends
  // on this. Case mapping of text in it throws InternalError at a character above U+FFFF. For
  // text that leaves the process, use MakeStandardUTF8().
  static TextEncoding MakeUTF8();
  static TextEncoding MakeUTF16();
  static TextEncoding MakeUTF32();
  // The shared standard UTF-8 encoding, registered as "utf-8-standard" (its converters as
  // "utf-8-standard->wchar_t" and "wchar_t->utf-8-standard").
  //
  // Decoding refuses, with CannotConvertException as soon as the first wrong byte is there: stray
  // continuation bytes, C0, C1, F5-FF, missing continuation bytes, overlong forms, encoded
  // surrogates (ED A0-BF), values above U+10FFFF. A text that ends inside a sequence that is
  // well-formed so far is ResultInputIncomplete, as for every converter. Encoding pairs surrogates;
  // a surrogate without its pair throws CannotConvertException rather than being replaced (a lead
  // surrogate at the very end of the input is ResultInputIncomplete). Counting, indexing, search
  // and trimming step by the decoder's rules and throw CannotConvertException where it does.
  static TextEncoding MakeStandardUTF8();
  // The encoding of text made inside the library: UTF-16, the same object as MakeUTF16().
  static TextEncoding MakeAppDefault();
  // The platform's 8-bit system encoding. On Linux that is UTF-8: this returns MakeUTF8().
  static TextEncoding MakeSystemDefault();
  // The encoding registered under `name` in the text encoding registry ("ascii", "utf-8",
  // "utf-16", "utf-32" are registered when the library is loaded); a null handle when the object
  // registered there is not an encoding. NoSuchElementException for a name that is not registered.
  static TextEncoding Make(const String& name);

  // Finds the first character of the `bytes` bytes at `data` that the to-wide converter of
  // `encoding` refuses or finds cut off at the end, without converting anything. For the built-in
  // encodings, invalid means:
  // - "ascii": nothing (every byte converts, bytes from 0x80 sign-extended): always valid.
  // - "utf-8": a stray continuation byte, 0xFE, 0xFF, a missing continuation byte, an overlong
  //   form, a value above U+10FFFF (so every five- and six-byte form). Encoded surrogates are
  //   valid. Incomplete: the lead byte announces more bytes than are left (judged from the lead
  //   byte alone, as the decoder does).
  // - "utf-8-standard": as MakeStandardUTF8() describes; incomplete only when the bytes left are
  //   the start of a well-formed sequence.
  // - "utf-16": incomplete when the length is odd; surrogates are not checked (the text is copied).
  // - "utf-32": a value above U+10FFFF; incomplete when the length is not a multiple of 4.
  // Any other encoding is checked through its to-wide data converter, one character at a time.
  // Null `data` or 0 bytes is valid (offset 0). The built-in checks take whole blocks at a time
  // (64 bytes per step for UTF-8, ASCII runs at memory speed) and are faster than converting.
  static TextValidation Validate(const TextEncoding& encoding, const void* data, std::size_t bytes);
};

}  // namespace kiv

#endif  // KIV_ENCODINGS_H_
