// Character search and splitting in the four built-in encodings against a model of what each
// calls a character and when one equals the searched value: ASCII compares sign-extended bytes,
// UTF-16 and UTF-32 compare units (a UTF-16 string never holds a value above 0xFFFF), UTF-8 the
// decoded values. Length, IndexOf, LastIndexOf and CountOf must agree with the model, and Split
// must cut exactly where IndexOf finds the character. Input: the encoding (first byte, modulo 4),
// the searched value, the split maximum, then the text as values: a byte picks one from a small
// alphabet (so values repeat), or 0xFF escapes three bytes.
#include <kiv/containers.h>
#include <kiv/encodings.h>
#include <kiv/string.h>

#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "text_model.h"

namespace {

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

// The text in the encoding: its bytes, where each character (as the encoding sees it) starts, and
// which characters equal the searched value.
struct Text {
  std::uint32_t searched;
  std::string bytes;
  std::vector<std::size_t> offsets, matches;
  void Add(std::uint32_t seen, std::string_view encoded) {
    if (seen == searched) matches.push_back(offsets.size());
    offsets.push_back(bytes.size());
    bytes += encoded;
  }
};

void Append(Kind kind, std::uint32_t value, Text& text) {
  if (kind == kUtf16) {
    for (char16_t unit : kiv::fuzz::Utf16Of(value)) {
      text.Add(unit, {reinterpret_cast<char*>(&unit), 2});
    }
    return;
  }
  const auto byte = static_cast<std::int8_t>(value);  // ASCII: one byte, compared sign-extended
  if (kind == kAscii) value = static_cast<std::uint32_t>(std::int32_t{byte});
  text.Add(value, kind == kAscii  ? std::string(1, static_cast<char>(byte))
                  : kind == kUtf8 ? kiv::fuzz::EncodeUtf8(value)
                                  : std::string(reinterpret_cast<const char*>(&value), 4));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const auto kind = static_cast<Kind>(input.Byte() % 4);
  const std::uint32_t c = Value(input);
  const std::int32_t max = static_cast<std::int8_t>(input.Byte());
  Text text{c, {}, {}, {}};
  while (!input.Empty() && text.offsets.size() < 4096) Append(kind, Value(input), text);
  const std::size_t length = text.offsets.size();
  text.offsets.push_back(text.bytes.size());  // the end, as the start of one more character
  const kiv::TextEncoding encodings[] = {
      kiv::TextEncodingExp::MakeAscii(), kiv::TextEncodingExp::MakeUTF8(),
      kiv::TextEncodingExp::MakeUTF16(), kiv::TextEncodingExp::MakeUTF32()};
  const kiv::String s(encodings[kind], text.bytes.data(), static_cast<unsigned>(text.bytes.size()));
  const std::string what = "encoding " + std::to_string(kind) + ", character " + std::to_string(c) +
                           ", text \"" + kiv::fuzz::Escaped(text.bytes) + "\"";
  const std::vector<std::size_t>& matches = text.matches;
  const std::int32_t first = matches.empty() ? -1 : static_cast<std::int32_t>(matches.front());
  const std::int32_t last = matches.empty() ? -1 : static_cast<std::int32_t>(matches.back());
  KIV_FUZZ_CHECK(s->Length() == length && s->IndexOf(c) == first && s->LastIndexOf(c) == last &&
                     s->CountOf(c) == matches.size(),
                 "Length %u, IndexOf %d, LastIndexOf %d, CountOf %u; expected %zu, %d, %d, %zu: %s",
                 s->Length(), s->IndexOf(c), s->LastIndexOf(c), s->CountOf(c), length, first, last,
                 matches.size(), what.c_str());
  // The pieces: cut at successive matches until `max` pieces are reached; the rest is the last.
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (std::size_t m : matches) {
    if (max < 2 || pieces.size() + 1 == static_cast<std::size_t>(max)) break;
    pieces.push_back(text.bytes.substr(text.offsets[start], text.offsets[m] - text.offsets[start]));
    start = m + 1;
  }
  pieces.push_back(text.bytes.substr(text.offsets[start]));

  // A value the encoding cannot hold occurs nowhere, so splitting on it gives the whole string.
  // (An exception leaving the target is a finding as well.)
  std::vector<std::string> split;
  const kiv::Container parts = s->Split(c, false, max);
  for (std::int32_t i = 0; i < parts->Count(); ++i) {
    const kiv::String part(parts->GetElement(i));
    split.emplace_back(static_cast<const char*>(part->GetData()), part->ByteLength());
  }
  KIV_FUZZ_CHECK(split == pieces, "Split gave %zu pieces where IndexOf finds %zu: %s", split.size(),
                 pieces.size(), what.c_str());
  return 0;
}
