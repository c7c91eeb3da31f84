// Line reading over a stream that delivers the text in chosen pieces, through a read-ahead buffer
// of chosen size: the lines must be the text cut after every line feed of its encoding (the code
// unit 10 at a unit boundary), each with its line feed and any carriage return before it, the
// last one without a line feed when the text does not end in one, then the empty line at the end.
//
// Input: the encoding (first byte, modulo 4), the read-ahead size, the stream's delivery sizes (a
// length byte and that many sizes), then the text as values (as for string search: a byte picks
// a value from a small alphabet rich in line ends, 0xFF escapes three bytes of a value).
#include <kiv/encodings.h>
#include <kiv/string.h>
#include <kiv/textio.h>

#include <string>
#include <vector>

#include "fuzz_support.h"
#include "text_model.h"

namespace {

using kiv::fuzz::Escaped;

constexpr std::uint32_t kAlphabet[] = {'a',    '\n',    '\r',    ' ',    0x0A0A, 0x0A00, 0xE9,
                                       0x20AC, 0x1F600, 0x10A0A, 0xD83D, 0x7F,   0x80};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const unsigned kind = input.Byte() % 4;
  const unsigned read_ahead = 1 + input.Byte() % 64;
  const kiv::fuzz::SizeScript deliveries = kiv::fuzz::SizeScript::From(input);

  // The text, and where each line ends (just past a line feed unit).
  std::string text;
  std::vector<std::size_t> line_ends;
  while (!input.Empty() && text.size() < 8192) {
    const std::uint8_t pick = input.Byte();
    std::uint32_t value = kAlphabet[pick % std::size(kAlphabet)];
    if (pick == 0xFF) value = input.Bits(3) % 0x110000;
    if (kind == 2) {
      for (char16_t unit : kiv::fuzz::Utf16Of(value)) {
        text.append(reinterpret_cast<const char*>(&unit), 2);
        if (unit == 10) line_ends.push_back(text.size());
      }
      continue;
    }
    if (kind == 0) value = static_cast<std::uint8_t>(value);  // ASCII: one byte of the value
    text += kind == 0   ? std::string(1, static_cast<char>(value))
            : kind == 1 ? kiv::fuzz::EncodeUtf8(value)
                        : std::string(reinterpret_cast<const char*>(&value), 4);
    if (value == 10) line_ends.push_back(text.size());
  }
  if (line_ends.empty() || line_ends.back() != text.size()) line_ends.push_back(text.size());
  if (text.empty()) line_ends.clear();

  const kiv::TextEncoding encodings[] = {
      kiv::TextEncodingExp::MakeAscii(), kiv::TextEncodingExp::MakeUTF8(),
      kiv::TextEncodingExp::MakeUTF16(), kiv::TextEncodingExp::MakeUTF32()};
  kiv::Reader reader = kiv::fuzz::MakeReader(text, deliveries, encodings[kind], read_ahead);
  std::size_t start = 0;
  for (std::size_t i = 0; i <= line_ends.size(); ++i) {
    kiv::String line;
    const bool more = reader->ReadLine(line);
    const std::string got(static_cast<const char*>(line->GetData()), line->ByteLength());
    const std::string want = i < line_ends.size() ? text.substr(start, line_ends[i] - start) : "";
    KIV_FUZZ_CHECK(
        more == (i < line_ends.size()) && got == want,
        "line %zu: \"%s\" (%d), expected \"%s\"; encoding %u, read-ahead %u, text \"%s\"", i,
        Escaped(got).c_str(), more, Escaped(want).c_str(), kind, read_ahead, Escaped(text).c_str());
    if (i < line_ends.size()) start = line_ends[i];
  }
  return 0;
}
