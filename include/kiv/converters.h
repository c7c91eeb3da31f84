// Data converters (one character per call) and block converters (as much of a buffer as fits per
// call): character sets, case folding, tab expansion and block copying.
//
// Sizes are in bytes. Wide text is 16-bit units in machine order; UTF-32 is 32-bit units in
// machine order. Buffer shortage and incomplete input are results, never exceptions.
#ifndef KIV_CONVERTERS_H_
#define KIV_CONVERTERS_H_

#include <kiv/export.h>
#include <kiv/object.h>

#include <cstdint>

namespace kiv {

class String;

// Converts one character per call.
struct KIV_EXPORT DataConverterItf : public virtual RefCount {
  enum BufferResult {
    ResultOK = 0,               // did what it reports (possibly nothing, with no input)
    ResultInputIncomplete = 1,  // the input ends inside a character; both sizes are 0
    ResultOutputTooSmall = 2,   // no room for the next character; out_size is the bytes needed
  };

  ~DataConverterItf() override;

  // A cheap estimate; by default exactly ComputeSizes.
  virtual BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                                     bool end_of_input);
  // Sizes of the character at `in`: `in_size` becomes its input bytes, `out_size` its output
  // bytes. Converts nothing and changes no state.
  virtual BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                                    bool end_of_input) = 0;
  // Converts exactly one character. On ResultOutputTooSmall nothing is written, `in_size` is the
  // character's length and `out_size` the bytes needed. A null `out` is a buffer of size 0.
  virtual BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                               bool end_of_input) = 0;
};

KIV_DECLARE_HANDLE(DataConverter, DataConverterItf);

// Converts as many whole characters as fit, with running positions kept by the caller.
struct KIV_EXPORT BlockConverterItf : public virtual RefCount {
  using BufferResult = DataConverterItf::BufferResult;

  ~BlockConverterItf() override;

  // The per-character converter doing the same conversion.
  virtual DataConverter GetDataConverter() = 0;
  // Output bytes per input byte that EstimateSizes assumes.
  virtual double GetExpansionFactor() = 0;
  // By default exactly ComputeSizes.
  virtual BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                                     unsigned& in_size, unsigned in_pos, bool end_of_input);
  // Exact sizes for the longest prefix of whole characters: `in_size` is cut to it and
  // `out_size` is what it converts to.
  virtual BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in,
                                    unsigned& in_size, unsigned in_pos, bool end_of_input) = 0;
  // Converts as many whole characters as fit in `out_size` bytes; `in_size`/`out_size` become the
  // bytes consumed/written and the positions advance by them. A run that stops at a character
  // that does not fit answers ResultOutputTooSmall with the counts of what was done.
  virtual BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                               unsigned& in_size, unsigned& in_pos, bool end_of_input) = 0;
};

KIV_DECLARE_HANDLE(BlockConverter, BlockConverterItf);

// The expansion factor held by some converters.
struct KIV_EXPORT BlockConverterExpansionFactorItf : public virtual RefCount {
  ~BlockConverterExpansionFactorItf() override;
  virtual double GetFactor() = 0;
};

struct KIV_EXPORT BlockConverterExpansionFactorExp {
  static Ref<BlockConverterExpansionFactorItf> Make(double factor);
};

struct KIV_EXPORT DataConverterExp {
  // The converter registered under `name` in the data converter registry ("ascii->wchar_t",
  // "wchar_t->utf-8", ...); a null handle when the object registered there is not a data
  // converter. NoSuchElementException for a name that is not registered.
  static DataConverter Make(const String& name);
  // Copies a converter name into a fixed buffer: at most dst_size - 1 bytes (src_len 0 means
  // "terminated"), always terminated. Returns the bytes copied.
  static unsigned CopyConverterName(char* dst, unsigned dst_size, const char* src,
                                    unsigned src_len);
};

struct KIV_EXPORT BlockConverterExp {
  // The converter registered under `name` in the block converter registry; a null handle when the
  // object registered there is not a block converter. NoSuchElementException for a name that is
  // not registered.
  static BlockConverter Make(const String& name);
  // A generic block converter over a data converter, with the given expansion factor.
  static BlockConverter Make(const DataConverter& converter, float factor);
};

struct KIV_EXPORT BlockCopyConverterExp {
  // The one shared copy converter with 1-byte blocks.
  static BlockConverter Make();
  // Copies whole blocks of `block_size` bytes; 1 gives the shared converter.
  static BlockConverter Make(unsigned block_size);
};

struct KIV_EXPORT AsciiTab2SpaceDataConverterExp {
  // Expands tabs to spaces up to the next multiple of `tab_width` (at least 1). The column is
  // state of the converter: one converter serves one text stream.
  static DataConverter Make(std::uint32_t tab_width);
};

// Stores the unit at `in` zero-extended and returns 1. KEPT: surrogates are passed on unpaired,
// never combined.
KIV_EXPORT int UTF16toUTF32(std::uint32_t* out, const unsigned short* in,
                            const unsigned short* in_end);
// Writes `c` as one or two units. Returns the units written, 0 when there is no room (a lead
// surrogate may already be stored), -1 for values of 0x110000 and above.
KIV_EXPORT int UTF32toUTF16(unsigned short* out, unsigned short* out_end, std::uint32_t c);

}  // namespace kiv

#endif  // KIV_CONVERTERS_H_
