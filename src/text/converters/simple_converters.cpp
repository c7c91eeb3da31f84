// The converters that map one fixed-size unit to one fixed-size unit: ASCII to and from wide
// text, and the case converters of ASCII, UTF-16 and UTF-32 text.
#include <cctype>
#include <cwctype>

#include "platform/wide_ctype.h"
#include "text/converters/converter_impls.h"
#include "text/converters/utf8_codec.h"
#include "text/converters/utf8_fast.h"

namespace kiv {

using BufferResult = DataConverterItf::BufferResult;

namespace {

// One unit of InUnit bytes to one unit of OutUnit bytes through `map(in, out)`.

template <unsigned InUnit, unsigned OutUnit>
BufferResult UnitSizes(unsigned& out_size, const void* in, unsigned& in_size) {
  if (in == nullptr) {
    in_size = out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size == 0) {
    out_size = 0;
    return DataConverterItf::ResultOK;
  }
  if (in_size < InUnit) {
    in_size = out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  in_size = InUnit;
  out_size = OutUnit;
  return DataConverterItf::ResultOK;
}

template <unsigned InUnit, unsigned OutUnit, class Map>
BufferResult UnitConvert(Map map, void* out, unsigned& out_size, const void* in,
                         unsigned& in_size) {
  const unsigned room = out != nullptr ? out_size : 0;
  BufferResult result = UnitSizes<InUnit, OutUnit>(out_size, in, in_size);
  if (result != DataConverterItf::ResultOK || in_size == 0) return result;
  if (room < OutUnit) return DataConverterItf::ResultOutputTooSmall;  // sizes already set
  map(static_cast<const unsigned char*>(in), static_cast<unsigned char*>(out));
  return DataConverterItf::ResultOK;
}

// Block sizes: the input cut to whole units (input shorter than one unit is incomplete).
template <unsigned InUnit, unsigned OutUnit>
BufferResult BlockUnitSizes(unsigned& out_size, const void* in, unsigned& in_size) {
  if (in == nullptr) in_size = 0;
  if (in_size > 0 && in_size < InUnit) {
    in_size = out_size = 0;
    return DataConverterItf::ResultInputIncomplete;
  }
  in_size -= in_size % InUnit;
  out_size = in_size / InUnit * OutUnit;
  return DataConverterItf::ResultOK;
}

// Block conversion: as many units as the input holds and the output room takes; only when not
// even one fits is the answer ResultOutputTooSmall, with the output size of the whole input.
template <unsigned InUnit, unsigned OutUnit, class Map>
BufferResult BlockUnitConvert(Map map, void* out, unsigned& out_size, unsigned& out_pos,
                              const void* in, unsigned& in_size, unsigned& in_pos) {
  const unsigned room = out != nullptr ? out_size : 0;
  BufferResult result = BlockUnitSizes<InUnit, OutUnit>(out_size, in, in_size);
  if (result != DataConverterItf::ResultOK) return result;
  unsigned units = in_size / InUnit;
  if (units > room / OutUnit) {
    units = room / OutUnit;
    if (units == 0) return DataConverterItf::ResultOutputTooSmall;  // out_size holds the need
  }
  const auto* p = static_cast<const unsigned char*>(in);
  auto* o = static_cast<unsigned char*>(out);
  if constexpr (InUnit == 1 && OutUnit == 2) {
    fast::AsciiToWideRun(o, p, units);  // the only 1-to-2 map: sign-extending widening
  } else {
    for (unsigned i = 0; i < units; ++i) map(p + i * InUnit, o + i * OutUnit);
  }
  in_size = units * InUnit;
  out_size = units * OutUnit;
  in_pos += in_size;
  out_pos += out_size;
  return DataConverterItf::ResultOK;
}

inline void AsciiToWide(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(static_cast<signed char>(*in)));
}
inline void WideToAscii(const unsigned char* in, unsigned char* out) {
  const std::uint16_t u = codec::Load16(in);
  *out = u < 0x7F ? static_cast<unsigned char>(u) : '.';
}
inline void AsciiLower(const unsigned char* in, unsigned char* out) {
  *out = static_cast<unsigned char>(std::tolower(*in));
}
inline void AsciiUpper(const unsigned char* in, unsigned char* out) {
  *out = static_cast<unsigned char>(std::toupper(*in));
}
inline void Utf16Lower(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(platform::ToLowerWide(codec::Load16(in))));
}
inline void Utf16Upper(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(platform::ToUpperWide(codec::Load16(in))));
}
inline void Utf32Lower(const unsigned char* in, unsigned char* out) {
  const std::uint32_t c = codec::Load32(in);
  codec::Store32(out, c < 0xD800 ? static_cast<std::uint16_t>(platform::ToLowerWide(c)) : c);
}
inline void Utf32Upper(const unsigned char* in, unsigned char* out) {
  const std::uint32_t c = codec::Load32(in);
  codec::Store32(out, c < 0xD800 ? static_cast<std::uint16_t>(platform::ToUpperWide(c)) : c);
}

}  // namespace

// ---------------------------------------------------------------------------------------------

#define KIV_UNIT_CONVERTER_COMMON(Class, InUnit, OutUnit)                                          \
  Class::~Class() = default;                                                                       \
  DataConverter Class::GetDataConverter() {                                                        \
    return DataConverter(static_cast<DataConverterItf*>(this));                                    \
  }                                                                                                \
  BufferResult Class::EstimateSizes(unsigned& out_size, const void* in, unsigned& in_size, bool) { \
    return UnitSizes<InUnit, OutUnit>(out_size, in, in_size);                                      \
  }                                                                                                \
  BufferResult Class::ComputeSizes(unsigned& out_size, const void* in, unsigned& in_size, bool) {  \
    return UnitSizes<InUnit, OutUnit>(out_size, in, in_size);                                      \
  }                                                                                                \
  BufferResult Class::EstimateSizes(unsigned& out_size, unsigned, const void* in,                  \
                                    unsigned& in_size, unsigned, bool) {                           \
    return BlockUnitSizes<InUnit, OutUnit>(out_size, in, in_size);                                 \
  }                                                                                                \
  BufferResult Class::ComputeSizes(unsigned& out_size, unsigned, const void* in,                   \
                                   unsigned& in_size, unsigned, bool) {                            \
    return BlockUnitSizes<InUnit, OutUnit>(out_size, in, in_size);                                 \
  }

#define KIV_UNIT_CONVERTER_CONVERT(Class, InUnit, OutUnit, Map)                                 \
  BufferResult Class::Convert(void* out, unsigned& out_size, const void* in, unsigned& in_size, \
                              bool) {                                                           \
    return UnitConvert<InUnit, OutUnit>(Map, out, out_size, in, in_size);                       \
  }                                                                                             \
  BufferResult Class::Convert(void* out, unsigned& out_size, unsigned& out_pos, const void* in, \
                              unsigned& in_size, unsigned& in_pos, bool) {                      \
    return BlockUnitConvert<InUnit, OutUnit>(Map, out, out_size, out_pos, in, in_size, in_pos); \
  }

KIV_UNIT_CONVERTER_COMMON(AsciiToWideCharConverterImpl, 1, 2)
KIV_UNIT_CONVERTER_CONVERT(AsciiToWideCharConverterImpl, 1, 2, AsciiToWide)
KIV_UNIT_CONVERTER_COMMON(WideCharToAsciiConverterImpl, 2, 1)
KIV_UNIT_CONVERTER_CONVERT(WideCharToAsciiConverterImpl, 2, 1, WideToAscii)
KIV_UNIT_CONVERTER_COMMON(AsciiToLowerConverterImpl, 1, 1)
KIV_UNIT_CONVERTER_CONVERT(AsciiToLowerConverterImpl, 1, 1, AsciiLower)
KIV_UNIT_CONVERTER_COMMON(UTF16ToLowerConverterImpl, 2, 2)
KIV_UNIT_CONVERTER_CONVERT(UTF16ToLowerConverterImpl, 2, 2, Utf16Lower)
KIV_UNIT_CONVERTER_COMMON(UTF32ToLowerConverterImpl, 4, 4)
KIV_UNIT_CONVERTER_CONVERT(UTF32ToLowerConverterImpl, 4, 4, Utf32Lower)

AsciiToUpperConverterImpl::~AsciiToUpperConverterImpl() = default;
KIV_UNIT_CONVERTER_CONVERT(AsciiToUpperConverterImpl, 1, 1, AsciiUpper)
UTF16ToUpperConverterImpl::~UTF16ToUpperConverterImpl() = default;
KIV_UNIT_CONVERTER_CONVERT(UTF16ToUpperConverterImpl, 2, 2, Utf16Upper)
UTF32ToUpperConverterImpl::~UTF32ToUpperConverterImpl() = default;
KIV_UNIT_CONVERTER_CONVERT(UTF32ToUpperConverterImpl, 4, 4, Utf32Upper)

#undef KIV_UNIT_CONVERTER_COMMON
#undef KIV_UNIT_CONVERTER_CONVERT

}  // namespace kiv
