// The one home of character coding: UTF-8 in two forms, UTF-16 units and surrogates, and unaligned
// access to 16- and 32-bit code units (text buffers handed to converters may start at any byte).
// Every layer codes characters through these (the platform's UTF-8 names of files and
// environment variables included), so the header sits in its own folder below all the others and
// includes nothing of the library.
//
// The two UTF-8 forms:
// - lenient (LenientUtf8Decode), the library's original form: one to six bytes, 31-bit values,
//   encoded surrogates accepted, a cut-off sequence judged from its lead byte alone. The "utf-8"
//   encoding uses it and stored text depends on it.
// - standard (StandardUtf8Decode, RFC 3629): one to four bytes, values up to U+10FFFF, no
//   surrogates, shortest forms only; what other programs expect. The "utf-8-standard" encoding,
//   standard C++ text and the system's names use it.
// Both encode with Utf8Encode, which writes the shortest form of any value it is given; the
// standard form hands it scalar values only (surrogate pairs joined first).
#ifndef KIV_SRC_UNICODE_UTF_CODEC_H_
#define KIV_SRC_UNICODE_UTF_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kiv::codec {

inline std::uint16_t Load16(const void* p) noexcept {
  std::uint16_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline std::uint32_t Load32(const void* p) noexcept {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void Store16(void* p, std::uint16_t v) noexcept { std::memcpy(p, &v, sizeof v); }
inline void Store32(void* p, std::uint32_t v) noexcept { std::memcpy(p, &v, sizeof v); }

// ---------------------------------------------------------------------------------------------
// UTF-16 and the scalar values

constexpr std::uint32_t kMaxScalar = 0x10FFFF;
constexpr std::uint32_t kFirstSupplementary = 0x10000;  // the first value that needs a pair
constexpr std::uint32_t kLeadSurrogateFirst = 0xD800;
constexpr std::uint32_t kTrailSurrogateFirst = 0xDC00;
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

inline bool IsSurrogate(std::uint32_t c) noexcept { return (c & 0xFFFFF800u) == 0xD800; }
inline bool IsLeadSurrogate(std::uint32_t c) noexcept { return (c & 0xFFFFFC00u) == 0xD800; }
inline bool IsTrailSurrogate(std::uint32_t c) noexcept { return (c & 0xFFFFFC00u) == 0xDC00; }
inline std::uint32_t CombineSurrogates(std::uint32_t lead, std::uint32_t trail) noexcept {
  return kFirstSupplementary + ((lead - kLeadSurrogateFirst) << 10) +
         (trail - kTrailSurrogateFirst);
}
// The pair of a value from kFirstSupplementary to kMaxScalar.
inline std::uint16_t LeadSurrogateOf(std::uint32_t c) noexcept {
  return static_cast<std::uint16_t>(kLeadSurrogateFirst + ((c - kFirstSupplementary) >> 10));
}
inline std::uint16_t TrailSurrogateOf(std::uint32_t c) noexcept {
  return static_cast<std::uint16_t>(kTrailSurrogateFirst + (c & 0x3FF));
}

// Writes `c` (at most kMaxScalar) as one unit or a surrogate pair; returns the units written.
template <class Unit>
inline int Utf16Encode(Unit* units, std::uint32_t c) noexcept {
  if (c < kFirstSupplementary) {
    units[0] = static_cast<Unit>(c);
    return 1;
  }
  units[0] = static_cast<Unit>(LeadSurrogateOf(c));
  units[1] = static_cast<Unit>(TrailSurrogateOf(c));
  return 2;
}

// Reads the character of the `count` units at `units` (count > 0): a lead surrogate followed by
// its trail joins them, anything else is one unit as it stands (a lone surrogate included).
// Returns the units read.
template <class Unit>
inline int Utf16Decode(const Unit* units, std::size_t count, std::uint32_t& c) noexcept {
  c = static_cast<std::uint16_t>(units[0]);
  if (count > 1 && IsLeadSurrogate(c) && IsTrailSurrogate(static_cast<std::uint16_t>(units[1]))) {
    c = CombineSurrogates(c, static_cast<std::uint16_t>(units[1]));
    return 2;
  }
  return 1;
}

// ---------------------------------------------------------------------------------------------
// UTF-8

constexpr int kStandardUtf8MaxLength = 4;

inline bool IsUtf8Continuation(unsigned byte) noexcept { return (byte & 0xC0) == 0x80; }

// The length of the sequence a lead byte announces in the lenient form (1 for ASCII, and for a
// continuation byte, 0xFE and 0xFF, which lead nothing). The standard leads C2-F4 announce the
// same lengths.
inline int Utf8SequenceLength(unsigned lead) noexcept {
  if (lead < 0xC0) return 1;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  if (lead < 0xF8) return 4;
  if (lead < 0xFC) return 5;
  return lead < 0xFE ? 6 : 1;
}

// The length of the shortest form of `c`, as Utf8Encode writes it.
inline int Utf8Length(std::uint32_t c) noexcept {
  if (c < 0x80) return 1;
  if (c < 0x800) return 2;
  if (c < 0x10000) return 3;
  if (c < 0x200000) return 4;
  return c < 0x4000000 ? 5 : 6;
}

// Results of the UTF-8 decoders besides a length.
constexpr int kUtf8Incomplete = 0;
constexpr int kUtf8Invalid = -1;

// Decodes the lenient UTF-8 character at `p` (which must lie before `e`). Returns its length (1 to
// 6) and stores its value; kUtf8Incomplete when the sequence that the lead byte announces runs past
// `e` (decided from the lead byte alone, before the following bytes are looked at); kUtf8Invalid
// for a stray continuation byte, 0xFE, 0xFF, a missing continuation byte or an overlong form.
// Encoded surrogate values are accepted. With `Bounded` false there is no end: the text is
// terminated, and a terminator inside a sequence is a missing continuation byte.
template <bool Bounded = true>
inline int LenientUtf8Decode(const unsigned char* p, const unsigned char* e,
                             std::uint32_t& value) noexcept {
  const unsigned lead = p[0];
  if (lead < 0x80) {
    value = lead;
    return 1;
  }
  int length;
  std::uint32_t v;
  std::uint32_t minimum;
  if (lead < 0xC0) {
    return kUtf8Invalid;
  } else if (lead < 0xE0) {
    length = 2, v = lead & 0x1F, minimum = 0x80;
  } else if (lead < 0xF0) {
    length = 3, v = lead & 0x0F, minimum = 0x800;
  } else if (lead < 0xF8) {
    length = 4, v = lead & 0x07, minimum = 0x10000;
  } else if (lead < 0xFC) {
    length = 5, v = lead & 0x03, minimum = 0x200000;
  } else if (lead < 0xFE) {
    length = 6, v = lead & 0x01, minimum = 0x4000000;
  } else {
    return kUtf8Invalid;
  }
  if constexpr (Bounded) {
    if (e - p < length) return kUtf8Incomplete;
  }
  for (int i = 1; i < length; ++i) {
    const unsigned c = p[i];
    if (!IsUtf8Continuation(c)) return kUtf8Invalid;
    v = (v << 6) | (c & 0x3F);
  }
  // The upper limit of each length holds by construction (the bits available); only overlong
  // forms can fall outside.
  if (v < minimum) return kUtf8Invalid;
  value = v;
  return length;
}

// Decodes the standard UTF-8 character at `p` (which must lie before `e`). Returns its length (1
// to 4) and stores its value; kUtf8Invalid for anything that is not well-formed (a stray
// continuation byte, C0, C1, F5-FF, a missing continuation byte, an overlong form, an encoded
// surrogate, a value above 0x10FFFF). Each later byte is checked as soon as it is there, so the
// answer is kUtf8Incomplete only when the bytes up to `e` begin a well-formed sequence: "E0 41"
// is invalid at once, whatever would follow. With `Bounded` false the text is terminated and a
// terminator inside a sequence is a missing continuation byte.
template <bool Bounded = true>
inline int StandardUtf8Decode(const unsigned char* p, const unsigned char* e,
                              std::uint32_t& value) noexcept {
  const unsigned lead = p[0];
  if (lead < 0x80) {
    value = lead;
    return 1;
  }
  int length;
  std::uint32_t v;
  // The range of the second byte; E0, ED, F0 and F4 narrow it to rule out overlong forms,
  // surrogates and values above 0x10FFFF.
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (lead < 0xC2) {
    return kUtf8Invalid;
  } else if (lead < 0xE0) {
    length = 2, v = lead & 0x1F;
  } else if (lead < 0xF0) {
    length = 3, v = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead < 0xF5) {
    length = 4, v = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return kUtf8Invalid;
  }
  for (int i = 1; i < length; ++i) {
    if constexpr (Bounded) {
      if (e - p <= i) return kUtf8Incomplete;
    }
    const unsigned c = p[i];
    if (c < low || c > high) return kUtf8Invalid;
    low = 0x80, high = 0xBF;
    v = (v << 6) | (c & 0x3F);
  }
  value = v;
  return length;
}

// Encodes `c` at `p` with the room up to `e`. Returns the length written, or 0 when there is no
// room at all or not enough for the whole sequence (then nothing is written).
inline int Utf8Encode(unsigned char* p, const unsigned char* e, std::uint32_t c) noexcept {
  if (p >= e) return 0;
  int length;
  unsigned prefix;
  if (c < 0x80) {
    length = 1, prefix = 0;
  } else if (c < 0x800) {
    length = 2, prefix = 0xC0;
  } else if (c < 0x10000) {
    length = 3, prefix = 0xE0;
  } else if (c < 0x200000) {
    length = 4, prefix = 0xF0;
  } else if (c < 0x4000000) {
    length = 5, prefix = 0xF8;
  } else {
    length = 6, prefix = 0xFC;
  }
  if (e - p < length) return 0;
  for (int i = length - 1; i > 0; --i) {
    p[i] = static_cast<unsigned char>((c & 0x3F) | 0x80);
    c >>= 6;
  }
  p[0] = static_cast<unsigned char>(prefix | c);
  return length;
}

// The UTF32toUTF16 rule on a byte buffer with room for `units` 16-bit units: returns the units
// written, 0 when there is no room (a value above 0xFFFF with room for one unit still stores its
// lead surrogate), -1 for values of 0x110000 and above. Values 0xD800-0xDFFF pass unchecked.
inline int PutUtf16(unsigned char* out, unsigned units, std::uint32_t c) noexcept {
  if (units == 0) return 0;
  if (c < kFirstSupplementary) {
    Store16(out, static_cast<std::uint16_t>(c));
    return 1;
  }
  if (c > kMaxScalar) return -1;
  Store16(out, LeadSurrogateOf(c));
  if (units < 2) return 0;
  Store16(out + 2, TrailSurrogateOf(c));
  return 2;
}

}  // namespace kiv::codec

#endif  // KIV_SRC_UNICODE_UTF_CODEC_H_
