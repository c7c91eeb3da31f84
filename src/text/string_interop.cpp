// Text from and to standard C++: strings made from views, standard strings made from strings,
// comparison with views, printing and hashing.
#include <algorithm>
#include <cstring>
#include <limits>
#include <ostream>
#include <stdexcept>

#include "kiv/exception.h"
#include "text/string_impl.h"
#include "unicode/utf_codec.h"

namespace kiv {

namespace {

// A string counts its bytes in `unsigned`, with the terminator room behind them.
unsigned CheckedBytes(std::size_t bytes) {
  if (bytes > std::numeric_limits<unsigned>::max() - kTerminatorRoom) {
    throw std::length_error("kiv::String: text of 4 GiB or more");
  }
  return static_cast<unsigned>(bytes);
}

// The characters of UTF-8 text as the library's UTF-8 encoding reads it; CannotConvertException
// for text that it refuses, a sequence cut off at the end included.
std::uint32_t CountUtf8(std::string_view text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  std::uint32_t count = 0;
  while (p < end) {
    std::uint32_t value = 0;
    const int n = codec::LenientUtf8Decode(p, end, value);
    if (n <= 0) throw CannotConvertException();
    p += n;
    ++count;
  }
  return count;
}

// Whether text in the library's UTF-8 is standard UTF-8 as it stands: no sequence longer than four
// bytes, no value above U+10FFFF and no encoded surrogate (the library writes a surrogate pair as
// two three-byte sequences).
bool IsStandardUtf8(const unsigned char* p, const unsigned char* end) noexcept {
  while (p < end) {
    if (*p < 0x80) {
      ++p;
      continue;
    }
    std::uint32_t value = 0;
    const int n = codec::LenientUtf8Decode(p, end, value);
    if (n <= 0 || n > codec::kStandardUtf8MaxLength || value > codec::kMaxScalar ||
        codec::IsSurrogate(value)) {
      return false;
    }
    p += n;
  }
  return true;
}

// Appends 16-bit text (`bytes` bytes, any alignment) to `out` as standard UTF-8: a surrogate pair
// becomes one four-byte sequence, and a surrogate without its partner U+FFFD, so the result is
// valid UTF-8 whatever the units. (The library's own wide-to-UTF-8 converter writes each surrogate
// on its own; this is the form that standard C++ callers expect.)
void AppendStandardUtf8(std::string& out, const unsigned char* units, unsigned bytes) {
  const unsigned count = bytes / 2;
  for (unsigned i = 0; i < count;) {
    const std::uint16_t pair[2] = {
        codec::Load16(units + 2 * i),
        i + 1 < count ? codec::Load16(units + 2 * (i + 1)) : std::uint16_t{0}};
    std::uint32_t c = 0;
    i += static_cast<unsigned>(codec::Utf16Decode(pair, count - i, c));
    if (codec::IsSurrogate(c)) c = codec::kReplacementCharacter;
    unsigned char sequence[codec::kStandardUtf8MaxLength];
    const int n = codec::Utf8Encode(sequence, sequence + sizeof sequence, c);
    out.append(reinterpret_cast<const char*>(sequence), static_cast<std::size_t>(n));
  }
}

// The text of `s` as UTF-16: `s`'s own bytes when it is UTF-16 already, else a converted copy.
// A stray odd byte at the end of UTF-16 text does not convert.
String WideOf(const BasicStringItf& s) {
  TextEncoding encoding = s.GetEncoding();
  if (text::LayoutOf(*encoding.Get()) == text::Layout::kUtf16) {
    if (s.ByteLength() % 2 != 0) throw CannotConvertException();
    return String(encoding, s.GetBuffer(), s.GetData(), s.ByteLength());
  }
  return text::Reencode(encoding, s.GetData(), s.ByteLength(), TextEncodingExp::MakeUTF16());
}

}  // namespace

String::String(std::string_view utf8) {
  const unsigned bytes = CheckedBytes(utf8.size());
  const std::uint32_t chars = CountUtf8(utf8);
  // The writable-text form copies.
  *this = String(TextEncodingExp::MakeUTF8(), const_cast<char*>(utf8.data()), bytes, chars);
}

String::String(std::u16string_view utf16) {
  const unsigned bytes = CheckedBytes(utf16.size() * 2);
  *this = String(TextEncodingExp::MakeUTF16(), const_cast<char16_t*>(utf16.data()), bytes,
                 static_cast<std::uint32_t>(utf16.size()));
}

std::string StringToUTF8(const BasicStringItf& s) {
  const unsigned bytes = s.ByteLength();
  if (bytes == 0) return std::string();
  const auto* data = static_cast<const unsigned char*>(s.GetData());
  const text::Layout layout = text::LayoutOf(*s.GetEncoding().Get());
  // Text that is standard UTF-8 as it stands is copied: UTF-8 text that needs no repair, and
  // ASCII text without bytes above 0x7F (which the ASCII encoding widens with their sign).
  if ((layout == text::Layout::kUtf8 && IsStandardUtf8(data, data + bytes)) ||
      (layout == text::Layout::kAscii &&
       std::all_of(data, data + bytes, [](unsigned char b) { return b < 0x80; }))) {
    return std::string(reinterpret_cast<const char*>(data), bytes);
  }
  const String wide = WideOf(s);
  std::string out;
  out.reserve(wide->ByteLength() / 2 * 3);
  AppendStandardUtf8(out, static_cast<const unsigned char*>(wide->GetData()), wide->ByteLength());
  return out;
}

std::u16string StringToUTF16(const BasicStringItf& s) {
  if (s.ByteLength() == 0) return std::u16string();
  const String wide = WideOf(s);
  std::u16string out(wide->ByteLength() / 2, u'\0');
  std::memcpy(out.data(), wide->GetData(), out.size() * 2);
  return out;
}

int CompareWithUTF8(const BasicStringItf& s, std::string_view utf8) {
  const auto* data = static_cast<const unsigned char*>(s.GetData());
  const unsigned bytes = s.ByteLength();
  const text::Layout layout = text::LayoutOf(*s.GetEncoding().Get());
  // Text that is standard UTF-8 as it stands is compared in place.
  if (bytes == 0 || (layout == text::Layout::kUtf8 && IsStandardUtf8(data, data + bytes))) {
    return std::string_view(reinterpret_cast<const char*>(data), bytes).compare(utf8);
  }
  return std::string_view(StringToUTF8(s)).compare(utf8);
}

int CompareWithUTF16(const BasicStringItf& s, std::u16string_view utf16) {
  const auto* data = static_cast<const unsigned char*>(s.GetData());
  const unsigned bytes = s.ByteLength();
  if (bytes == 0 || text::LayoutOf(*s.GetEncoding().Get()) != text::Layout::kUtf16 ||
      bytes % 2 != 0) {
    return std::u16string_view(StringToUTF16(s)).compare(utf16);
  }
  // UTF-16 text in place; its units need not be aligned.
  const std::size_t units = bytes / 2;
  const std::size_t common = std::min(units, utf16.size());
  for (std::size_t i = 0; i < common; ++i) {
    const char16_t u = codec::Load16(data + 2 * i);
    if (u != utf16[i]) return u < utf16[i] ? -1 : 1;
  }
  return units < utf16.size() ? -1 : units > utf16.size() ? 1 : 0;
}

std::ostream& operator<<(std::ostream& out, const String& s) { return out << s.ToUTF8(); }

std::ostream& operator<<(std::ostream& out, const StringBuffer& s) { return out << s.ToUTF8(); }

std::size_t HashOfText(const BasicStringItf& s) { return WideOf(s)->Hash(); }

}  // namespace kiv
