// Text encodings: how the characters of one encoding lie in memory, and the converters that turn
// it into wide text and back and fold its case. Built in: "ascii", "utf-8", "utf-16", "utf-32";
// the application default is UTF-16.
#ifndef KIV_ENCODINGS_H_
#define KIV_ENCODINGS_H_

#include <kiv/converters.h>
#include <kiv/export.h>
#include <kiv/object.h>

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

struct KIV_EXPORT TextEncodingExp {
  // The shared built-in encodings, each made on first use and kept for the process's life.
  static TextEncoding MakeAscii();
  static TextEncoding MakeUTF8();
  static TextEncoding MakeUTF16();
  static TextEncoding MakeUTF32();
  // The encoding of text made inside the library: UTF-16, the same object as MakeUTF16().
  static TextEncoding MakeAppDefault();
  // The platform's 8-bit system encoding. On Linux that is UTF-8: this returns MakeUTF8().
  static TextEncoding MakeSystemDefault();
  // The encoding registered under `name` in the text encoding registry ("ascii", "utf-8",
  // "utf-16", "utf-32" are registered when the library is loaded); a null handle when the object
  // registered there is not an encoding. NoSuchElementException for a name that is not registered.
  static TextEncoding Make(const String& name);
};

}  // namespace kiv

#endif  // KIV_ENCODINGS_H_
