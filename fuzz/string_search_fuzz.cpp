// Character search and splitting of strings in the four built-in encodings against a model of
// what each encoding calls a character and when one equals the searched value: ASCII compares
// sign-extended bytes (so no byte from 0x80 up matches), UTF-16 and UTF-32 compare units (so a
// UTF-16 string never holds a value above 0xFFFF, whose pair is two units), UTF-8 compares the
// decoded values. Length, IndexOf, LastIndexOf and CountOf must agree with the model, and Split
// on a character must cut exactly where IndexOf finds it.
//
// Input: the encoding (first byte, modulo 4), the searched value, the split maximum, then the
// text as values, each either a byte that picks a value from a small alphabet (so that values
// repeat) or, after a 0xFF escape, three bytes of a value of its own.
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/string.h>

#include <string>
#include <vector>

#include "fuzz_support.h"
#include "text_model.h"

namespace {

using kiv::fuzz::Escaped;

enum Kind { kAscii, kUtf8, kUtf16, kUtf32 };

constexpr std::uint32_t kAlphabet[] = {
    'a',   'b',    ',',    ' ',    '\t',   0,       0x7F,    0x80,     0xE9,     0xFF,
    0x100, 0x20AC, 0xD83D, 0xDE00, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF, 0x110000, 0x7FFFFFFF};

std::uint32_t Value(kiv::fuzz::Input& in) {
  const std::uint8_t pick = in.Byte();
  if (pick != 0xFF) return kAlphabet[pick % std::size(kAlphabet)];
  // Mostly within the code space; with the top bit set, any value UTF-8 can hold.
  const std::uint32_t raw = in.Bits(4);
  return (raw & 0x80000000u) != 0 ? raw & 0x7FFFFFFF : raw % 0x110000;
}

// The text in the encoding, and the values the encoding sees in it, one per character.
struct Text {
  std::string bytes;
  std::vector<std::uint32_t> chars;
  std::vector<std::size_t> offsets;  // where each character starts in `bytes`
};

void Append(Kind kind, std::uint32_t value, Text& text) {
  if (kind == kUtf16) {
    for (char16_t unit : kiv::fuzz::Utf16Of(value)) {
      text.offsets.push_back(text.bytes.size());
      text.bytes.append(reinterpret_cast<const char*>(&unit), 2);
      text.chars.push_back(unit);
    }
    return;
  }
  text.offsets.push_back(text.bytes.size());
  if (kind == kAscii) {
    // One byte, which the encoding compares sign-extended.
    const auto byte = static_cast<std::int8_t>(value);
    text.bytes += static_cast<char>(byte);
    value = static_cast<std::uint32_t>(std::int32_t{byte});
  } else {
    text.bytes += kind == kUtf8 ? kiv::fuzz::EncodeUtf8(value)
                                : std::string(reinterpret_cast<const char*>(&value), 4);
  }
  text.chars.push_back(value);
}

std::string BytesOf(const kiv::String& s) {
  return std::string(static_cast<const char*>(s->GetData()), s->ByteLength());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const auto kind = static_cast<Kind>(input.Byte() % 4);
  const std::uint32_t c = Value(input);
  const std::int32_t max = static_cast<std::int8_t>(input.Byte());
  Text text;
  while (!input.Empty() && text.chars.size() < 4096) Append(kind, Value(input), text);

  const kiv::TextEncoding encodings[] = {
      kiv::TextEncodingExp::MakeAscii(), kiv::TextEncodingExp::MakeUTF8(),
      kiv::TextEncodingExp::MakeUTF16(), kiv::TextEncodingExp::MakeUTF32()};
  const kiv::String s(encodings[kind], text.bytes.data(), static_cast<unsigned>(text.bytes.size()));
  const std::string what = "encoding " + std::to_string(kind) + ", character " + std::to_string(c) +
                           ", text \"" + Escaped(text.bytes) + "\"";

  std::vector<std::size_t> matches;
  for (std::size_t i = 0; i < text.chars.size(); ++i) {
    if (text.chars[i] == c) matches.push_back(i);
  }
  const std::int32_t first = matches.empty() ? -1 : static_cast<std::int32_t>(matches.front());
  const std::int32_t last = matches.empty() ? -1 : static_cast<std::int32_t>(matches.back());
  KIV_FUZZ_CHECK(s->Length() == text.chars.size(), "Length %u, expected %zu: %s", s->Length(),
                 text.chars.size(), what.c_str());
  KIV_FUZZ_CHECK(s->IndexOf(c) == first, "IndexOf %d, expected %d: %s", s->IndexOf(c), first,
                 what.c_str());
  KIV_FUZZ_CHECK(s->LastIndexOf(c) == last, "LastIndexOf %d, expected %d: %s", s->LastIndexOf(c),
                 last, what.c_str());
  KIV_FUZZ_CHECK(s->CountOf(c) == matches.size(), "CountOf %u, expected %zu: %s", s->CountOf(c),
                 matches.size(), what.c_str());

  // The pieces: cut at successive matches until `max` pieces are reached; the rest is the last.
  std::vector<std::string> pieces;
  std::size_t start = 0;
  if (max >= 2) {
    for (std::size_t m : matches) {
      if (pieces.size() + 1 == static_cast<std::size_t>(max)) break;
      pieces.push_back(
          text.bytes.substr(text.offsets[start], text.offsets[m] - text.offsets[start]));
      start = m + 1;
    }
  }
  pieces.push_back(
      text.bytes.substr(start < text.offsets.size() ? text.offsets[start] : text.bytes.size()));

  // A value the encoding cannot hold occurs nowhere, so splitting on it gives the whole string.
  bool same = false;
  std::int32_t count = -1;
  try {
    const kiv::Container split = s->Split(c, false, max);
    count = split->Count();
    same = count == static_cast<std::int32_t>(pieces.size());
    for (std::int32_t i = 0; same && i < count; ++i) {
      same = BytesOf(kiv::String(split->GetElement(i))) == pieces[static_cast<std::size_t>(i)];
    }
  } catch (const kiv::Exception&) {
    // Reported below as a mismatch (count -1).
  }
  KIV_FUZZ_CHECK(same, "Split gave %d pieces (-1: threw) where IndexOf finds %zu: %s", count,
                 pieces.size(), what.c_str());
  return 0;
}
