// The converter classes. Most implement both faces, DataConverterItf (one character per call) and
// BlockConverterItf (as much as fits per call), on one object; GetDataConverter then hands out
// the object itself.
//
// Shared rules of every data face: a null `in` gives both sizes 0 and ResultOK; an empty input
// gives out_size 0 and ResultOK; input shorter than one character gives both sizes 0 and
// ResultInputIncomplete; a null `out` is an output buffer of size 0. None of the converters here
// answers differently when `end_of_input` is set.
#ifndef KIV_SRC_TEXT_CONVERTERS_CONVERTER_IMPLS_H_
#define KIV_SRC_TEXT_CONVERTERS_CONVERTER_IMPLS_H_

#include <cstdint>

#include "kiv/converters.h"

namespace kiv {

class BlockConverterExpansionFactorImpl : public BlockConverterExpansionFactorItf {
 public:
  explicit BlockConverterExpansionFactorImpl(double factor) noexcept : factor_(factor) {}
  ~BlockConverterExpansionFactorImpl() override;
  double GetFactor() override { return factor_; }

 private:
  double factor_;
};

// ---------------------------------------------------------------------------------------------
// Character-by-character block loops, shared by the generic block converter and the converters
// whose block face converts one character at a time. `one` and `sizes` have the signatures of the
// data face's Convert and ComputeSizes.

// The block ComputeSizes rule: walks whole characters from the start, asking `sizes` for each
// (once more with end_of_input set after ResultInputIncomplete when the caller's flag is set), and
// stops at the first result other than ResultOK or at the end. A character of no bytes also ends
// the walk (it could never advance).
template <class Sizes>
DataConverterItf::BufferResult ComputeByCharacter(Sizes&& sizes, unsigned& out_size, const void* in,
                                                  unsigned& in_size, bool end_of_input) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return DataConverterItf::ResultOK;
  }
  const auto* p = static_cast<const unsigned char*>(in);
  unsigned offset = 0;
  unsigned total = 0;
  DataConverterItf::BufferResult result = DataConverterItf::ResultOK;
  while (offset < in_size) {
    unsigned os = 0;
    unsigned is = in_size - offset;
    result = sizes(os, p + offset, is, false);
    if (result == DataConverterItf::ResultInputIncomplete && end_of_input) {
      os = 0;
      is = in_size - offset;
      result = sizes(os, p + offset, is, true);
    }
    if (result != DataConverterItf::ResultOK || is == 0) break;
    offset += is;
    total += os;
  }
  in_size = offset;
  out_size = total;
  return result;
}

// The block Convert loop from a state where `written` and `consumed` bytes are already done (a
// fast path may have done them): converts character by character while output room and input
// remain. An error before anything was consumed is answered with the failing call's sizes; after
// that, with the counts of what was done and the last result (so a run that meets a character
// that does not fit answers ResultOutputTooSmall with its counts). A character that consumes and
// produces nothing ends the loop.
template <class One>
DataConverterItf::BufferResult ContinueByCharacter(One&& one, void* out, unsigned& out_size,
                                                   unsigned& out_pos, const void* in,
                                                   unsigned& in_size, unsigned& in_pos,
                                                   bool end_of_input, unsigned written,
                                                   unsigned consumed) {
  auto* o = static_cast<unsigned char*>(out);
  const auto* p = static_cast<const unsigned char*>(in);
  DataConverterItf::BufferResult result = DataConverterItf::ResultOK;
  unsigned fail_out = 0;
  unsigned fail_in = 0;
  while (written < out_size && consumed < in_size) {
    unsigned os = out_size - written;
    unsigned is = in_size - consumed;
    result = one(o + written, os, p + consumed, is, false);
    if (result == DataConverterItf::ResultInputIncomplete && end_of_input) {
      os = out_size - written;
      is = in_size - consumed;
      result = one(o + written, os, p + consumed, is, true);
    }
    if (result != DataConverterItf::ResultOK) {
      fail_out = os;
      fail_in = is;
      break;
    }
    if (is == 0 && os == 0) break;
    written += os;
    consumed += is;
  }
  if (result != DataConverterItf::ResultOK && consumed == 0) {
    out_size = fail_out;
    in_size = fail_in;
    return result;
  }
  in_size = consumed;
  in_pos += consumed;
  out_size = written;
  out_pos += written;
  return result;
}

// ---------------------------------------------------------------------------------------------
// ASCII and case converters: one fixed-size unit in, one fixed-size unit out. Their block face
// converts min(input units, output room in units) in one go and answers ResultOK even when that
// is only part of the input; ResultOutputTooSmall (with the whole need) only when not even one
// unit fits.

class AsciiToWideCharConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  ~AsciiToWideCharConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  // Stores the byte sign-extended: 0x80-0xFF become 0xFF80-0xFFFF. Text made by older callers
  // depends on that exact result for non-ASCII bytes.
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 2.0; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// Units below 0x7F become that byte; every other unit, 0x7F included, becomes '.'. Nothing is
// ever reported as unconvertible.
class WideCharToAsciiConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  ~WideCharToAsciiConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 0.5; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// Each byte through the C library's tolower (current C locale).
class AsciiToLowerConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  ~AsciiToLowerConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 1.0; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// Each byte through toupper; only the converting operations differ from the lower-case one.
class AsciiToUpperConverterImpl : public AsciiToLowerConverterImpl {
 public:
  ~AsciiToUpperConverterImpl() override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// Each 16-bit unit through towlower, one unit at a time (surrogates are not paired).
class UTF16ToLowerConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  ~UTF16ToLowerConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 1.0; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

class UTF16ToUpperConverterImpl : public UTF16ToLowerConverterImpl {
 public:
  ~UTF16ToUpperConverterImpl() override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// Values below 0xD800 through towlower, the result cut to 16 bits; values from 0xD800 up (the
// whole range above the surrogates included) are copied unchanged.
class UTF32ToLowerConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  ~UTF32ToLowerConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 1.0; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

class UTF32ToUpperConverterImpl : public UTF32ToLowerConverterImpl {
 public:
  ~UTF32ToUpperConverterImpl() override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
};

// ---------------------------------------------------------------------------------------------
// Unicode converters holding an expansion factor object. Their block face converts one character
// at a time by the generic block rule; the UTF-8 ones run whole runs of characters in a tight
// loop first, with results identical to the character-by-character rule.
//
// Their data EstimateSizes gives a nominal answer from the factor F: the UTF-16/UTF-32 pair sets
// in_size = (unsigned)(4 / F + 0.5) and out_size = 4 once a whole input unit is there; the UTF-8
// pair sets in_size = (unsigned)(2 / F + 0.5) when that much input is there and leaves out_size
// as passed. Their block EstimateSizes cuts in_size to whole input units and answers
// out_size = (unsigned)(F * in_size + 0.5).

// 2 bytes in, 4 out; surrogates are passed on one by one, never combined.
class UTF16toUTF32ConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  UTF16toUTF32ConverterImpl();
  ~UTF16toUTF32ConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// 4 bytes in, 2 or 4 out (a surrogate pair above 0xFFFF). Values of 0x110000 and above throw
// CannotConvertException. When only one unit of room is left for a value above 0xFFFF, its lead
// surrogate is stored there although the answer is ResultOutputTooSmall.
class UTF32toUTF16ConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  UTF32toUTF16ConverterImpl();
  ~UTF32toUTF16ConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// UTF-8 (one to six bytes) to wide text (one unit, or a surrogate pair above 0xFFFF). Invalid
// sequences and values of 0x110000 and above throw CannotConvertException; a sequence cut off by
// the end of the input is ResultInputIncomplete. As for UTF-32, the lead surrogate of a pair that
// does not fit is stored in a last unit of room.
class UTF8ToWideCharConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  UTF8ToWideCharConverterImpl();
  ~UTF8ToWideCharConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// Wide text to UTF-8, one 16-bit unit at a time: a surrogate pair becomes two three-byte
// sequences, one per surrogate. (The decoding direction does pair them; this asymmetry is kept
// because stored text depends on it.) The factor 0.5 is exact only for ASCII text; UTF-8 output
// can reach one and a half times the input, and callers cope with ResultOutputTooSmall.
class WideCharToUTF8ConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  WideCharToUTF8ConverterImpl();
  ~WideCharToUTF8ConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// Standard UTF-8 (one to four bytes, shortest forms, values up to 0x10FFFF, no surrogates) to
// wide text (one unit, or a surrogate pair above 0xFFFF). A sequence that is not well-formed
// throws CannotConvertException as soon as its first wrong byte is there; the input ending inside
// a sequence that is well-formed so far is ResultInputIncomplete. Unlike the lenient converter,
// ResultOutputTooSmall writes nothing.
class StandardUTF8ToWideCharConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  StandardUTF8ToWideCharConverterImpl();
  ~StandardUTF8ToWideCharConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// Wide text to standard UTF-8. A character is one unit, or a surrogate pair (4 bytes in) that
// becomes one four-byte sequence. A surrogate without its pair cannot be written as UTF-8 and
// throws CannotConvertException (the text is never altered silently); a lead surrogate that ends
// the input is ResultInputIncomplete, as its pair may follow. Factor 0.5, as for the lenient one.
class WideCharToStandardUTF8ConverterImpl : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  WideCharToStandardUTF8ConverterImpl();
  ~WideCharToStandardUTF8ConverterImpl() override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override;
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

  static BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  static BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                                 bool);

 private:
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// Folds the case of standard UTF-8 text one character at a time: the whole value through towlower
// or towupper, so characters above 0xFFFF are mapped too (the wide-text case converters, working
// unit by unit, leave them as they are). A mapping whose result is not a Unicode scalar value is
// not applied. Invalid and cut-off input are answered as the standard UTF-8 decoder answers them.
class StandardUTF8CaseConverterImpl : public DataConverterItf {
 public:
  explicit StandardUTF8CaseConverterImpl(bool upper) noexcept : upper_(upper) {}
  ~StandardUTF8CaseConverterImpl() override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;

 private:
  // The mapped character and its input length; false with the sizes set when the call is over.
  bool Map(const void* in, unsigned& in_size, unsigned& out_size, std::uint32_t& mapped,
           BufferResult& result) const;

  bool upper_;
};

// ---------------------------------------------------------------------------------------------
// Copies whole blocks of N bytes. The block face rounds sizes with the mask M = 0 - N (two's
// complement), which is a round-down to whole blocks only for N a power of two: for other N the
// masked value is used as it stands (N = 3 with 7 bytes copies 5). Existing callers size their
// buffers by that rule, so it is kept. N = 0 (M = 0) converts nothing and answers ResultOK.
class CopyBlockConverterImpl : public BlockConverterItf, public DataConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  explicit CopyBlockConverterImpl(unsigned block_size) noexcept
      : block_size_(block_size), mask_(0u - block_size) {}
  ~CopyBlockConverterImpl() override;
  DataConverter GetDataConverter() override;
  double GetExpansionFactor() override { return 1.0; }
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;
  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;

 private:
  unsigned block_size_;
  unsigned mask_;
};

// Expands tabs to spaces up to the next multiple of the tab width W. The column is state of the
// object, so one converter serves one text stream. ComputeSizes sizes a tab from the current
// column without moving it.
class AsciiTab2SpaceDataConverterImpl : public DataConverterItf {
 public:
  explicit AsciiTab2SpaceDataConverterImpl(std::uint32_t tab_width) noexcept
      : tab_width_(tab_width), column_(0) {}
  ~AsciiTab2SpaceDataConverterImpl() override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;

 private:
  std::uint32_t tab_width_;
  std::uint32_t column_;
};

// Turns any data converter into a block converter, one character per call of the data converter.
// The data converter is asked again with end_of_input set only after it answered
// ResultInputIncomplete and the caller's flag is set.
class BlockConverterImpl : public BlockConverterItf {
 public:
  BlockConverterImpl(const DataConverter& converter, double factor);
  ~BlockConverterImpl() override;
  DataConverter GetDataConverter() override { return converter_; }
  double GetExpansionFactor() override;
  // out_size = (unsigned)(factor * in_size + 0.5); in_size is kept (0 for a null `in`).
  BufferResult EstimateSizes(unsigned& out_size, unsigned out_pos, const void* in,
                             unsigned& in_size, unsigned in_pos, bool end_of_input) override;
  BufferResult ComputeSizes(unsigned& out_size, unsigned out_pos, const void* in, unsigned& in_size,
                            unsigned in_pos, bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override;

 private:
  DataConverter converter_;
  Ref<BlockConverterExpansionFactorItf> factor_;
};

// Runs one character through three data converters: `to_wide` (source encoding to wide text),
// then `wide_op` (wide to wide, e.g. case folding), then `from_wide` (wide text back to the source
// encoding), with one 16-bit unit of scratch between the stages. A character that needs two wide
// units does not fit the scratch unit and throws InternalError with an empty text. A stage that
// answers ResultInputIncomplete ends the call with both sizes 0; otherwise the last stage's
// result is returned. ComputeSizes runs the first two stages into scratch and sizes the third.
class WrappedConverterImpl : public DataConverterItf {
 public:
  WrappedConverterImpl(const DataConverter& to_wide, const DataConverter& from_wide,
                       const DataConverter& wide_op);
  ~WrappedConverterImpl() override;
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override;
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override;

 private:
  // The first two stages into `wide`; false with in_size/out_size set when the call ends early.
  bool ToScratch(unsigned short& wide, unsigned& out_size, const void* in, unsigned& in_size,
                 bool end_of_input, BufferResult& result);

  DataConverter to_wide_;
  DataConverter from_wide_;
  DataConverter wide_op_;
};

}  // namespace kiv

#endif  // KIV_SRC_TEXT_CONVERTERS_CONVERTER_IMPLS_H_
