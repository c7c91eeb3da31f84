// The converters that map one fixed-size unit to one fixed-size unit: ASCII to and from wide
// text, and the case converters of ASCII, UTF-16 and UTF-32 text.
#include <cctype>
#include <cwctype>

#include "platform/wide_ctype.h"
#include "text/converters/converter_impls.h"
#include "text/converters/utf8_fast.h"
#include "unicode/utf_codec.h"

namespace kiv {

AsciiToWideCharConverterImpl::AsciiToWideCharConverterImpl() = default;
AsciiToWideCharConverterImpl::~AsciiToWideCharConverterImpl() = default;
void AsciiToWideCharConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(static_cast<signed char>(*in)));
}
void AsciiToWideCharConverterImpl::MapRun(unsigned char* out, const unsigned char* in,
                                          unsigned count) {
  fast::AsciiToWideRun(out, in, count);
}

WideCharToAsciiConverterImpl::WideCharToAsciiConverterImpl() = default;
WideCharToAsciiConverterImpl::~WideCharToAsciiConverterImpl() = default;
void WideCharToAsciiConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  const std::uint16_t u = codec::Load16(in);
  *out = u < 0x7F ? static_cast<unsigned char>(u) : '.';
}

AsciiToLowerConverterImpl::AsciiToLowerConverterImpl() = default;
AsciiToLowerConverterImpl::~AsciiToLowerConverterImpl() = default;
void AsciiToLowerConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  *out = static_cast<unsigned char>(std::tolower(*in));
}

AsciiToUpperConverterImpl::AsciiToUpperConverterImpl() = default;
AsciiToUpperConverterImpl::~AsciiToUpperConverterImpl() = default;
void AsciiToUpperConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  *out = static_cast<unsigned char>(std::toupper(*in));
}

UTF16ToLowerConverterImpl::UTF16ToLowerConverterImpl() = default;
UTF16ToLowerConverterImpl::~UTF16ToLowerConverterImpl() = default;
void UTF16ToLowerConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(platform::ToLowerWide(codec::Load16(in))));
}

UTF16ToUpperConverterImpl::UTF16ToUpperConverterImpl() = default;
UTF16ToUpperConverterImpl::~UTF16ToUpperConverterImpl() = default;
void UTF16ToUpperConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  codec::Store16(out, static_cast<std::uint16_t>(platform::ToUpperWide(codec::Load16(in))));
}

UTF32ToLowerConverterImpl::UTF32ToLowerConverterImpl() = default;
UTF32ToLowerConverterImpl::~UTF32ToLowerConverterImpl() = default;
void UTF32ToLowerConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  const std::uint32_t c = codec::Load32(in);
  codec::Store32(out, c < codec::kLeadSurrogateFirst
                          ? static_cast<std::uint16_t>(platform::ToLowerWide(c))
                          : c);
}

UTF32ToUpperConverterImpl::UTF32ToUpperConverterImpl() = default;
UTF32ToUpperConverterImpl::~UTF32ToUpperConverterImpl() = default;
void UTF32ToUpperConverterImpl::Map(const unsigned char* in, unsigned char* out) {
  const std::uint32_t c = codec::Load32(in);
  codec::Store32(out, c < codec::kLeadSurrogateFirst
                          ? static_cast<std::uint16_t>(platform::ToUpperWide(c))
                          : c);
}

}  // namespace kiv
