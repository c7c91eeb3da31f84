// The Unicode converters: UTF-16 <-> UTF-32, UTF-8 (lenient and standard) <-> wide text, and the
// case converter of standard UTF-8.
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/string.h"
#include "platform/wide_ctype.h"
#include "text/converters/converter_impls.h"
#include "text/converters/utf8_codec.h"
#include "text/converters/utf8_fast.h"

namespace kiv {

using BufferResult = DataConverterItf::BufferResult;

namespace {

[[noreturn]] void ThrowInternal(const char* what) {
  throw InternalError(String(TextEncodingExp::MakeAscii(), what));
}

// Data EstimateSizes of the UTF-16/UTF-32 pair: a nominal character of (unsigned)(4 / F + 0.5)
// input bytes and 4 output bytes, once a whole input unit of `unit` bytes is there.
BufferResult NominalUnitSizes(double factor, unsigned unit, unsigned& out_size, const void* in,
                              unsigned& in_size) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size < unit) {
    in_size = out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  in_size = static_cast<unsigned>(4 / factor + 0.5);
  out_size = 4;
  return DataConverterItf::ResultOK;
}

// Data EstimateSizes of the UTF-8 pair: a nominal character of (unsigned)(2 / F + 0.5) input
// bytes when that much input is there; out_size is left as the caller passed it.
BufferResult NominalByteSizes(double factor, unsigned& out_size, const void* in,
                              unsigned& in_size) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return DataConverterItf::ResultOK;
  }
  const unsigned nominal = static_cast<unsigned>(2 / factor + 0.5);
  if (in_size < nominal) {
    in_size = out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  in_size = nominal;
  return DataConverterItf::ResultOK;
}

// Block EstimateSizes of the four: in_size cut to whole units, out_size = F * in_size rounded.
BufferResult BlockEstimate(double factor, unsigned unit, unsigned& out_size, const void* in,
                           unsigned& in_size) {
  if (in == nullptr) in_size = 0;
  if (in_size > 0 && in_size < unit) {
    in_size = out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  in_size -= in_size % unit;
  out_size = static_cast<unsigned>(factor * in_size + 0.5);
  return DataConverterItf::ResultOK;
}

// The block Convert prologue of the character-by-character converters. Returns true when the
// call is answered already.
template <class Self>
bool BlockPrologue(Self& self, BufferResult& result, void* out, unsigned& out_size,
                   unsigned out_pos, const void* in, unsigned& in_size, unsigned in_pos,
                   bool end_of_input) {
  if (in == nullptr) {
    in_size = out_size = 0;
    result = DataConverterItf::ResultOK;
    return true;
  }
  if (in_size == 0) {
    out_size = 0;
    result = DataConverterItf::ResultOK;
    return true;
  }
  if (out == nullptr || out_size == 0) {
    self.ComputeSizes(out_size, out_pos, in, in_size, in_pos, end_of_input);
    result = DataConverterItf::ResultOutputTooSmall;
    return true;
  }
  return false;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// UTF-16 to UTF-32

UTF16toUTF32ConverterImpl::UTF16toUTF32ConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(2.0)) {}
UTF16toUTF32ConverterImpl::~UTF16toUTF32ConverterImpl() = default;

DataConverter UTF16toUTF32ConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double UTF16toUTF32ConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult UTF16toUTF32ConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                 unsigned& in_size, bool) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  if (in_size < 2) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  in_size = 2;
  out_size = 4;
  return ResultOK;
}

BufferResult UTF16toUTF32ConverterImpl::ConvertOne(void* out, unsigned& out_size, const void* in,
                                                   unsigned& in_size, bool end_of_input) {
  const unsigned room = out != nullptr ? out_size : 0;
  BufferResult result = SizesOne(out_size, in, in_size, end_of_input);
  if (result != ResultOK || in_size == 0) return result;
  if (room < 4) return ResultOutputTooSmall;  // sizes already 2 and 4
  const unsigned short unit = codec::Load16(in);
  std::uint32_t value = 0;
  UTF16toUTF32(&value, &unit, &unit + 1);
  codec::Store32(out, value);
  return ResultOK;
}

BufferResult UTF16toUTF32ConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                      unsigned& in_size, bool) {
  return NominalUnitSizes(factor_->GetFactor(), 2, out_size, in, in_size);
}
BufferResult UTF16toUTF32ConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                     unsigned& in_size, bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult UTF16toUTF32ConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                unsigned& in_size, bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult UTF16toUTF32ConverterImpl::EstimateSizes(unsigned& out_size, unsigned, const void* in,
                                                      unsigned& in_size, unsigned, bool) {
  return BlockEstimate(factor_->GetFactor(), 2, out_size, in, in_size);
}
BufferResult UTF16toUTF32ConverterImpl::ComputeSizes(unsigned& out_size, unsigned, const void* in,
                                                     unsigned& in_size, unsigned,
                                                     bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult UTF16toUTF32ConverterImpl::Convert(void* out, unsigned& out_size, unsigned& out_pos,
                                                const void* in, unsigned& in_size, unsigned& in_pos,
                                                bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             0, 0);
}

// ---------------------------------------------------------------------------------------------
// UTF-32 to UTF-16

UTF32toUTF16ConverterImpl::UTF32toUTF16ConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(0.5)) {}
UTF32toUTF16ConverterImpl::~UTF32toUTF16ConverterImpl() = default;

DataConverter UTF32toUTF16ConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double UTF32toUTF16ConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult UTF32toUTF16ConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                 unsigned& in_size, bool) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  if (in_size < 4) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  unsigned short scratch[2];
  const int n = UTF32toUTF16(scratch, scratch + 2, codec::Load32(in));
  if (n < 0) throw CannotConvertException();
  if (n == 0) ThrowInternal("UTF32toUTF16");
  in_size = 4;
  out_size = 2 * static_cast<unsigned>(n);
  return ResultOK;
}

BufferResult UTF32toUTF16ConverterImpl::ConvertOne(void* out, unsigned& out_size, const void* in,
                                                   unsigned& in_size, bool end_of_input) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  if (in_size < 4) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  const unsigned units = out != nullptr ? out_size / 2 : 0;
  const int n = codec::PutUtf16(static_cast<unsigned char*>(out), units, codec::Load32(in));
  if (n < 0) throw CannotConvertException();
  if (n == 0) {
    SizesOne(out_size, in, in_size, end_of_input);
    return ResultOutputTooSmall;
  }
  in_size = 4;
  out_size = 2 * static_cast<unsigned>(n);
  return ResultOK;
}

BufferResult UTF32toUTF16ConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                      unsigned& in_size, bool) {
  return NominalUnitSizes(factor_->GetFactor(), 4, out_size, in, in_size);
}
BufferResult UTF32toUTF16ConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                     unsigned& in_size, bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult UTF32toUTF16ConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                unsigned& in_size, bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult UTF32toUTF16ConverterImpl::EstimateSizes(unsigned& out_size, unsigned, const void* in,
                                                      unsigned& in_size, unsigned, bool) {
  return BlockEstimate(factor_->GetFactor(), 4, out_size, in, in_size);
}
BufferResult UTF32toUTF16ConverterImpl::ComputeSizes(unsigned& out_size, unsigned, const void* in,
                                                     unsigned& in_size, unsigned,
                                                     bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult UTF32toUTF16ConverterImpl::Convert(void* out, unsigned& out_size, unsigned& out_pos,
                                                const void* in, unsigned& in_size, unsigned& in_pos,
                                                bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             0, 0);
}

// ---------------------------------------------------------------------------------------------
// UTF-8 to wide text

UTF8ToWideCharConverterImpl::UTF8ToWideCharConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(2.0)) {}
UTF8ToWideCharConverterImpl::~UTF8ToWideCharConverterImpl() = default;

DataConverter UTF8ToWideCharConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double UTF8ToWideCharConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

// Values of 0x110000 and above have no UTF-16 form: sizing them fails as converting them does.
BufferResult UTF8ToWideCharConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                   unsigned& in_size, bool) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  const auto* p = static_cast<const unsigned char*>(in);
  std::uint32_t c;
  const int length = codec::Utf8Decode(p, p + in_size, c);
  if (length == codec::kUtf8Incomplete) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  if (length < 0 || c >= 0x110000) throw CannotConvertException();
  in_size = static_cast<unsigned>(length);
  out_size = c < 0x10000 ? 2 : 4;
  return ResultOK;
}

BufferResult UTF8ToWideCharConverterImpl::ConvertOne(void* out, unsigned& out_size, const void* in,
                                                     unsigned& in_size, bool end_of_input) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  const auto* p = static_cast<const unsigned char*>(in);
  std::uint32_t c;
  const int length = codec::Utf8Decode(p, p + in_size, c);
  if (length == codec::kUtf8Incomplete) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  if (length < 0) throw CannotConvertException();
  const unsigned units = out != nullptr ? out_size / 2 : 0;
  const int n = codec::PutUtf16(static_cast<unsigned char*>(out), units, c);
  if (n < 0) throw CannotConvertException();
  if (n == 0) {
    SizesOne(out_size, in, in_size, end_of_input);
    return ResultOutputTooSmall;
  }
  in_size = static_cast<unsigned>(length);
  out_size = 2 * static_cast<unsigned>(n);
  return ResultOK;
}

BufferResult UTF8ToWideCharConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                        unsigned& in_size, bool) {
  return NominalByteSizes(factor_->GetFactor(), out_size, in, in_size);
}
BufferResult UTF8ToWideCharConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                       unsigned& in_size, bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult UTF8ToWideCharConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                  unsigned& in_size, bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult UTF8ToWideCharConverterImpl::EstimateSizes(unsigned& out_size, unsigned,
                                                        const void* in, unsigned& in_size, unsigned,
                                                        bool) {
  return BlockEstimate(factor_->GetFactor(), 1, out_size, in, in_size);
}
BufferResult UTF8ToWideCharConverterImpl::ComputeSizes(unsigned& out_size, unsigned, const void* in,
                                                       unsigned& in_size, unsigned,
                                                       bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult UTF8ToWideCharConverterImpl::Convert(void* out, unsigned& out_size, unsigned& out_pos,
                                                  const void* in, unsigned& in_size,
                                                  unsigned& in_pos, bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  unsigned written = 0;
  unsigned consumed = 0;
  fast::Utf8ToUtf16Run(static_cast<unsigned char*>(out), out_size,
                       static_cast<const unsigned char*>(in), in_size, written, consumed);
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             written, consumed);
}

// ---------------------------------------------------------------------------------------------
// Wide text to UTF-8

WideCharToUTF8ConverterImpl::WideCharToUTF8ConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(0.5)) {}
WideCharToUTF8ConverterImpl::~WideCharToUTF8ConverterImpl() = default;

DataConverter WideCharToUTF8ConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double WideCharToUTF8ConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult WideCharToUTF8ConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                   unsigned& in_size, bool) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  if (in_size < 2) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  const unsigned short unit = codec::Load16(in);
  std::uint32_t c;
  UTF16toUTF32(&c, &unit, &unit + 1);
  unsigned char scratch[6];
  const int n = codec::Utf8Encode(scratch, scratch + sizeof scratch, c);
  if (n == 0) ThrowInternal("UTF32toUTF8");
  in_size = 2;
  out_size = static_cast<unsigned>(n);
  return ResultOK;
}

BufferResult WideCharToUTF8ConverterImpl::ConvertOne(void* out, unsigned& out_size, const void* in,
                                                     unsigned& in_size, bool end_of_input) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return ResultOK;
  }
  if (in_size < 2) {
    in_size = out_size = 0;
    return ResultInputIncomplete;
  }
  const unsigned short unit = codec::Load16(in);
  std::uint32_t c;
  UTF16toUTF32(&c, &unit, &unit + 1);
  auto* o = static_cast<unsigned char*>(out);
  const unsigned room = o != nullptr ? out_size : 0;
  // The encoder answers 0 only for want of room: every 16-bit value has a UTF-8 form.
  const int n = codec::Utf8Encode(o, o + room, c);
  if (n == 0) {
    SizesOne(out_size, in, in_size, end_of_input);
    return ResultOutputTooSmall;
  }
  in_size = 2;
  out_size = static_cast<unsigned>(n);
  return ResultOK;
}

BufferResult WideCharToUTF8ConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                        unsigned& in_size, bool) {
  return NominalByteSizes(factor_->GetFactor(), out_size, in, in_size);
}
BufferResult WideCharToUTF8ConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                       unsigned& in_size, bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult WideCharToUTF8ConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                  unsigned& in_size, bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult WideCharToUTF8ConverterImpl::EstimateSizes(unsigned& out_size, unsigned,
                                                        const void* in, unsigned& in_size, unsigned,
                                                        bool) {
  return BlockEstimate(factor_->GetFactor(), 2, out_size, in, in_size);
}
BufferResult WideCharToUTF8ConverterImpl::ComputeSizes(unsigned& out_size, unsigned, const void* in,
                                                       unsigned& in_size, unsigned,
                                                       bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult WideCharToUTF8ConverterImpl::Convert(void* out, unsigned& out_size, unsigned& out_pos,
                                                  const void* in, unsigned& in_size,
                                                  unsigned& in_pos, bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  unsigned written = 0;
  unsigned consumed = 0;
  fast::Utf16ToUtf8Run(static_cast<unsigned char*>(out), out_size,
                       static_cast<const unsigned char*>(in), in_size, written, consumed);
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             written, consumed);
}

// ---------------------------------------------------------------------------------------------
// Standard UTF-8 to wide text

namespace {

// The shared opening of the data faces: no input, empty input. True when answered.
bool NoInput(unsigned& out_size, const void* in, unsigned& in_size, BufferResult& result) {
  result = DataConverterItf::ResultOK;
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

// Decodes one standard UTF-8 character of the `in_size` bytes at `in` (at least one). Returns
// its length, or 0 with both sizes set to 0 when it is cut off; throws when it is invalid.
unsigned DecodeStandard(const void* in, unsigned& in_size, unsigned& out_size, std::uint32_t& c) {
  const auto* p = static_cast<const unsigned char*>(in);
  const int length = codec::StandardUtf8Decode(p, p + in_size, c);
  if (length == codec::kUtf8Incomplete) {
    in_size = out_size = 0;
    return 0;
  }
  if (length < 0) throw CannotConvertException();
  return static_cast<unsigned>(length);
}

}  // namespace

StandardUTF8ToWideCharConverterImpl::StandardUTF8ToWideCharConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(2.0)) {}
StandardUTF8ToWideCharConverterImpl::~StandardUTF8ToWideCharConverterImpl() = default;

DataConverter StandardUTF8ToWideCharConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double StandardUTF8ToWideCharConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult StandardUTF8ToWideCharConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                           unsigned& in_size, bool) {
  BufferResult result;
  if (NoInput(out_size, in, in_size, result)) return result;
  std::uint32_t c;
  const unsigned length = DecodeStandard(in, in_size, out_size, c);
  if (length == 0) return ResultInputIncomplete;
  in_size = length;
  out_size = c < 0x10000 ? 2 : 4;
  return ResultOK;
}

BufferResult StandardUTF8ToWideCharConverterImpl::ConvertOne(void* out, unsigned& out_size,
                                                             const void* in, unsigned& in_size,
                                                             bool) {
  const unsigned room = out != nullptr ? out_size : 0;
  BufferResult result;
  if (NoInput(out_size, in, in_size, result)) return result;
  std::uint32_t c;
  const unsigned length = DecodeStandard(in, in_size, out_size, c);
  if (length == 0) return ResultInputIncomplete;
  in_size = length;
  out_size = c < 0x10000 ? 2 : 4;
  if (room < out_size) return ResultOutputTooSmall;
  codec::PutUtf16(static_cast<unsigned char*>(out), 2, c);
  return ResultOK;
}

BufferResult StandardUTF8ToWideCharConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                                unsigned& in_size, bool) {
  return NominalByteSizes(factor_->GetFactor(), out_size, in, in_size);
}
BufferResult StandardUTF8ToWideCharConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                               unsigned& in_size,
                                                               bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult StandardUTF8ToWideCharConverterImpl::Convert(void* out, unsigned& out_size,
                                                          const void* in, unsigned& in_size,
                                                          bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult StandardUTF8ToWideCharConverterImpl::EstimateSizes(unsigned& out_size, unsigned,
                                                                const void* in, unsigned& in_size,
                                                                unsigned, bool) {
  return BlockEstimate(factor_->GetFactor(), 1, out_size, in, in_size);
}
BufferResult StandardUTF8ToWideCharConverterImpl::ComputeSizes(unsigned& out_size, unsigned,
                                                               const void* in, unsigned& in_size,
                                                               unsigned, bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult StandardUTF8ToWideCharConverterImpl::Convert(void* out, unsigned& out_size,
                                                          unsigned& out_pos, const void* in,
                                                          unsigned& in_size, unsigned& in_pos,
                                                          bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  unsigned written = 0;
  unsigned consumed = 0;
  fast::StandardUtf8ToUtf16Run(static_cast<unsigned char*>(out), out_size,
                               static_cast<const unsigned char*>(in), in_size, written, consumed);
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             written, consumed);
}

// ---------------------------------------------------------------------------------------------
// Wide text to standard UTF-8

namespace {

// The character of the `in_size` bytes (at least one) of wide text at `in`: its value and input
// bytes, or 0 when it is cut off. A surrogate without its pair throws.
unsigned WideCharacter(const void* in, unsigned in_size, std::uint32_t& c) {
  if (in_size < 2) return 0;
  const auto* p = static_cast<const unsigned char*>(in);
  c = codec::Load16(p);
  if (!codec::IsSurrogate(c)) return 2;
  if (!codec::IsLeadSurrogate(c)) throw CannotConvertException();
  if (in_size < 4) return 0;
  const std::uint32_t trail = codec::Load16(p + 2);
  if (!codec::IsTrailSurrogate(trail)) throw CannotConvertException();
  c = codec::CombineSurrogates(c, trail);
  return 4;
}

unsigned Utf8Length(std::uint32_t c) noexcept {
  return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
}

}  // namespace

WideCharToStandardUTF8ConverterImpl::WideCharToStandardUTF8ConverterImpl()
    : factor_(BlockConverterExpansionFactorExp::Make(0.5)) {}
WideCharToStandardUTF8ConverterImpl::~WideCharToStandardUTF8ConverterImpl() = default;

DataConverter WideCharToStandardUTF8ConverterImpl::GetDataConverter() {
  return DataConverter(static_cast<DataConverterItf*>(this));
}
double WideCharToStandardUTF8ConverterImpl::GetExpansionFactor() { return factor_->GetFactor(); }

BufferResult WideCharToStandardUTF8ConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                           unsigned& in_size, bool) {
  BufferResult result;
  if (NoInput(out_size, in, in_size, result)) return result;
  std::uint32_t c;
  in_size = WideCharacter(in, in_size, c);
  if (in_size == 0) {
    out_size = 0;
    return ResultInputIncomplete;
  }
  out_size = Utf8Length(c);
  return ResultOK;
}

BufferResult WideCharToStandardUTF8ConverterImpl::ConvertOne(void* out, unsigned& out_size,
                                                             const void* in, unsigned& in_size,
                                                             bool) {
  const unsigned room = out != nullptr ? out_size : 0;
  BufferResult result;
  if (NoInput(out_size, in, in_size, result)) return result;
  std::uint32_t c;
  in_size = WideCharacter(in, in_size, c);
  if (in_size == 0) {
    out_size = 0;
    return ResultInputIncomplete;
  }
  out_size = Utf8Length(c);
  if (room < out_size) return ResultOutputTooSmall;
  auto* o = static_cast<unsigned char*>(out);
  codec::Utf8Encode(o, o + out_size, c);
  return ResultOK;
}

BufferResult WideCharToStandardUTF8ConverterImpl::EstimateSizes(unsigned& out_size, const void* in,
                                                                unsigned& in_size, bool) {
  return NominalByteSizes(factor_->GetFactor(), out_size, in, in_size);
}
BufferResult WideCharToStandardUTF8ConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                               unsigned& in_size,
                                                               bool end_of_input) {
  return SizesOne(out_size, in, in_size, end_of_input);
}
BufferResult WideCharToStandardUTF8ConverterImpl::Convert(void* out, unsigned& out_size,
                                                          const void* in, unsigned& in_size,
                                                          bool end_of_input) {
  return ConvertOne(out, out_size, in, in_size, end_of_input);
}
BufferResult WideCharToStandardUTF8ConverterImpl::EstimateSizes(unsigned& out_size, unsigned,
                                                                const void* in, unsigned& in_size,
                                                                unsigned, bool) {
  return BlockEstimate(factor_->GetFactor(), 2, out_size, in, in_size);
}
BufferResult WideCharToStandardUTF8ConverterImpl::ComputeSizes(unsigned& out_size, unsigned,
                                                               const void* in, unsigned& in_size,
                                                               unsigned, bool end_of_input) {
  return ComputeByCharacter(SizesOne, out_size, in, in_size, end_of_input);
}
BufferResult WideCharToStandardUTF8ConverterImpl::Convert(void* out, unsigned& out_size,
                                                          unsigned& out_pos, const void* in,
                                                          unsigned& in_size, unsigned& in_pos,
                                                          bool end_of_input) {
  BufferResult result;
  if (BlockPrologue(*this, result, out, out_size, out_pos, in, in_size, in_pos, end_of_input)) {
    return result;
  }
  unsigned written = 0;
  unsigned consumed = 0;
  fast::Utf16ToStandardUtf8Run(static_cast<unsigned char*>(out), out_size,
                               static_cast<const unsigned char*>(in), in_size, written, consumed);
  return ContinueByCharacter(ConvertOne, out, out_size, out_pos, in, in_size, in_pos, end_of_input,
                             written, consumed);
}

// ---------------------------------------------------------------------------------------------
// Case of standard UTF-8

StandardUTF8CaseConverterImpl::~StandardUTF8CaseConverterImpl() = default;

bool StandardUTF8CaseConverterImpl::Map(const void* in, unsigned& in_size, unsigned& out_size,
                                        std::uint32_t& mapped, BufferResult& result) const {
  if (NoInput(out_size, in, in_size, result)) return false;
  std::uint32_t c;
  const unsigned length = DecodeStandard(in, in_size, out_size, c);
  if (length == 0) {
    result = ResultInputIncomplete;
    return false;
  }
  mapped = upper_ ? platform::ToUpperWide(c) : platform::ToLowerWide(c);
  if (mapped > codec::kMaxScalar || codec::IsSurrogate(mapped)) mapped = c;
  in_size = length;
  out_size = Utf8Length(mapped);
  return true;
}

BufferResult StandardUTF8CaseConverterImpl::ComputeSizes(unsigned& out_size, const void* in,
                                                         unsigned& in_size, bool) {
  std::uint32_t mapped;
  BufferResult result;
  Map(in, in_size, out_size, mapped, result);
  return result;
}

BufferResult StandardUTF8CaseConverterImpl::Convert(void* out, unsigned& out_size, const void* in,
                                                    unsigned& in_size, bool) {
  const unsigned room = out != nullptr ? out_size : 0;
  std::uint32_t mapped;
  BufferResult result;
  if (!Map(in, in_size, out_size, mapped, result)) return result;
  if (room < out_size) return ResultOutputTooSmall;
  auto* o = static_cast<unsigned char*>(out);
  codec::Utf8Encode(o, o + out_size, mapped);
  return ResultOK;
}

}  // namespace kiv
