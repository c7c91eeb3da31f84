// Tight loops for the block faces of the UTF-8 converters.
//
// Each takes a prefix of the input that the character-by-character rule would convert without
// any special outcome: whole, valid characters that fit comfortably in the output room. It stops
// wherever that rule needs a closer look (near the end of the input or of the output room, at an
// invalid, overlong, cut-off or too large sequence) and leaves the rest to the per-character
// loop. For what it takes, it writes exactly the bytes that the per-character rule writes and no
// other byte of `out`, so the two together give results identical to the per-character rule.
//
// Each conversion comes in the two UTF-8 forms of unicode/utf_codec.h: lenient (the "utf-8"
// converters) and standard (the "utf-8-standard" converters, which stop at an encoded surrogate
// when decoding and pair surrogates when encoding).
#ifndef KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_
#define KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_

#include <cstddef>

namespace kiv::fast {

// UTF-8 at `in` (a character boundary) to 16-bit units at `out`. On return `consumed` input bytes
// were converted into `written` output bytes.
void Utf8ToUtf16Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed);

// 16-bit units at `in` to UTF-8 at `out`, one unit at a time (surrogates become three bytes
// each, as the per-character rule has it).
void Utf16ToUtf8Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed);

// The same in the standard form.
void StandardUtf8ToUtf16Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                            unsigned in_size, unsigned& written, unsigned& consumed);

// 16-bit units to standard UTF-8: a surrogate pair becomes one four-byte sequence; it stops at a
// surrogate without its pair.
void Utf16ToStandardUtf8Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                            unsigned in_size, unsigned& written, unsigned& consumed);

// The bytes of a prefix of the UTF-8 text at `in` (a character boundary) made of whole characters
// that the UTF-8 to wide converter of the form accepts (one to four bytes, shortest forms, values
// below 0x110000, and in the standard form no surrogates). It decides a block at a time and may
// stop anywhere before the first fault: at a block it cannot take whole, near the end, at a
// character running past its last block. The caller checks the rest character by character.
std::size_t Utf8ValidPrefix(const unsigned char* in, std::size_t size, bool standard);

// Bytes to 16-bit units, each byte sign-extended.
void AsciiToWideRun(unsigned char* out, const unsigned char* in, unsigned count);

}  // namespace kiv::fast

#endif  // KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_
