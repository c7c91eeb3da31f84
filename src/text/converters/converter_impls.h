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
#include "text/converters/utf8_fast.h"

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
// The rule every face of every converter keeps for no input, coded here once: a null `in` gives
// both sizes 0, an empty input gives out_size 0, and the answer is ResultOK. True when it applied.
inline bool NoInput(unsigned& out_size, const void* in, unsigned& in_size) noexcept {
  if (in == nullptr) {
    in_size = out_size = 0;
    return true;
  }
  if (in_size == 0) {
    out_size = 0;
    return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Character-by-character block loops, shared by the generic block converter and the converters
// whose block face converts one character at a time. `one` and `sizes` have the signatures of the
// data face's Convert and ComputeSizes. Both expect input that passed NoInput.

// The block ComputeSizes rule: walks whole characters from the start, asking `sizes` for each
// (once more with end_of_input set after ResultInputIncomplete when the caller's flag is set), and
// stops at the first result other than ResultOK or at the end. A character of no bytes also ends
// the walk (it could never advance).
template <class Sizes>
DataConverterItf::BufferResult ComputeByCharacter(Sizes&& sizes, unsigned& out_size, const void* in,
                                                  unsigned& in_size, bool end_of_input) {
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
// Both faces on one object, from the per-class functions of `Impl`, which see only input that
// passed NoInput (non-null, at least one byte):
//   EstimateOne, SizesOne, ConvertOne   the data face (one character);
//   EstimateBlock, SizesBlock           the block face's sizes (positions play no part);
//   ConvertBlock                        the block face's conversion;
//   Factor                              the expansion factor.
// The calls are resolved at compile time, so a block loop over SizesOne or ConvertOne pays no
// virtual call per character. GetDataConverter hands out the object itself.
//
// The final classes define their constructors out of line, next to their per-class functions:
// the faces are then compiled only there, with those functions at hand for inlining.
template <class Impl>
class BothFaces : public DataConverterItf, public BlockConverterItf {
 public:
  using BufferResult = DataConverterItf::BufferResult;

  BufferResult EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size,
                             bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().EstimateOne(out_size, in, in_size, end_of_input);
  }
  BufferResult ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size,
                            bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().SizesOne(out_size, in, in_size, end_of_input);
  }
  BufferResult Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                       bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().ConvertOne(out, out_size, in, in_size, end_of_input);
  }
  DataConverter GetDataConverter() override {
    return DataConverter(static_cast<DataConverterItf*>(this));
  }
  double GetExpansionFactor() override { return self().Factor(); }
  BufferResult EstimateSizes(unsigned& out_size, unsigned, const void* in, unsigned& in_size,
                             unsigned, bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().EstimateBlock(out_size, in, in_size, end_of_input);
  }
  BufferResult ComputeSizes(unsigned& out_size, unsigned, const void* in, unsigned& in_size,
                            unsigned, bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().SizesBlock(out_size, in, in_size, end_of_input);
  }
  BufferResult Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                       unsigned& in_size, unsigned& in_pos, bool end_of_input) override {
    if (NoInput(out_size, in, in_size)) return ResultOK;
    return self().ConvertBlock(out, out_size, out_pos, in, in_size, in_pos, end_of_input);
  }

 private:
  Impl& self() noexcept { return static_cast<Impl&>(*this); }
};

// ---------------------------------------------------------------------------------------------
// ASCII and case converters: one unit of InUnit bytes in, one unit of OutUnit bytes out, through
// `Impl::Map(in, out)`. Their block face converts min(input units, output room in units) in one
// go and answers ResultOK even when that is only part of the input; ResultOutputTooSmall (with
// the whole need) only when not even one unit fits. Estimates are the exact sizes.
template <class Impl, unsigned InUnit, unsigned OutUnit>
class UnitConverter : public BothFaces<Impl> {
 public:
  using BufferResult = DataConverterItf::BufferResult;

  BufferResult EstimateOne(unsigned& out_size, const void* in, unsigned& in_size, bool eoi) {
    return SizesOne(out_size, in, in_size, eoi);
  }
  BufferResult SizesOne(unsigned& out_size, const void*, unsigned& in_size, bool) {
    if (in_size < InUnit) {
      in_size = out_size = 0;
      return DataConverterItf::ResultInputIncomplete;
    }
    in_size = InUnit;
    out_size = OutUnit;
    return DataConverterItf::ResultOK;
  }
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                          bool eoi) {
    const unsigned room = out != nullptr ? out_size : 0;
    const BufferResult result = SizesOne(out_size, in, in_size, eoi);
    if (result != DataConverterItf::ResultOK) return result;
    if (room < OutUnit) return DataConverterItf::ResultOutputTooSmall;  // sizes already set
    Impl::Map(static_cast<const unsigned char*>(in), static_cast<unsigned char*>(out));
    return DataConverterItf::ResultOK;
  }
  double Factor() const noexcept { return static_cast<double>(OutUnit) / InUnit; }

  BufferResult EstimateBlock(unsigned& out_size, const void* in, unsigned& in_size, bool eoi) {
    return SizesBlock(out_size, in, in_size, eoi);
  }
  // The input cut to whole units (input shorter than one unit is incomplete).
  BufferResult SizesBlock(unsigned& out_size, const void*, unsigned& in_size, bool) {
    if (in_size < InUnit) {
      in_size = out_size = 0;
      return DataConverterItf::ResultInputIncomplete;
    }
    in_size -= in_size % InUnit;
    out_size = in_size / InUnit * OutUnit;
    return DataConverterItf::ResultOK;
  }
  BufferResult ConvertBlock(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                            unsigned& in_size, unsigned& in_pos, bool eoi) {
    const unsigned room = out != nullptr ? out_size : 0;
    const BufferResult result = SizesBlock(out_size, in, in_size, eoi);
    if (result != DataConverterItf::ResultOK) return result;
    unsigned units = in_size / InUnit;
    if (units > room / OutUnit) {
      units = room / OutUnit;
      if (units == 0) return DataConverterItf::ResultOutputTooSmall;  // out_size holds the need
    }
    Impl::MapRun(static_cast<unsigned char*>(out), static_cast<const unsigned char*>(in), units);
    in_size = units * InUnit;
    out_size = units * OutUnit;
    in_pos += in_size;
    out_pos += out_size;
    return DataConverterItf::ResultOK;
  }

  // `count` units through Map; a class with a faster loop hides this.
  static void MapRun(unsigned char* out, const unsigned char* in, unsigned count) {
    for (unsigned i = 0; i < count; ++i) Impl::Map(in + i * InUnit, out + i * OutUnit);
  }
};

// KEPT: stores the byte sign-extended: 0x80-0xFF become 0xFF80-0xFFFF; stored text depends on
// that exact result for non-ASCII bytes.
class AsciiToWideCharConverterImpl final
    : public UnitConverter<AsciiToWideCharConverterImpl, 1, 2> {
 public:
  AsciiToWideCharConverterImpl();
  ~AsciiToWideCharConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
  static void MapRun(unsigned char* out, const unsigned char* in, unsigned count);
};

// Units below 0x7F become that byte; every other unit, 0x7F included, becomes '.'. Nothing is
// ever reported as unconvertible.
class WideCharToAsciiConverterImpl final
    : public UnitConverter<WideCharToAsciiConverterImpl, 2, 1> {
 public:
  WideCharToAsciiConverterImpl();
  ~WideCharToAsciiConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// Each byte through the C library's tolower (current C locale).
class AsciiToLowerConverterImpl final : public UnitConverter<AsciiToLowerConverterImpl, 1, 1> {
 public:
  AsciiToLowerConverterImpl();
  ~AsciiToLowerConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// Each byte through toupper.
class AsciiToUpperConverterImpl final : public UnitConverter<AsciiToUpperConverterImpl, 1, 1> {
 public:
  AsciiToUpperConverterImpl();
  ~AsciiToUpperConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// Each 16-bit unit through towlower, one unit at a time (surrogates are not paired).
class UTF16ToLowerConverterImpl final : public UnitConverter<UTF16ToLowerConverterImpl, 2, 2> {
 public:
  UTF16ToLowerConverterImpl();
  ~UTF16ToLowerConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// Each 16-bit unit through towupper.
class UTF16ToUpperConverterImpl final : public UnitConverter<UTF16ToUpperConverterImpl, 2, 2> {
 public:
  UTF16ToUpperConverterImpl();
  ~UTF16ToUpperConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// Values below 0xD800 through towlower, the result cut to 16 bits; values from 0xD800 up (the
// whole range above the surrogates included) are copied unchanged.
class UTF32ToLowerConverterImpl final : public UnitConverter<UTF32ToLowerConverterImpl, 4, 4> {
 public:
  UTF32ToLowerConverterImpl();
  ~UTF32ToLowerConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// The same through towupper.
class UTF32ToUpperConverterImpl final : public UnitConverter<UTF32ToUpperConverterImpl, 4, 4> {
 public:
  UTF32ToUpperConverterImpl();
  ~UTF32ToUpperConverterImpl() override;
  static void Map(const unsigned char* in, unsigned char* out);
};

// ---------------------------------------------------------------------------------------------
// Unicode converters holding an expansion factor object F. `Impl` gives SizesOne and ConvertOne;
// the block face converts one character at a time by the generic block rule, after a run of
// `Impl::FastRun` (a tight loop with results identical to the character-by-character rule; none
// by default).
//
// The data EstimateSizes gives a nominal answer: with kPerUnit (the UTF-16/UTF-32 pair) it sets
// in_size = (unsigned)(4 / F + 0.5) and out_size = 4 once a whole input unit is there; with
// kPerTwoBytes (the UTF-8 converters) in_size = (unsigned)(2 / F + 0.5) when that much input is
// there, leaving out_size as passed. The block EstimateSizes cuts in_size to whole input units of
// InUnit bytes and answers out_size = (unsigned)(F * in_size + 0.5).
enum class NominalEstimate { kPerUnit, kPerTwoBytes };

template <class Impl, unsigned InUnit, NominalEstimate Nominal>
class CharConverter : public BothFaces<Impl> {
 public:
  using BufferResult = DataConverterItf::BufferResult;

  explicit CharConverter(double factor) : factor_(BlockConverterExpansionFactorExp::Make(factor)) {}

  BufferResult EstimateOne(unsigned& out_size, const void*, unsigned& in_size, bool) {
    const double factor = factor_->GetFactor();
    const unsigned nominal =
        Nominal == NominalEstimate::kPerUnit ? InUnit : static_cast<unsigned>(2 / factor + 0.5);
    if (in_size < nominal) {
      in_size = out_size = 0;
      return DataConverterItf::ResultInputIncomplete;
    }
    if constexpr (Nominal == NominalEstimate::kPerUnit) {
      in_size = static_cast<unsigned>(4 / factor + 0.5);
      out_size = 4;
    } else {
      in_size = nominal;
    }
    return DataConverterItf::ResultOK;
  }
  double Factor() { return factor_->GetFactor(); }

  BufferResult EstimateBlock(unsigned& out_size, const void*, unsigned& in_size, bool) {
    if (in_size < InUnit) {
      in_size = out_size = 0;
      return DataConverterItf::ResultInputIncomplete;
    }
    in_size -= in_size % InUnit;
    out_size = static_cast<unsigned>(factor_->GetFactor() * in_size + 0.5);
    return DataConverterItf::ResultOK;
  }
  BufferResult SizesBlock(unsigned& out_size, const void* in, unsigned& in_size, bool eoi) {
    return ComputeByCharacter([this](unsigned& os, const void* p, unsigned& is,
                                     bool e) { return self().SizesOne(os, p, is, e); },
                              out_size, in, in_size, eoi);
  }
  BufferResult ConvertBlock(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                            unsigned& in_size, unsigned& in_pos, bool eoi) {
    if (out == nullptr || out_size == 0) {
      SizesBlock(out_size, in, in_size, eoi);
      return DataConverterItf::ResultOutputTooSmall;
    }
    unsigned written = 0;
    unsigned consumed = 0;
    Impl::FastRun(static_cast<unsigned char*>(out), out_size, static_cast<const unsigned char*>(in),
                  in_size, written, consumed);
    return ContinueByCharacter([this](void* o, unsigned& os, const void* p, unsigned& is,
                                      bool e) { return self().ConvertOne(o, os, p, is, e); },
                               out, out_size, out_pos, in, in_size, in_pos, eoi, written, consumed);
  }

  static void FastRun(unsigned char*, unsigned, const unsigned char*, unsigned, unsigned&,
                      unsigned&) {}

 private:
  Impl& self() noexcept { return static_cast<Impl&>(*this); }

  Ref<BlockConverterExpansionFactorItf> factor_;
};

// 2 bytes in, 4 out; surrogates are passed on one by one, never combined.
class UTF16toUTF32ConverterImpl final
    : public CharConverter<UTF16toUTF32ConverterImpl, 2, NominalEstimate::kPerUnit> {
 public:
  UTF16toUTF32ConverterImpl();
  ~UTF16toUTF32ConverterImpl() override;
  BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size, bool);
};

// 4 bytes in, 2 or 4 out (a surrogate pair above 0xFFFF). Values of 0x110000 and above throw
// CannotConvertException. When only one unit of room is left for a value above 0xFFFF, its lead
// surrogate is stored there although the answer is ResultOutputTooSmall.
class UTF32toUTF16ConverterImpl final
    : public CharConverter<UTF32toUTF16ConverterImpl, 4, NominalEstimate::kPerUnit> {
 public:
  UTF32toUTF16ConverterImpl();
  ~UTF32toUTF16ConverterImpl() override;
  BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size, bool);
};

// UTF-8 to wide text (one unit, or a surrogate pair above 0xFFFF), in the lenient form
// (kStandard false) or the standard one. A sequence cut off by the end of the input is
// ResultInputIncomplete; an invalid one, or a value of 0x110000 and above, throws
// CannotConvertException (the standard form throws as soon as the first wrong byte is there).
template <bool kStandard>
class Utf8ToWideConverter
    : public CharConverter<Utf8ToWideConverter<kStandard>, 1, NominalEstimate::kPerTwoBytes> {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  Utf8ToWideConverter();
  BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size, bool);
  static constexpr auto FastRun = kStandard ? fast::StandardUtf8ToUtf16Run : fast::Utf8ToUtf16Run;

 private:
  // The character at `in`: its value and both sizes, or ResultInputIncomplete with both 0.
  BufferResult Measure(unsigned& out_size, const void* in, unsigned& in_size, std::uint32_t& c);
};

// Wide text to UTF-8. KEPT: lenient (kStandard false) writes one 16-bit unit at a time, a
// surrogate pair becoming two three-byte sequences, one per surrogate, although its decoding
// direction pairs them; stored text depends on it. Standard: a character is one unit,
// or a surrogate pair (4 bytes in) that becomes one four-byte sequence; a surrogate without its
// pair cannot be written as UTF-8 and throws CannotConvertException (the text is never altered
// silently), and a lead surrogate that ends the input is ResultInputIncomplete, as its pair may
// follow. The factor 0.5 is exact only for ASCII text; UTF-8 output can reach one and a half
// times the input, and callers cope with ResultOutputTooSmall.
template <bool kStandard>
class WideToUtf8Converter
    : public CharConverter<WideToUtf8Converter<kStandard>, 2, NominalEstimate::kPerTwoBytes> {
 public:
  using BufferResult = DataConverterItf::BufferResult;
  WideToUtf8Converter();
  BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size, bool);
  static constexpr auto FastRun = kStandard ? fast::Utf16ToStandardUtf8Run : fast::Utf16ToUtf8Run;

 private:
  // The character at `in`: its value and both sizes, or ResultInputIncomplete with both 0.
  BufferResult Measure(unsigned& out_size, const void* in, unsigned& in_size, std::uint32_t& c);
};

// The lenient form: one to six bytes. As for UTF-32, the lead surrogate of a pair that does not
// fit is stored in a last unit of room.
class UTF8ToWideCharConverterImpl final : public Utf8ToWideConverter<false> {
 public:
  UTF8ToWideCharConverterImpl();
  ~UTF8ToWideCharConverterImpl() override;
};

class WideCharToUTF8ConverterImpl final : public WideToUtf8Converter<false> {
 public:
  WideCharToUTF8ConverterImpl();
  ~WideCharToUTF8ConverterImpl() override;
};

// The standard form: one to four bytes, shortest forms, values up to 0x10FFFF, no surrogates.
// Unlike the lenient converter, ResultOutputTooSmall writes nothing.
class StandardUTF8ToWideCharConverterImpl final : public Utf8ToWideConverter<true> {
 public:
  StandardUTF8ToWideCharConverterImpl();
  ~StandardUTF8ToWideCharConverterImpl() override;
};

class WideCharToStandardUTF8ConverterImpl final : public WideToUtf8Converter<true> {
 public:
  WideCharToStandardUTF8ConverterImpl();
  ~WideCharToStandardUTF8ConverterImpl() override;
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
// masked value is used as it stands (N = 3 with 7 bytes copies 5). KEPT: callers size their
// buffers by that rule. N = 0 (M = 0) converts nothing and answers ResultOK.
class CopyBlockConverterImpl final : public BothFaces<CopyBlockConverterImpl> {
 public:
  explicit CopyBlockConverterImpl(unsigned block_size) noexcept;
  ~CopyBlockConverterImpl() override;

  BufferResult EstimateOne(unsigned& out_size, const void* in, unsigned& in_size, bool eoi) {
    return SizesOne(out_size, in, in_size, eoi);
  }
  BufferResult SizesOne(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertOne(void* out, unsigned& out_size, const void* in, unsigned& in_size,
                          bool end_of_input);
  double Factor() const noexcept { return 1.0; }
  BufferResult EstimateBlock(unsigned& out_size, const void* in, unsigned& in_size, bool eoi) {
    return SizesBlock(out_size, in, in_size, eoi);
  }
  BufferResult SizesBlock(unsigned& out_size, const void* in, unsigned& in_size, bool);
  BufferResult ConvertBlock(void* out, unsigned& out_size, unsigned& out_pos, const void* in,
                            unsigned& in_size, unsigned& in_pos, bool end_of_input);

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
// units does not fit the scratch unit. KEPT: such a character throws InternalError with an empty
// text (case mapping of lenient UTF-8 above U+FFFF). A stage that
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
