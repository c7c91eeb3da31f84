// The block converters of UTF-8, UTF-32 and ASCII to and from wide text, and UTF-16's 2-byte copy,
// against per-character models: each call, at an output size the input chooses, must answer the
// model's result (or CannotConvertException), sizes, positions and bytes.
// Input: the converter (first byte, modulo 7; bit 7 folds UTF-32 values into the code space),
// the output sizes (a length byte and that many sizes), then the text.
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>

#include <cstring>
#include <memory>
#include <string>

#include "fuzz_support.h"
#include "text_model.h"

namespace {

using kiv::fuzz::Escaped;
using Result = kiv::DataConverterItf::BufferResult;

// Even kinds convert to wide text, odd ones from it; the UTF-16 copy is the same both ways.
enum Kind { kFromUtf8, kToUtf8, kFromUtf32, kToUtf32, kFromAscii, kToAscii, kUtf16Copy };

kiv::BlockConverter ConverterOf(Kind kind) {
  using E = kiv::TextEncodingExp;
  const kiv::TextEncoding e[] = {E::MakeUTF8(), E::MakeUTF32(), E::MakeAscii(), E::MakeUTF16()};
  return kind % 2 == 0 ? e[kind / 2]->GetToWideConverter() : e[kind / 2]->GetFromWideConverter();
}

template <class T>
std::string BytesOf(const T* units, std::size_t n) {
  return std::string(reinterpret_cast<const char*>(units), n * sizeof(T));
}

struct Char {
  enum Status { kOk, kIncomplete, kInvalid } status = kOk;
  unsigned in = 0;
  std::string out = {};
};

// The character at `p` for the conversions between wide text and UTF-8 or UTF-32.
Char Step(Kind kind, const unsigned char* p, unsigned left) {
  std::uint32_t value = 0;
  if (kind == kToUtf8 || kind == kToUtf32) {
    if (left < 2) return {Char::kIncomplete};
    std::memcpy(&value, p, 2);  // little-endian, as the fuzzing hosts are
    return {Char::kOk, 2, kind == kToUtf8 ? kiv::fuzz::EncodeUtf8(value) : BytesOf(&value, 1)};
  }
  int length = left < 4 ? 0 : 4;
  if (kind == kFromUtf8) length = kiv::fuzz::DecodeUtf8(p, p + left, value);
  if (kind == kFromUtf32 && length == 4) std::memcpy(&value, p, 4);
  if (length == 0) return {Char::kIncomplete};
  const std::u16string wide = kiv::fuzz::Utf16Of(value);
  if (length < 0 || wide.empty()) return {Char::kInvalid};
  return {Char::kOk, static_cast<unsigned>(length), BytesOf(wide.data(), wide.size())};
}

struct Call {
  Result result = Result::ResultOK;
  bool throws = false;
  unsigned in = 0;
  unsigned out = 0;  // bytes written, or needed on ResultOutputTooSmall
  std::string bytes = {};
};

// What one block Convert of `in` into `room` (> 0) bytes must do.
Call Expect(Kind kind, const unsigned char* in, unsigned in_size, unsigned room) {
  Call call;
  if (kind == kFromAscii) {
    if (room < 2) return {Result::ResultOutputTooSmall, false, 0, 2 * in_size};
    call.in = std::min(in_size, room / 2);
    call.out = 2 * call.in;
    for (unsigned i = 0; i < call.in; ++i) {
      const auto unit =
          static_cast<std::uint16_t>(static_cast<std::int16_t>(static_cast<signed char>(in[i])));
      call.bytes += BytesOf(&unit, 1);
    }
    return call;
  }
  if (kind == kToAscii) {
    if (in_size == 1) return {Result::ResultInputIncomplete};
    call.in = 2 * std::min(in_size / 2, room);
    call.out = call.in / 2;
    for (unsigned i = 0; i < call.in; i += 2) {
      std::uint16_t unit;
      std::memcpy(&unit, in + i, 2);
      call.bytes += unit < 0x7F ? static_cast<char>(unit) : '.';
    }
    return call;
  }
  if (kind == kUtf16Copy) {
    if (in_size == 1) return {Result::ResultInputIncomplete};
    const unsigned whole = in_size & ~1u;
    const unsigned size = whole > room ? room & ~1u : whole;
    if (size == 0) return {Result::ResultOutputTooSmall, false, whole, whole};
    return {Result::ResultOK, false, size, size,
            std::string(reinterpret_cast<const char*>(in), size)};
  }
  // Character by character, as far as the room goes.
  Char failed{Char::kOk};
  while (call.out < room && call.in < in_size) {
    const Char c = Step(kind, in + call.in, in_size - call.in);
    if (c.status == Char::kInvalid) return {Result::ResultOK, true};
    if (c.status == Char::kIncomplete || c.out.size() > room - call.out) {
      call.result = c.status == Char::kIncomplete ? Result::ResultInputIncomplete
                                                  : Result::ResultOutputTooSmall;
      failed = c;
      break;
    }
    call.in += c.in;
    call.out += static_cast<unsigned>(c.out.size());
    call.bytes += c.out;
  }
  if (call.in == 0) {  // nothing converted: the sizes of the character that did not fit
    call.in = failed.in;
    call.out = static_cast<unsigned>(failed.out.size());
  }
  return call;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::uint8_t selector = input.Byte();
  const auto kind = static_cast<Kind>((selector & 0x7F) % 7);
  kiv::fuzz::SizeScript rooms = kiv::fuzz::SizeScript::From(input);
  std::string text(input.Rest());
  // UTF-32 values folded into the code space (the fold still reaches 0x10FFFF and the surrogates).
  for (std::size_t i = 0; kind == kFromUtf32 && (selector & 0x80) != 0 && i + 4 <= text.size();
       i += 4) {
    std::uint32_t value;
    std::memcpy(&value, text.data() + i, 4);
    value %= 0x110000;
    std::memcpy(text.data() + i, &value, 4);
  }

  kiv::BlockConverter converter = ConverterOf(kind);
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const auto total = static_cast<unsigned>(text.size());
  unsigned pos = 0, room_needed = 0;
  while (pos < total) {
    const unsigned room = std::max(room_needed, rooms.Next(64));
    const Call want = Expect(kind, in + pos, total - pos, room);
    // Exactly the room given, so that a write past it is caught.
    const std::unique_ptr<char[]> out(new char[room]);
    Call got{Result::ResultOK, false, total - pos, room};
    unsigned in_pos = 7, out_pos = 11;
    try {
      got.result = converter->Convert(out.get(), got.out, out_pos, in + pos, got.in, in_pos,
                                      (room & 1) != 0);
    } catch (const kiv::CannotConvertException&) {
      got.throws = true;
    }
    const std::string where = "kind " + std::to_string(kind) + " at " + std::to_string(pos) +
                              " into " + std::to_string(room) + " of \"" + Escaped(text) + "\"";
    KIV_FUZZ_CHECK(got.throws == want.throws && (got.throws || got.result == want.result),
                   "threw %d result %d, expected %d and %d: %s", got.throws, got.result,
                   want.throws, want.result, where.c_str());
    if (got.throws) return 0;
    // The ASCII-to-wide converter leaves the input size of a call that converts nothing open.
    const bool in_open = kind == kFromAscii && got.result == Result::ResultOutputTooSmall;
    KIV_FUZZ_CHECK((in_open || got.in == want.in) && got.out == want.out,
                   "sizes in %u out %u, expected in %u out %u: %s", got.in, got.out, want.in,
                   want.out, where.c_str());
    // A call that converts nothing answers sizes only and leaves the positions alone.
    const bool converted = want.result == Result::ResultOK || !want.bytes.empty();
    KIV_FUZZ_CHECK(!converted || std::memcmp(out.get(), want.bytes.data(), got.out) == 0,
                   "bytes \"%s\", expected \"%s\": %s",
                   Escaped(std::string_view(out.get(), got.out)).c_str(),
                   Escaped(want.bytes).c_str(), where.c_str());
    const unsigned moved_in = converted ? got.in : 0, moved_out = converted ? got.out : 0;
    KIV_FUZZ_CHECK(in_pos == 7 + moved_in && out_pos == 11 + moved_out,
                   "positions moved by %u and %u, expected %u and %u: %s", in_pos - 7, out_pos - 11,
                   moved_in, moved_out, where.c_str());
    // An incomplete character at the end leaves nothing to convert; after a shortage the next
    // call gets the room asked for.
    if (!converted && want.result != Result::ResultOutputTooSmall) break;
    room_needed = converted ? 0 : want.out;
    pos += moved_in;
  }
  return 0;
}
