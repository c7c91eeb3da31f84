// The strict chunked decoder against a model of the grammar. A body the model accepts must decode
// to its data and trailers and end where it ends; others must end in ChunkedFormatException or
// UnexpectedEOFException after a prefix of its data. Read a byte at a time, a body must end alike
// with the same fault text (a refused body may deliver less data first: a whole frame in the
// buffer is judged before its data goes out). Input: a limits byte (bit 0: bare LF; bits 1-2:
// small limits), the read sizes, the delivery sizes, then the wire bytes.
#include <kiv/exception.h>
#include <kiv/filters.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::SizeScript;

constexpr std::string_view kTokenChars =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ!#$%&'*+-.^_`|~";
bool IsTokenChar(char c) { return kTokenChars.find(c) != std::string_view::npos; }
bool IsBlank(char c) { return c == ' ' || c == '\t'; }
// A visible character (bytes above 0x7F included) or a blank.
bool IsText(char c) { return (static_cast<unsigned char>(c) >= 0x21 && c != 0x7F) || IsBlank(c); }
int HexValue(char c) {  // -1 for no hexadecimal digit
  const std::size_t at = std::string_view("0123456789abcdef0123456789ABCDEF").find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at % 16);
}

// What the model or the decoder made of a body.
struct Outcome {
  enum Kind { kAccepted, kRefused, kCutShort } kind = kCutShort;
  std::string data;
  std::vector<kiv::ChunkedField> trailers;
  std::size_t end = 0;  // where the body ends in the wire bytes, when accepted
  std::string fault;    // the decoder's exception text, when refused
};

// The grammar, straight from its definition and over the whole input at once: chunk = size [ext]
// CRLF data CRLF, then a last chunk of size 0, the trailer's field lines and an empty line.
struct Model {
  std::string_view wire;
  const kiv::ChunkedLimits& limits;

  Outcome Run() {
    Outcome out;
    try {
      std::size_t pos = 0;
      while (const std::uint64_t size = SizeLine(Line(pos, limits.max_line_length))) {
        out.data.append(wire.substr(pos, size));
        if (wire.size() - pos < size) throw Outcome::kCutShort;
        LineEnd(pos += size);
      }
      for (std::size_t trailer_bytes = 0, start = pos;; start = pos) {
        const std::string_view line = Line(pos, limits.max_trailer_size);
        if (line.empty()) break;
        Check((trailer_bytes += pos - start) <= limits.max_trailer_size);
        out.trailers.push_back(TrailerField(line));
      }
      out.kind = Outcome::kAccepted;
      out.end = pos;
    } catch (Outcome::Kind kind) {
      out.kind = kind;
    }
    return out;
  }

  // A refused body, or one cut short, throws the outcome's kind.
  static void Check(bool ok) {
    if (!ok) throw Outcome::kRefused;
  }

  // The line at `pos` up to its line break, which `pos` is moved past.
  std::string_view Line(std::size_t& pos, std::size_t limit) {
    const std::size_t end = std::min(wire.size(), wire.find_first_of("\r\n", pos));
    Check(end - pos <= limit);
    const std::string_view line = wire.substr(pos, end - pos);
    LineEnd(pos = end);
    return line;
  }

  // Steps over the CR LF (or, when allowed, the lone LF) at `pos`.
  void LineEnd(std::size_t& pos) {
    const bool lf = limits.accept_bare_lf && wire.substr(pos, 1) == "\n";
    const std::string_view want = lf ? "\n" : "\r\n", got = wire.substr(pos, want.size());
    if (got != want) throw want.starts_with(got) ? Outcome::kCutShort : Outcome::kRefused;
    pos += want.size();
  }

  // 1*HEXDIG *( BWS ";" BWS name [ BWS "=" BWS ( token / quoted-string ) ] )
  std::uint64_t SizeLine(std::string_view line) const {
    std::size_t i = 0;
    std::uint64_t size = 0;
    for (; i < line.size() && HexValue(line[i]) >= 0; ++i) {
      Check(size >> 60 == 0);
      size = size * 16 + static_cast<unsigned>(HexValue(line[i]));
    }
    Check(i > 0 && size <= limits.max_chunk_size);
    auto at = [&](char c) { return i < line.size() && line[i] == c; };
    auto eat = [&](char c) { return at(c) && ++i; };
    auto skip = [&](bool (*in_class)(char)) {  // false when it skips nothing
      const std::size_t from = i;
      while (i < line.size() && in_class(line[i])) ++i;
      return i > from;
    };
    while (i < line.size()) {
      skip(IsBlank);
      Check(eat(';'));
      skip(IsBlank);
      Check(skip(IsTokenChar));
      const std::size_t name_end = i;
      skip(IsBlank);
      if (!eat('=')) {  // blanks only before ";" or "=", never at the end
        Check(at(';') || (i == line.size() && i == name_end));
        continue;
      }
      skip(IsBlank);
      if (!eat('"')) {
        Check(skip(IsTokenChar));
        continue;
      }
      for (; !eat('"'); ++i)  // a quoted string: text and backslash escapes of text
        Check(i < line.size() && (line[i] != '\\' || ++i < line.size()) && IsText(line[i]));
    }
    return size;
  }

  // name ":" OWS value OWS, the value of visible characters and blanks.
  static kiv::ChunkedField TrailerField(std::string_view line) {
    const std::size_t colon = line.find_first_not_of(kTokenChars);
    Check(colon > 0 && colon != std::string_view::npos && line[colon] == ':');
    std::string_view value = line.substr(colon + 1);
    Check(std::all_of(value.begin(), value.end(), IsText));
    const std::size_t first = std::min(value.size(), value.find_first_not_of(" \t"));
    value = value.substr(first, value.find_last_not_of(" \t") + 1 - first);
    return {std::string(line.substr(0, colon)), std::string(value)};
  }
};

Outcome Decode(const std::string& wire, SizeScript reads, SizeScript deliveries,
               const kiv::ChunkedLimits& limits) {
  Outcome out;
  auto* raw = new kiv::fuzz::ScriptedInput(wire, std::move(deliveries));
  kiv::ChunkedSyncInputStream body =
      kiv::ChunkedSyncIOStreamExp::MakeStrict(kiv::SyncInputStream(raw), limits);
  char block[512];
  try {
    while (unsigned n = body->Read(block, reads.Next(sizeof block) % sizeof block + 1, -1))
      out.data.append(block, n);
    KIV_FUZZ_CHECK(body->IsComplete(), "the body ended without being complete");
    out.kind = Outcome::kAccepted;
    out.trailers = body->GetTrailers();
    out.end = wire.size() - raw->Rest().size() - body->GetUnread().size();
  } catch (const kiv::ChunkedFormatException& e) {
    out.kind = Outcome::kRefused;
    const kiv::String text = e.ToString();
    out.fault.assign(static_cast<const char*>(text->GetData()), text->ByteLength());
  } catch (const kiv::UnexpectedEOFException&) {
    out.kind = Outcome::kCutShort;
  }
  return out;
}

// The same data, trailer fields and end.
bool SameBody(const Outcome& a, const Outcome& b) {
  auto same = [](const auto& x, const auto& y) { return x.name == y.name && x.value == y.value; };
  return a.data == b.data && a.end == b.end &&
         std::equal(a.trailers.begin(), a.trailers.end(), b.trailers.begin(), b.trailers.end(),
                    same);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::uint8_t mode = input.Byte();
  kiv::ChunkedLimits limits{.accept_bare_lf = (mode & 1) != 0};
  if (const unsigned k = (mode >> 1) & 3; k != 0) {  // small, so that short inputs reach them
    limits.max_line_length = 8u << k;
    limits.max_trailer_size = 16u << k;
    limits.max_chunk_size = 64u << k;
  }
  const SizeScript reads = SizeScript::From(input), deliveries = SizeScript::From(input);
  const std::string wire(input.Rest());

  const Outcome want = Model{wire, limits}.Run();
  const Outcome got = Decode(wire, reads, deliveries, limits);
  const std::string shown = kiv::fuzz::Escaped(wire.substr(0, 200));
  if (want.kind == Outcome::kAccepted) {
    KIV_FUZZ_CHECK(got.kind == Outcome::kAccepted, "refused (%s) a body the model accepts: %s",
                   got.fault.c_str(), shown.c_str());
    KIV_FUZZ_CHECK(SameBody(got, want), "data, trailers or end (%zu, the model's %zu) differ: %s",
                   got.end, want.end, shown.c_str());
  } else {
    KIV_FUZZ_CHECK(got.kind != Outcome::kAccepted, "accepted a body the model %s: %s",
                   want.kind == Outcome::kRefused ? "refuses" : "finds cut short", shown.c_str());
    KIV_FUZZ_CHECK(want.data.compare(0, got.data.size(), got.data) == 0,
                   "delivered data the model does not: %s", shown.c_str());
  }
  // One byte at a time: the same outcome and fault, and for a whole body the same body.
  const SizeScript one(std::string_view("\1"));
  const Outcome slow = Decode(wire, one, one, limits);
  KIV_FUZZ_CHECK(slow.kind == got.kind && slow.fault == got.fault &&
                     (got.kind != Outcome::kAccepted || SameBody(slow, got)),
                 "byte-wise reads end otherwise (%s / %s): %s", slow.fault.c_str(),
                 got.fault.c_str(), shown.c_str());
  return 0;
}
