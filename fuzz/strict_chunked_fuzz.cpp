// The strict chunked decoder against a small model of the coding's grammar, written for clarity
// over the whole input at once: a body the model accepts must decode to the model's data and
// trailer fields and end exactly where the model ends it; a body the model refuses or finds cut
// short must end in ChunkedFormatException or UnexpectedEOFException, after delivering no more
// than a prefix of the model's data. The same body read one byte at a time must end the same way,
// with the same fault text (the offsets do not depend on how the bytes arrive); how much data a
// refused body delivers first may differ, as a whole frame in the buffer is judged before its
// data goes out.
//
// Input: a limits byte (bit 0: accept bare LF; bits 1-2: small line, trailer and chunk limits),
// the caller's read sizes, the wrapped stream's delivery sizes, then the wire bytes.
#include <kiv/exception.h>
#include <kiv/filters.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::Escaped;
using kiv::fuzz::ScriptedInput;
using kiv::fuzz::SizeScript;

bool IsTokenChar(unsigned char c) {
  if (c >= '0' && c <= '9') return true;
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') return true;
  return std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}
bool IsBlank(unsigned char c) { return c == ' ' || c == '\t'; }
bool IsVisible(unsigned char c) { return (c >= 0x21 && c <= 0x7E) || c >= 0x80; }
int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') return (c | 0x20) - 'a' + 10;
  return -1;
}

struct Outcome {
  enum Kind { kAccepted, kRefused, kCutShort } kind = kCutShort;
  std::string data;
  std::vector<kiv::ChunkedField> trailers;
  std::size_t end = 0;  // where the body ends in the wire bytes, when accepted
};

// The grammar, straight from its definition: chunk = size [ext] CRLF data CRLF, then a last chunk
// of size 0, the trailer's field lines and an empty line.
class Model {
 public:
  Model(std::string_view wire, const kiv::ChunkedLimits& limits) : s_(wire), limits_(limits) {}

  Outcome Run() {
    Outcome out;
    std::size_t pos = 0;
    while (true) {
      std::optional<std::string_view> line = Line(pos, limits_.max_line_length, out);
      if (!line) return out;
      std::optional<std::uint64_t> size = SizeLine(*line);
      if (!size) return Refused(out);
      if (*size == 0) break;
      out.data.append(s_.substr(pos, *size));
      if (s_.size() - pos < *size) return out;  // cut short in the data
      pos += *size;
      if (!LineEnd(pos, out)) return out;
    }
    std::size_t trailer_bytes = 0;
    while (true) {
      const std::size_t start = pos;
      std::optional<std::string_view> line = Line(pos, limits_.max_trailer_size, out);
      if (!line) return out;
      if (line->empty()) break;
      trailer_bytes += pos - start;
      if (trailer_bytes > limits_.max_trailer_size) return Refused(out);
      if (!TrailerField(*line, out)) return Refused(out);
    }
    out.kind = Outcome::kAccepted;
    out.end = pos;
    return out;
  }

 private:
  static Outcome& Refused(Outcome& out) {
    out.kind = Outcome::kRefused;
    return out;
  }

  // The line at `pos` up to its line break, which `pos` is moved past; none when the body is
  // refused (a bare CR or LF, a line over `limit`) or cut short (`out` says which).
  std::optional<std::string_view> Line(std::size_t& pos, std::size_t limit, Outcome& out) {
    std::size_t end = pos;
    while (end < s_.size() && s_[end] != '\r' && s_[end] != '\n') ++end;
    if (end - pos > limit) {
      Refused(out);
      return std::nullopt;
    }
    const std::string_view line = s_.substr(pos, end - pos);
    std::size_t after = end;
    if (!LineEnd(after, out)) return std::nullopt;
    pos = after;
    return line;
  }

  // Steps over the CR LF (or, when allowed, the lone LF) at `pos`.
  bool LineEnd(std::size_t& pos, Outcome& out) {
    if (pos == s_.size()) return false;  // cut short
    if (s_[pos] == '\n' && limits_.accept_bare_lf) {
      pos += 1;
      return true;
    }
    if (s_[pos] != '\r') return Refused(out), false;
    if (pos + 1 == s_.size()) return false;
    if (s_[pos + 1] != '\n') return Refused(out), false;
    pos += 2;
    return true;
  }

  // 1*HEXDIG *( BWS ";" BWS name [ BWS "=" BWS ( token / quoted-string ) ] )
  std::optional<std::uint64_t> SizeLine(std::string_view line) const {
    std::size_t i = 0;
    std::uint64_t size = 0;
    for (; i < line.size() && HexValue(static_cast<unsigned char>(line[i])) >= 0; ++i) {
      if (size >> 60 != 0) return std::nullopt;
      size = size * 16 + static_cast<unsigned>(HexValue(static_cast<unsigned char>(line[i])));
    }
    if (i == 0 || size > limits_.max_chunk_size) return std::nullopt;
    auto blanks = [&] {
      while (i < line.size() && IsBlank(static_cast<unsigned char>(line[i]))) ++i;
    };
    auto token = [&] {
      const std::size_t from = i;
      while (i < line.size() && IsTokenChar(static_cast<unsigned char>(line[i]))) ++i;
      return i > from;
    };
    while (i < line.size()) {
      blanks();
      if (i == line.size() || line[i] != ';') return std::nullopt;
      ++i;
      blanks();
      if (!token()) return std::nullopt;
      const std::size_t before_blanks = i;
      blanks();
      if (i < line.size() && line[i] == '=') {
        ++i;
        blanks();
        if (i < line.size() && line[i] == '"') {
          for (++i;; ++i) {
            if (i == line.size()) return std::nullopt;
            const auto c = static_cast<unsigned char>(line[i]);
            if (c == '"') break;
            if (c == '\\') {
              if (i + 1 == line.size()) return std::nullopt;
              const auto e = static_cast<unsigned char>(line[i + 1]);
              if (!IsVisible(e) && !IsBlank(e)) return std::nullopt;
              ++i;
            } else if (!IsVisible(c) && !IsBlank(c)) {
              return std::nullopt;
            }
          }
          ++i;
        } else if (!token()) {
          return std::nullopt;
        }
      } else {
        i = before_blanks;  // blanks only before ";" or "=", never at the end
        if (i < line.size() && !IsBlank(static_cast<unsigned char>(line[i])) && line[i] != ';') {
          return std::nullopt;
        }
      }
    }
    return size;
  }

  // name ":" OWS value OWS, the value of visible characters and blanks.
  static bool TrailerField(std::string_view line, Outcome& out) {
    std::size_t i = 0;
    while (i < line.size() && IsTokenChar(static_cast<unsigned char>(line[i]))) ++i;
    if (i == 0 || i == line.size() || line[i] != ':') return false;
    const std::string_view name = line.substr(0, i);
    std::string_view value = line.substr(i + 1);
    for (char c : value) {
      if (!IsVisible(static_cast<unsigned char>(c)) && !IsBlank(static_cast<unsigned char>(c))) {
        return false;
      }
    }
    while (!value.empty() && IsBlank(static_cast<unsigned char>(value.front()))) {
      value.remove_prefix(1);
    }
    while (!value.empty() && IsBlank(static_cast<unsigned char>(value.back()))) {
      value.remove_suffix(1);
    }
    out.trailers.push_back({std::string(name), std::string(value)});
    return true;
  }

  std::string_view s_;
  const kiv::ChunkedLimits& limits_;
};

struct Decoded {
  Outcome::Kind kind = Outcome::kCutShort;
  std::string data;
  std::string fault;  // the exception's text
  std::vector<kiv::ChunkedField> trailers;
  std::size_t end = 0;
};

Decoded Decode(const std::string& wire, SizeScript reads, SizeScript deliveries,
               const kiv::ChunkedLimits& limits) {
  Decoded out;
  auto* raw = new ScriptedInput(wire, std::move(deliveries));
  const kiv::SyncInputStream in(raw);
  kiv::ChunkedSyncInputStream body = kiv::ChunkedSyncIOStreamExp::MakeStrict(in, limits);
  char block[512];
  try {
    while (unsigned n = body->Read(block, reads.Next(sizeof block) % sizeof block + 1, -1)) {
      out.data.append(block, n);
    }
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

bool SameFields(const std::vector<kiv::ChunkedField>& a, const std::vector<kiv::ChunkedField>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.name == y.name && x.value == y.value;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::uint8_t mode = input.Byte();
  kiv::ChunkedLimits limits;
  limits.accept_bare_lf = (mode & 1) != 0;
  if ((mode & 6) != 0) {  // small limits, so that inputs of a few hundred bytes reach them
    limits.max_line_length = 8u << ((mode >> 1) & 3);
    limits.max_trailer_size = 16u << ((mode >> 1) & 3);
    limits.max_chunk_size = 64u << ((mode >> 1) & 3);
  }
  const SizeScript reads = SizeScript::From(input);
  const SizeScript deliveries = SizeScript::From(input);
  const std::string wire(input.Rest());

  const Outcome want = Model(wire, limits).Run();
  const Decoded got = Decode(wire, reads, deliveries, limits);
  const std::string shown = Escaped(wire.substr(0, 200));
  if (want.kind == Outcome::kAccepted) {
    KIV_FUZZ_CHECK(got.kind == Outcome::kAccepted, "refused (%s) a body the model accepts: %s",
                   got.fault.c_str(), shown.c_str());
    KIV_FUZZ_CHECK(got.data == want.data, "data differs from the model's: %s", shown.c_str());
    KIV_FUZZ_CHECK(SameFields(got.trailers, want.trailers), "trailers differ: %s", shown.c_str());
    KIV_FUZZ_CHECK(got.end == want.end, "body ends at %zu, the model's at %zu: %s", got.end,
                   want.end, shown.c_str());
  } else {
    KIV_FUZZ_CHECK(got.kind != Outcome::kAccepted, "accepted a body the model %s: %s",
                   want.kind == Outcome::kRefused ? "refuses" : "finds cut short", shown.c_str());
    KIV_FUZZ_CHECK(want.data.compare(0, got.data.size(), got.data) == 0,
                   "delivered data the model does not: %s", shown.c_str());
  }
  // One byte at a time: the same outcome, the same fault, and for a whole body the same data,
  // trailer and end.
  const Decoded slow =
      Decode(wire, SizeScript(std::string_view("\1")), SizeScript(std::string_view("\1")), limits);
  KIV_FUZZ_CHECK(
      slow.kind == got.kind && slow.fault == got.fault &&
          (got.kind != Outcome::kAccepted || (slow.data == got.data && slow.end == got.end &&
                                              SameFields(slow.trailers, got.trailers))),
      "byte-wise reads end otherwise (%s / %s): %s", slow.fault.c_str(), got.fault.c_str(),
      shown.c_str());
  return 0;
}
