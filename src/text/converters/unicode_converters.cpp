// The Unicode converters: UTF-16 <-> UTF-32, UTF-8 (lenient and standard) <-> wide text, and the
// case converter of standard UTF-8.
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/string.h"
#include "platform/wide_ctype.h"
#include "text/converters/converter_impls.h"
#include "text/converters/utf8_fast.h"
#include "unicode/utf_codec.h"

namespace kiv {

using BufferResult = DataConverterItf::BufferResult;

namespace {

[[noreturn]] void ThrowInternal(const char* what) {
  throw InternalError(String(TextEncodingExp::MakeAscii(), what));
}

// Decodes one UTF-8 character of the form from the `in_size` bytes at `in` (at least one).
// Returns its length, or 0 with both sizes set to 0 when it is cut off; throws when it is invalid
// or has no UTF-16 form (values of 0x110000 and above, which only the lenient form decodes).
template <bool kStandard>
unsigned DecodeUtf8(const void* in, unsigned& in_size, unsigned& out_size, std::uint32_t& c) {
  const auto* p = static_cast<const unsigned char*>(in);
  const int length = kStandard ? codec::StandardUtf8Decode(p, p + in_size, c)
                               : codec::LenientUtf8Decode(p, p + in_size, c);
  if (length == codec::kUtf8Incomplete) {
    in_size = out_size = 0;
    return 0;
  }
  if (length < 0 || c > codec::kMaxScalar) throw CannotConvertException();
  return static_cast<unsigned>(length);
}

// The character of the `in_size` bytes (at least one) of wide text at `in`: its value and input
// bytes, or 0 when it is cut off. The lenient form takes one unit, whatever it is; the standard
// form pairs surrogates and throws for a surrogate without its pair.
template <bool kStandard>
unsigned WideCharacter(const void* in, unsigned in_size, std::uint32_t& c) {
  if (in_size < 2) return 0;
  const auto* p = static_cast<const unsigned char*>(in);
  c = codec::Load16(p);
  if (!kStandard || !codec::IsSurrogate(c)) return 2;
  if (!codec::IsLeadSurrogate(c)) throw CannotConvertException();
  if (in_size < 4) return 0;
  const std::uint32_t trail = codec::Load16(p + 2);
  if (!codec::IsTrailSurrogate(trail)) throw CannotConvertException();
  c = codec::CombineSurrogates(c, trail);
  return 4;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// UTF-16 to UTF-32

UTF16toUTF32ConverterImpl::UTF16toUTF32ConverterImpl() : CharConverter(2.0) {}
UTF16toUTF32ConverterImpl::~UTF16toUTF32ConverterImpl() = default;

BufferResult UTF16toUTF32ConverterImpl::SizesOne(unsigned& out_size, const void*, unsigned& in_size,
                                                 bool) {
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
  if (result != ResultOK) return result;
  if (room < 4) return ResultOutputTooSmall;  // sizes already 2 and 4
  const unsigned short unit = codec::Load16(in);
  std::uint32_t value = 0;
  UTF16toUTF32(&value, &unit, &unit + 1);
  codec::Store32(out, value);
  return ResultOK;
}

// ---------------------------------------------------------------------------------------------
// UTF-32 to UTF-16

UTF32toUTF16ConverterImpl::UTF32toUTF16ConverterImpl() : CharConverter(0.5) {}
UTF32toUTF16ConverterImpl::~UTF32toUTF16ConverterImpl() = default;

BufferResult UTF32toUTF16ConverterImpl::SizesOne(unsigned& out_size, const void* in,
                                                 unsigned& in_size, bool) {
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

// ---------------------------------------------------------------------------------------------
// UTF-8 to wide text

template <bool kStandard>
Utf8ToWideConverter<kStandard>::Utf8ToWideConverter() : Utf8ToWideConverter::CharConverter(2.0) {}

template <bool kStandard>
BufferResult Utf8ToWideConverter<kStandard>::Measure(unsigned& out_size, const void* in,
                                                     unsigned& in_size, std::uint32_t& c) {
  const unsigned length = DecodeUtf8<kStandard>(in, in_size, out_size, c);
  if (length == 0) return DataConverterItf::ResultInputIncomplete;
  in_size = length;
  out_size = c < codec::kFirstSupplementary ? 2 : 4;
  return DataConverterItf::ResultOK;
}

template <bool kStandard>
BufferResult Utf8ToWideConverter<kStandard>::SizesOne(unsigned& out_size, const void* in,
                                                      unsigned& in_size, bool) {
  std::uint32_t c;
  return Measure(out_size, in, in_size, c);
}

template <bool kStandard>
BufferResult Utf8ToWideConverter<kStandard>::ConvertOne(void* out, unsigned& out_size,
                                                        const void* in, unsigned& in_size, bool) {
  const unsigned room = out != nullptr ? out_size : 0;
  std::uint32_t c;
  const BufferResult result = Measure(out_size, in, in_size, c);
  if (result != DataConverterItf::ResultOK) return result;
  auto* o = static_cast<unsigned char*>(out);
  if (room < out_size) {
    // The lenient form stores the lead surrogate of a pair in a last unit of room.
    if constexpr (!kStandard) codec::PutUtf16(o, room / 2, c);
    return DataConverterItf::ResultOutputTooSmall;
  }
  codec::PutUtf16(o, 2, c);
  return DataConverterItf::ResultOK;
}

UTF8ToWideCharConverterImpl::UTF8ToWideCharConverterImpl() = default;
UTF8ToWideCharConverterImpl::~UTF8ToWideCharConverterImpl() = default;
StandardUTF8ToWideCharConverterImpl::StandardUTF8ToWideCharConverterImpl() = default;
StandardUTF8ToWideCharConverterImpl::~StandardUTF8ToWideCharConverterImpl() = default;

// ---------------------------------------------------------------------------------------------
// Wide text to UTF-8

// KEPT: the expansion factor 0.5, exact only for ASCII text; callers size by it and cope with
// ResultOutputTooSmall.
template <bool kStandard>
WideToUtf8Converter<kStandard>::WideToUtf8Converter() : WideToUtf8Converter::CharConverter(0.5) {}

template <bool kStandard>
BufferResult WideToUtf8Converter<kStandard>::Measure(unsigned& out_size, const void* in,
                                                     unsigned& in_size, std::uint32_t& c) {
  in_size = WideCharacter<kStandard>(in, in_size, c);
  if (in_size == 0) {
    out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  out_size = static_cast<unsigned>(codec::Utf8Length(c));
  return DataConverterItf::ResultOK;
}

template <bool kStandard>
BufferResult WideToUtf8Converter<kStandard>::SizesOne(unsigned& out_size, const void* in,
                                                      unsigned& in_size, bool) {
  std::uint32_t c;
  return Measure(out_size, in, in_size, c);
}

template <bool kStandard>
BufferResult WideToUtf8Converter<kStandard>::ConvertOne(void* out, unsigned& out_size,
                                                        const void* in, unsigned& in_size, bool) {
  const unsigned room = out != nullptr ? out_size : 0;
  std::uint32_t c;
  const BufferResult result = Measure(out_size, in, in_size, c);
  if (result != DataConverterItf::ResultOK) return result;
  if (room < out_size) return DataConverterItf::ResultOutputTooSmall;
  auto* o = static_cast<unsigned char*>(out);
  codec::Utf8Encode(o, o + out_size, c);
  return DataConverterItf::ResultOK;
}

WideCharToUTF8ConverterImpl::WideCharToUTF8ConverterImpl() = default;
WideCharToUTF8ConverterImpl::~WideCharToUTF8ConverterImpl() = default;
WideCharToStandardUTF8ConverterImpl::WideCharToStandardUTF8ConverterImpl() = default;
WideCharToStandardUTF8ConverterImpl::~WideCharToStandardUTF8ConverterImpl() = default;

// ---------------------------------------------------------------------------------------------
// Case of standard UTF-8

StandardUTF8CaseConverterImpl::~StandardUTF8CaseConverterImpl() = default;

bool StandardUTF8CaseConverterImpl::Map(const void* in, unsigned& in_size, unsigned& out_size,
                                        std::uint32_t& mapped, BufferResult& result) const {
  result = ResultOK;
  if (NoInput(out_size, in, in_size)) return false;
  std::uint32_t c;
  const unsigned length = DecodeUtf8<true>(in, in_size, out_size, c);
  if (length == 0) {
    result = ResultInputIncomplete;
    return false;
  }
  mapped = upper_ ? platform::ToUpperWide(c) : platform::ToLowerWide(c);
  if (mapped > codec::kMaxScalar || codec::IsSurrogate(mapped)) mapped = c;
  in_size = length;
  out_size = static_cast<unsigned>(codec::Utf8Length(mapped));
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
