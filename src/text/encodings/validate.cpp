// Validation of encoded text: where, if anywhere, an encoding's decoder would stop.
//
// The built-in encodings have their own loops, which must agree exactly with the decoders: the
// UTF-8 ones take the text a block at a time through the fast valid-prefix scan and walk the rest
// with the same codec functions the converters use; only when a character is refused do they look
// closer to name the fault. Other encodings are walked with their own to-wide data converter.
#include <cstring>

#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "text/converters/utf8_fast.h"
#include "text/encodings/encoding_impls.h"
#include "unicode/utf_codec.h"

namespace kiv {

namespace {

constexpr const char* kCutOff = "text ends inside a character";

TextValidation Valid(std::size_t bytes) { return {true, false, bytes, ""}; }
TextValidation Invalid(std::size_t offset, const char* reason) {
  return {false, false, offset, reason};
}
TextValidation CutOff(std::size_t offset) { return {false, true, offset, kCutOff}; }

// Why the lenient decoder, or the converter after it, refuses the character at `p`.
const char* LenientFault(const unsigned char* p, const unsigned char* e) {
  const unsigned lead = p[0];
  if (codec::IsUtf8Continuation(lead)) return "stray continuation byte";
  if (lead >= 0xFE) return "byte 0xFE or 0xFF";
  const int length = codec::Utf8SequenceLength(lead);
  for (int i = 1; i < length; ++i) {
    if (!codec::IsUtf8Continuation(p[i])) return "missing continuation byte";
  }
  std::uint32_t value = 0;
  if (codec::LenientUtf8Decode(p, e, value) == codec::kUtf8Invalid) return "overlong form";
  return "value above U+10FFFF";
}

// Why the standard decoder refuses the character at `p`: the first byte out of its range says.
const char* StandardFault(const unsigned char* p, const unsigned char* e) {
  const unsigned lead = p[0];
  if (codec::IsUtf8Continuation(lead)) return "stray continuation byte";
  if (lead == 0xC0 || lead == 0xC1) return "overlong form";
  if (lead >= 0xF5) return lead >= 0xF8 ? "byte never used in UTF-8" : "value above U+10FFFF";
  const int length = codec::Utf8SequenceLength(lead);
  for (int i = 1; i < length && p + i < e; ++i) {
    if (!codec::IsUtf8Continuation(p[i])) return "missing continuation byte";
  }
  // Every later byte is a continuation byte: the second one is out of the lead's narrower range.
  if (lead == 0xED) return "encoded surrogate";
  if (lead == 0xF4) return "value above U+10FFFF";
  return "overlong form";
}

template <bool kStandard>
TextValidation ValidateUtf8(const unsigned char* text, std::size_t bytes) {
  // Characters checked one by one after the block scan stopped, before it is tried again.
  constexpr std::size_t kByCharacter = 64;
  const unsigned char* const end = text + bytes;
  const unsigned char* p = text;
  while (true) {
    p += fast::Utf8ValidPrefix(p, static_cast<std::size_t>(end - p), kStandard);
    if (p == end) return Valid(bytes);
    const unsigned char* const stop =
        static_cast<std::size_t>(end - p) > kByCharacter ? p + kByCharacter : end;
    while (p < stop) {
      std::uint32_t value = 0;
      const int length = kStandard ? codec::StandardUtf8Decode(p, end, value)
                                   : codec::LenientUtf8Decode(p, end, value);
      const auto offset = static_cast<std::size_t>(p - text);
      if (length == codec::kUtf8Incomplete) return CutOff(offset);
      if (length < 0 || value > codec::kMaxScalar) {
        return Invalid(offset, kStandard ? StandardFault(p, end) : LenientFault(p, end));
      }
      p += length;
    }
    if (p == end) return Valid(bytes);
  }
}

TextValidation ValidateUtf32(const unsigned char* text, std::size_t bytes) {
  constexpr std::size_t kUnit = 4;
  constexpr std::size_t kBlock = 8;  // units per step
  const std::size_t units = bytes / kUnit;
  std::size_t i = 0;
  for (; units - i >= kBlock; i += kBlock) {
    std::uint32_t block[kBlock];
    std::memcpy(block, text + i * kUnit, sizeof block);
    bool large = false;
    for (std::uint32_t v : block) large |= v > codec::kMaxScalar;
    if (large) break;
  }
  for (; i < units; ++i) {
    if (codec::Load32(text + i * kUnit) > codec::kMaxScalar) {
      return Invalid(i * kUnit, "value above U+10FFFF");
    }
  }
  if (bytes % kUnit != 0) return CutOff(units * kUnit);
  return Valid(bytes);
}

// Any other encoding: its to-wide data converter, character by character, asked as the generic
// block converter asks it (once more with end_of_input set after ResultInputIncomplete).
TextValidation ValidateByConverter(const TextEncodingItf& encoding, const unsigned char* text,
                                   std::size_t bytes) {
  DataConverter decoder = encoding.GetToWideConverter()->GetDataConverter();
  std::size_t offset = 0;
  while (offset < bytes) {
    const std::size_t left = bytes - offset;
    const unsigned available = left > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(left);
    unsigned in_size = available;
    unsigned out_size = 0;
    DataConverterItf::BufferResult result;
    try {
      result = decoder->ComputeSizes(out_size, text + offset, in_size, false);
      if (result == DataConverterItf::ResultInputIncomplete) {
        in_size = available;
        out_size = 0;
        result = decoder->ComputeSizes(out_size, text + offset, in_size, true);
      }
    } catch (const CannotConvertException&) {
      return Invalid(offset, "refused by the decoder");
    }
    if (result == DataConverterItf::ResultInputIncomplete) return CutOff(offset);
    if (result != DataConverterItf::ResultOK || in_size == 0) {
      return Invalid(offset, "the decoder makes no progress");
    }
    offset += in_size;
  }
  return Valid(bytes);
}

}  // namespace

TextValidation TextEncodingExp::Validate(const TextEncoding& encoding, const void* data,
                                         std::size_t bytes) {
  const TextEncodingItf* itf = encoding.operator->();  // NullPointerException for a null handle
  if (data == nullptr || bytes == 0) return Valid(0);
  const auto* text = static_cast<const unsigned char*>(data);
  if (dynamic_cast<const StandardUTF8TextEncodingImpl*>(itf) != nullptr) {
    return ValidateUtf8<true>(text, bytes);
  }
  if (dynamic_cast<const UTF8TextEncodingImpl*>(itf) != nullptr) {
    return ValidateUtf8<false>(text, bytes);
  }
  if (dynamic_cast<const UTF16TextEncodingImpl*>(itf) != nullptr) {
    return bytes % 2 == 0 ? Valid(bytes) : CutOff(bytes - 1);
  }
  if (dynamic_cast<const UTF32TextEncodingImpl*>(itf) != nullptr) {
    return ValidateUtf32(text, bytes);
  }
  if (dynamic_cast<const AsciiTextEncodingImpl*>(itf) != nullptr) return Valid(bytes);
  return ValidateByConverter(*itf, text, bytes);
}

}  // namespace kiv
