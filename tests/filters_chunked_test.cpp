// The strict chunked decoder on its own, then against the kept decoder and llhttp (strict mode).
#include <gtest/gtest.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/streams.h>

#include <cstdio>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"

#if KIV_TEST_HAVE_LLHTTP
#include "support/llhttp_driver.h"
#endif

namespace {

using kiv::testing::FakeInput;

// A decoded body, fields as the llhttp driver writes them: "e name=value\n", "t name:value\n".
struct Decoded {
  std::string body;
  std::string fields;
  std::string unread;  // what the decoder left after the body
  std::string error;   // the failure's text; empty when the body was complete
  bool operator==(const Decoded&) const = default;
};

void PrintTo(const Decoded& d, std::ostream* os) {
  *os << "{body of " << d.body.size() << " bytes, fields \"" << d.fields << "\", unread \""
      << d.unread << "\", error \"" << d.error << "\"}";
}

std::string Fields(const std::vector<kiv::ChunkedField>& fields, char kind) {
  std::string text;
  for (const auto& f : fields) {
    const char* sep = kind == 't' ? ":" : f.value.empty() ? "" : "=";
    text += std::string{kind, ' '} + f.name + sep + f.value + "\n";
  }
  return text;
}

// Decodes `pieces` strictly (deliveries of `split`, reads of `read_size` at most), past time-outs.
Decoded Strict(std::vector<FakeInput::Piece> pieces, unsigned split = 1u << 20,
               unsigned read_size = 1u << 16, const kiv::ChunkedLimits& limits = {}) {
  auto* raw = new FakeInput(std::move(pieces), {split});
  kiv::ChunkedSyncInputStream chunked =
      kiv::ChunkedSyncIOStreamExp::MakeStrict(kiv::SyncInputStream(raw), limits);
  Decoded out;
  std::vector<char> buf(read_size);
  try {
    bool new_chunk = false;  // kept across time-outs
    for (unsigned n = 1; n > 0;) {
      new_chunk = new_chunk || chunked->GetChunkRemaining() == 0;
      try {
        n = chunked->Read(buf.data(), read_size, -1);
      } catch (const kiv::IOTimeoutException&) {
        continue;
      }
      if (std::exchange(new_chunk, false)) out.fields += Fields(chunked->GetExtensions(), 'e');
      out.body.append(buf.data(), n);
    }
    out.fields += Fields(chunked->GetTrailers(), 't');
    EXPECT_TRUE(chunked->IsComplete());
    out.unread = std::string(chunked->GetUnread()) + raw->Rest();
  } catch (const kiv::ChunkedFormatException& e) {
    out.error = kiv::testing::Utf8(e.What());
  } catch (const kiv::UnexpectedEOFException&) {
    out.error = "unexpected end";
  }
  return out;
}

TEST(StrictChunked, DeliversDataWithItsExtensionsAndTrailerAndHandsBackWhatFollows) {
  const std::string wire =
      "5;name=value ; flag;q = \"a \\\"b\\\\\"\r\nhello\r\n3\r\nabc\r\n"
      "0;last\r\nExpires: never \r\nX-Sum:\t1\r\n\r\n1\r\nX\r\n0\r\n\r\n";  // then the next message
  EXPECT_EQ(Strict({{wire}}, 1u << 20, 3),
            (Decoded{"helloabc",
                     "e name=value\ne flag\ne q=a \"b\\\ne last\nt Expires:never\nt X-Sum:1\n",
                     "1\r\nX\r\n0\r\n\r\n", ""}));
  // Fields are checked, not kept, when the host does not want them.
  const kiv::ChunkedLimits drop{.keep_fields = false};
  EXPECT_EQ(Strict({{wire}}, 1u << 20, 100, drop).fields, "");
  EXPECT_EQ(Strict({{"5;a=\"\x01\"\r\nhello\r\n0\r\n\r\n"}}, 1u << 20, 100, drop).error,
            "bad chunk extension at byte 5");
}

TEST(StrictChunked, RefusesMalformedFramingNamingTheFaultAndItsOffset) {
  const kiv::ChunkedLimits small{.max_chunk_size = 5, .max_line_length = 8, .max_trailer_size = 12};
  const struct {
    std::string wire;
    std::string error;
    kiv::ChunkedLimits limits = {};
  } cases[] = {
      {"5 \r\nhello\r\n0\r\n\r\n", "bad chunk size at byte 1"},
      {"10000000000000000\r\n", "chunk size overflows 64 bits at byte 16"},
      {"5\nhello\r\n0\r\n\r\n", "bare LF at byte 1"},
      {"5\r\nhello\r\r\n0\r\n\r\n", "bare CR at byte 8"},
      {"5\r\nhelloXX0\r\n\r\n", "missing CR LF after chunk data at byte 8"},
      {"3\r\nabc\r\n5;a=b c\r\nhello\r\n0\r\n\r\n", "bad chunk extension at byte 14"},
      {"5\r\nhello\r\n0\r\nA : b\r\n\r\n", "bad trailer field at byte 14"},
      {"5\r\nhello\r\n0\r\nA: b\r\n c\r\n\r\n", "folded trailer field at byte 19"},
      {"5;a=12345\r\nhello\r\n0\r\n\r\n", "chunk size line too long at byte 8", small},
      {"6\r\nhello!\r\n0\r\n\r\n", "chunk size above the limit at byte 0", small},
      {"0\r\nA: 1\r\nB: 12345\r\n\r\n", "trailer section too long at byte 15", small},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Strict({{c.wire}}, 3, 100, c.limits).error, c.error) << c.wire;
  }
  // A refusal is final, even where what follows reads as a chunk; so is a truncation.
  for (const char* wire : {"5\r\nhello3\r\nabc\r\n0\r\n\r\n", "5\r\nhel"}) {
    kiv::ChunkedSyncInputStream s =
        kiv::ChunkedSyncIOStreamExp::MakeStrict(kiv::SyncInputStream(new FakeInput(wire)));
    char buf[8];
    EXPECT_GT(s->Read(buf, 8, -1), 0u);
    for (int i = 0; i < 2; ++i) EXPECT_THROW(s->Read(buf, 8, -1), kiv::IOException) << wire;
  }
  // Every cut of a body ends it early; a time-out of the wrapped stream at any point loses nothing.
  const std::string wire = "3;e=\"q\"\r\nabc\r\n10\r\n0123456789abcdef\r\n0\r\nA: b\r\n\r\n";
  const Decoded whole = Strict({{wire}}, 1);
  for (size_t at = 0; at < wire.size(); ++at) {
    EXPECT_EQ(Strict({{wire.substr(0, at)}}, 1 + at % 5).error, "unexpected end") << at;
    EXPECT_EQ(Strict({{wire.substr(0, at)}, {"", true}, {"", true}, {wire.substr(at)}}, 1), whole)
        << at;
  }
}

#if KIV_TEST_HAVE_LLHTTP

Decoded Llhttp(const std::string& wire, size_t piece) {
  kiv_llhttp_result r;
  kiv_llhttp_parse(wire.data(), wire.size(), piece, &r);
  Decoded out{std::string(r.body ? r.body : "", r.body_length), "", wire.substr(r.end), ""};
  // As we report them: quoted values unquoted (RandomCoding writes no escapes), trailer values
  // without the trailing blanks llhttp keeps.
  const std::string fields(r.fields ? r.fields : "", r.fields_length);
  for (size_t pos = 0, end; (end = fields.find('\n', pos)) != std::string::npos; pos = end + 1) {
    std::string line = fields.substr(pos, end - pos);
    const size_t quote = line.find("=\"");
    if (line[0] == 'e' && quote != std::string::npos)
      line = line.substr(0, quote + 1) + line.substr(quote + 2, line.size() - quote - 3);
    while (line[0] == 't' && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
    out.fields += line + "\n";
  }
  if (r.error != 0 || !r.complete) out.error = "refused " + std::to_string(r.error);
  kiv_llhttp_free(&r);
  return out;
}

// A random valid coding in the part of the grammar llhttp also reads (see the differences below).
std::string RandomCoding(std::mt19937& rng) {
  auto pick = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
  auto token = [&] {
    std::string t;
    for (unsigned n = 1 + pick(4); n > 0; --n) t += "abcXYZ09-_!#~"[pick(13)];
    return t;
  };
  std::string wire;
  for (unsigned chunks = pick(6), i = 0; i <= chunks; ++i) {
    const unsigned size = i == chunks ? 0 : 1 + pick(pick(4) == 0 ? 3000 : 40);
    char hex[20];
    std::snprintf(hex, sizeof hex, pick(2) ? "%0*x" : "%0*X", 1 + static_cast<int>(pick(3)), size);
    wire += hex;
    const unsigned extensions = pick(3);
    for (unsigned e = 0; e < extensions; ++e) wire += ";" + token();
    if (extensions > 0 && pick(3) == 0)
      wire += "=" + (pick(2) ? token() : "\"" + token() + " \t" + token() + "\"");
    wire += "\r\n";
    for (unsigned b = 0; b < size; ++b) wire += static_cast<char>(rng());
    if (size > 0) wire += "\r\n";
  }
  for (unsigned t = pick(3); t > 0; --t)
    wire += token() + ":" + (pick(2) ? " " : "") + token() + "\r\n";
  return wire + "\r\n";
}

// Two parsers that both accept a body must agree on it, or a request hides in the difference:
// valid codings, committed and random, must decode as llhttp and the kept decoder decode them;
// damaged ones, where both accept them, as llhttp decodes them.
TEST(StrictChunkedDifferential, WhereBothAcceptABodyTheyAgreeOnIt) {
  std::vector<std::string> wires;
  for (std::string name : {"pieces", "file", "text_lines", "empty"})
    wires.push_back(kiv::testing::ReadFile(KIV_TEST_DATA_DIR "/chunked/python_" + name + ".bin"));
  ASSERT_GT(wires[1].size(), 20000u) << "test data missing";
  const size_t valid = wires.size() + 300;
  std::mt19937 rng(7);
  while (wires.size() < valid + 3000) wires.push_back(RandomCoding(rng));
  static const char kAlphabet[] = "0123456789aAfF;= \t\r\n\"\\:xX+-";
  int both = 0;
  for (size_t i = 0; i < wires.size(); ++i) {
    std::string wire = wires[i];
    for (int damage = i < valid ? 0 : 1 + rng() % 2; damage > 0; --damage) {
      const size_t at = rng() % wire.size(), how = rng() % 3;  // change, insert or drop a byte
      wire.replace(at, how == 1 ? 0 : 1, how == 2 ? 0 : 1,
                   kAlphabet[rng() % (sizeof kAlphabet - 1)]);
    }
    wire += "POST /next HTTP/1.1\r\n";  // the next request on the connection
    const unsigned split = 1 + rng() % 300, read_size = 1 + rng() % 5000;
    const Decoded ours = Strict({{wire}}, split, read_size), theirs = Llhttp(wire, 1u << 20);
    if (i >= valid && !(ours.error.empty() && theirs.error.empty())) continue;
    both += i >= valid;
    EXPECT_EQ(ours, theirs) << wire << " split " << split << " read " << read_size;
    if (i >= valid) continue;
    EXPECT_EQ(theirs.error, "") << wire;
    EXPECT_TRUE(kiv::testing::ReadAll(kiv::ChunkedSyncIOStreamExp::MakeCapped(
                                          kiv::SyncInputStream(new FakeInput(wire, {split}))),
                                      read_size) == theirs.body);
  }
  EXPECT_GT(both, 100);
}

// Framing one parser reads and another refuses is how requests are smuggled: both refuse these,
// but for the deliberate differences listed.
TEST(StrictChunkedDifferential, MalformedBodiesAreRefusedWhereLlhttpRefusesThem) {
  const std::string end = "hello\r\n0\r\n\r\n";
  const std::string malformed[] = {
      // sizes; bare CR or LF
      "+5\r\n" + end, "-5\r\n" + end, "0x5\r\n" + end, " 5\r\n" + end, "5\t\r\n" + end,
      "1 5\r\n" + end, "10000000000000000\r\n" + end, "\r\n5\r\n" + end, "fffffffffffffff\r\nhi",
      "5\n" + end, "5\r" + end, "5\r\nhello\n0\r\n\r\n", "5\r\nhello\r0\r\n\r\n",
      "5;a=b\rc\r\n" + end, "5\r\nhello\r\n0\r\nA: b\rc\r\n\r\n",
      // data not closed or too long; no last chunk or trailer end; extensions; trailer fields
      "5\r\nhelloXX0\r\n\r\n", "3\r\nhello\r\n0\r\n\r\n", "5\r\nhello\r\n\r\n0\r\n\r\n",
      "5\r\nhello\r\n", "5\r\nhello\r\n0\r\n", "5\r\nhello\r\n0\r\n\r", "5;\r\n" + end,
      "5;a=\"b\r\n" + end, "5;a=b c\r\n" + end, "5;a=b\x01\r\n" + end, "5;\"a\"=b\r\n" + end,
      "5;a=b=c\r\n" + end, "5;a=\"b\"c\r\n" + end, "5;a \r\n" + end, "5;a\x7f\r\n" + end,
      "5;a=\"\x01\"\r\n" + end, "5\r\nhello\r\n0\r\nA\r\n\r\n", "5\r\nhello\r\n0\r\nA :b\r\n\r\n",
      "5\r\nhello\r\n0\r\nA: \x01\r\n\r\n", "5\r\nhello\r\n0\r\nA: b\nB: c\r\n\r\n"};
  const struct {
    std::string wire;
    bool we_accept;
    const char* why;
  } differences[] = {
      {"5 ;a\r\n" + end, true, "blanks before ';' are allowed and must be read"},
      {"5; a = b\r\n" + end, true, "the same blanks after ';' and around '='"},
      {"5;a=\"x\\\"y\"\r\n" + end, true, "a quoted value may hold escaped characters"},
      {"5;a=b;c=d\r\n" + end, true, "any number of extensions may follow one with a value"},
      {"5;a=\r\n" + end, false, "a value is never empty"},
      {"5;;a\r\n" + end, false, "an extension name is never empty"},
      {"5\r\nhello\r\n0\r\nA: b\r\n c\r\n\r\n", false, "folded lines are obsolete"},
      {"5\r\nhello\r\n0\r\n\n", false, "a lone LF ends no line, the trailer's last included"},
      {"5\r\nhello\r\n0\r\n: b\r\n\r\n", false, "a field name is never empty"},
      {"5;" + std::string(5000, 'x') + "\r\n" + end, false, "4 KiB size lines at most"},
      {"1000001\r\n" + std::string(0x1000001, 'x') + "\r\n0\r\n\r\n", false,
       "16 MiB chunks at most"},
      {"0\r\nA: " + std::string(20000, 'b') + "\r\n\r\n", false, "16 KiB trailers at most"},
  };
  for (const std::string& wire : malformed) {
    EXPECT_NE(Strict({{wire}}, 3).error, "") << wire;
    EXPECT_NE(Llhttp(wire, 1u << 20).error, "") << wire;
  }
  for (const auto& d : differences) {
    EXPECT_EQ(Strict({{d.wire}}, 3).error == "", d.we_accept) << d.wire;
    EXPECT_EQ(Llhttp(d.wire, 1u << 20).error == "", !d.we_accept) << d.wire << ": " << d.why;
  }
}

#else

TEST(StrictChunkedDifferential, NeedsLlhttp) {
  GTEST_SKIP() << "llhttp's sources are not installed (node-llhttp): no differential tests";
}

#endif

}  // namespace

// Hides the class of the stream it forwards to, so that a decoder over it reads byte by byte.
class Forwarding : public kiv::SyncInputStreamWrapper {
 public:
  explicit Forwarding(const kiv::SyncInputStream& in) : SyncInputStreamWrapper(in) {}
  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override {
    return Wrapped()->Read(dst, count, timeout);
  }
  std::int32_t Read(std::int64_t timeout) override { return Wrapped()->Read(timeout); }
};

// The kept decoder scans the buffer of a buffered stream under it in place instead of reading its
// framing byte by byte. Over damaged and valid codings, read sizes, buffer sizes, capped or not, it
// must return the same reads and consume exactly the same bytes as reading byte by byte.
TEST(KeptChunked, OverABufferedStreamReadsAndConsumesAsByteByByte) {
  std::mt19937 rng(20261124);
  auto pick = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
  static const char* const kPieces[] = {"\r\n", "\n", "\r",   "0", "1",  "a",   "F",
                                        "10",   "-1", ";x=1", " ", "zz", "0x3", "ffffffffff"};
  for (int round = 0; round < 400; ++round) {
    std::string wire;
    for (unsigned chunks = pick(5), i = 0; i < chunks; ++i) {
      const unsigned size = pick(40);
      char hex[16];
      std::snprintf(hex, sizeof hex, "%x\r\n", size);
      wire += hex;
      for (unsigned b = 0; b < size; ++b) wire += static_cast<char>('a' + pick(26));
      wire += pick(12) == 0 ? "x\n" : "\r\n";
      // Damage: lines longer than the decoder's line buffer (where it cuts one decides what the
      // line says) and framing pieces.
      if (pick(4) == 0) {
        for (unsigned n = 10 + pick(140); n > 0; --n) wire += "00 1;x"[pick(6)];
        wire += "5\r\n";
      }
      for (unsigned d = pick(3) == 0 ? pick(4) : 0; d > 0; --d) wire += kPieces[pick(14)];
    }
    wire += pick(4) == 0 ? "" : "0\r\ntrailer: x\r\n\r\n";
    const unsigned read_size = 1 + pick(48);
    const unsigned buffer_size = 1 + pick(pick(3) == 0 ? 300 : 70);
    const bool capped = pick(2) == 0;
    SCOPED_TRACE(::testing::Message() << "round " << round << ", read " << read_size << ", buffer "
                                      << buffer_size << (capped ? ", capped" : ""));
    // Time-outs between pieces of the wire leave reads (and size lines) half done.
    std::vector<FakeInput::Piece> pieces;
    for (std::size_t at = 0; at < wire.size(); pieces.push_back({"", true})) {
      const std::size_t n = pick(3) == 0 ? 1 + pick(12) : wire.size();
      pieces.push_back({wire.substr(at, n)});
      at += pieces.back().data.size();
    }
    auto decode = [&](bool forwarded) {
      kiv::SyncInputStream buffered = kiv::SyncInputStreamExp::Make(
          kiv::SyncInputStream(new FakeInput(pieces)), kiv::BufferExp::Make(buffer_size));
      kiv::SyncInputStream under =
          forwarded ? kiv::SyncInputStream(new Forwarding(buffered)) : buffered;
      kiv::SyncInputStream chunked = capped ? kiv::ChunkedSyncIOStreamExp::MakeCapped(under)
                                            : kiv::ChunkedSyncIOStreamExp::Make(under);
      std::vector<std::string> reads;
      std::vector<char> buf(read_size);
      for (kiv::SyncInputStream from : {chunked, buffered}) {  // then what the decoder left
        for (unsigned n = 1; n > 0;) {
          try {
            n = from->Read(buf.data(), read_size, -1);
            reads.emplace_back(buf.data(), n);
          } catch (const kiv::IOTimeoutException&) {
            reads.emplace_back("time-out");
          }
        }
      }
      return reads;
    };
    std::vector<std::string> direct = decode(true);
    std::vector<std::string> buffered = decode(false);
    ASSERT_EQ(direct, buffered);
  }
}
