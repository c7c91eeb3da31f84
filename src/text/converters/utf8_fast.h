// Tight loops for the block faces of the UTF-8 converters.
//
// Each takes a prefix of the input that the character-by-character rule would convert without
// any special outcome: whole, valid characters that fit comfortably in the output room. It stops
// wherever that rule needs a closer look (near the end of the input or of the output room, at an
// invalid, overlong, cut-off or too large sequence) and leaves the rest to the per-character
// loop. For what it takes, it writes exactly the bytes that the per-character rule writes and no
// other byte of `out`, so the two together give results identical to the per-character rule.
#ifndef KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_
#define KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_

namespace kiv::fast {

// UTF-8 at `in` (a character boundary) to 16-bit units at `out`. On return `consumed` input bytes
// were converted into `written` output bytes.
void Utf8ToUtf16Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed);

// 16-bit units at `in` to UTF-8 at `out`, one unit at a time (surrogates become three bytes
// each, as the per-character rule has it).
void Utf16ToUtf8Run(unsigned char* out, unsigned out_size, const unsigned char* in,
                    unsigned in_size, unsigned& written, unsigned& consumed);

// Bytes to 16-bit units, each byte sign-extended.
void AsciiToWideRun(unsigned char* out, const unsigned char* in, unsigned count);

}  // namespace kiv::fast

#endif  // KIV_SRC_TEXT_CONVERTERS_UTF8_FAST_H_
