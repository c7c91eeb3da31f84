// The strict chunked decoder: framing, extensions and trailers, refusals with the fault and its
// offset, limits, truncation, time-outs, and what it leaves after the body; then differentially
// against the kept decoder and llhttp (in its strict mode) on valid bodies, and against llhttp on
// malformed ones.
#include <gtest/gtest.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/streams.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "support/test_support.h"

#if KIV_TEST_HAVE_LLHTTP
#include "support/llhttp_driver.h"
#endif

namespace {

using kiv::testing::FakeInput;

// What a decoder made of a coded body. Fields are written as the llhttp driver writes them:
// "e name=value\n" per extension of each chunk, then "t name:value\n" per trailer field.
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
    text += std::string{kind, ' '} + f.name +
            (kind == 't'       ? ":"
             : f.value.empty() ? ""
                               : "=") +
            f.value + "\n";
  }
  return text;
}

// Decodes the coded body in `pieces` with the strict decoder, its input arriving in pieces of at
// most `split` bytes and reads of at most `read_size` bytes, resuming after time-outs.
Decoded Strict(std::vector<FakeInput::Piece> pieces, unsigned split = 1u << 20,
               unsigned read_size = 1u << 16, const kiv::ChunkedLimits& limits = {}) {
  auto* raw = new FakeInput(std::move(pieces), {split});
  kiv::SyncInputStream input(raw);
  kiv::ChunkedSyncInputStream chunked = kiv::ChunkedSyncIOStreamExp::MakeStrict(input, limits);
  Decoded out;
  std::vector<char> buf(read_size);
  try {
    for (;;) {
      const bool new_chunk = chunked->GetChunkRemaining() == 0;
      unsigned n = 0;
      for (;;) {
        try {
          n = chunked->Read(buf.data(), read_size, -1);
          break;
        } catch (const kiv::IOTimeoutException&) {
        }
      }
      if (new_chunk) out.fields += Fields(chunked->GetExtensions(), 'e');
      if (n == 0) break;
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

// A committed test body (only the differential tests against the peer parser read them).
[[maybe_unused]] std::string Read(const std::string& path) {
  return kiv::testing::ReadFile(std::string(KIV_TEST_DATA_DIR) + "/chunked/" + path);
}

TEST(StrictChunked, DeliversDataChunkByChunkWithItsExtensionsAndTheTrailer) {
  const std::string wire =
      "5;name=value ; flag;q = \"a \\\"b\\\\\"\r\nhello\r\n"
      "3\r\nabc\r\n"
      "0;last\r\nExpires: never \r\nX-Sum:\t1\r\n\r\n"
      "1\r\nX\r\n0\r\n\r\n";  // the next message, which reads like a chunk
  auto* raw = new FakeInput(wire);
  kiv::ChunkedSyncInputStream chunked =
      kiv::ChunkedSyncIOStreamExp::MakeStrict(kiv::SyncInputStream(raw));
  kiv::SyncInputStream plain = chunked;  // usable wherever a stream is
  char buf[100];
  EXPECT_EQ(plain->Read(buf, 0, -1), 0u);  // a read of nothing decodes nothing
  EXPECT_EQ(plain->Read(buf, 3, -1), 3u);
  EXPECT_EQ(chunked->GetChunkRemaining(), 2u);
  EXPECT_EQ(Fields(chunked->GetExtensions(), 'e'), "e name=value\ne flag\ne q=a \"b\\\n");
  EXPECT_EQ(plain->Read(buf, 100, -1), 2u);  // never past the chunk's end
  EXPECT_EQ(plain->Read(buf, 100, -1), 3u);
  EXPECT_TRUE(chunked->GetExtensions().empty());
  EXPECT_FALSE(chunked->IsComplete());
  EXPECT_EQ(plain->Read(buf, 100, -1), 0u);
  EXPECT_EQ(plain->Read(-1), -1);
  EXPECT_TRUE(chunked->IsComplete());
  EXPECT_EQ(raw->Rest(), "");  // read ahead in one block, though the rest is not chunked
  EXPECT_EQ(Fields(chunked->GetExtensions(), 'e'), "e last\n");
  EXPECT_EQ(Fields(chunked->GetTrailers(), 't'), "t Expires:never\nt X-Sum:1\n");
  // The decoder read ahead; what it took beyond the body comes back whole.
  EXPECT_EQ(chunked->GetUnread(), "1\r\nX\r\n0\r\n\r\n");

  // Checked, not kept, when the host does not want them.
  kiv::ChunkedLimits drop;
  drop.keep_fields = false;
  EXPECT_EQ(Strict({{wire}}, 1u << 20, 100, drop).fields, "");
  EXPECT_EQ(Strict({{"5;a=\"\x01\"\r\nhello\r\n0\r\n\r\n"}}, 1u << 20, 100, drop).error,
            "bad chunk extension at byte 5");
}

TEST(StrictChunked, RefusesMalformedFramingNamingTheFaultAndItsOffset) {
  kiv::ChunkedLimits small;
  small.max_chunk_size = 5;
  small.max_line_length = 8;
  small.max_trailer_size = 12;  // "A: 12345678\r\n" is 13
  const struct {
    std::string wire;
    std::string error;  // "" when accepted
    bool small_limits = false;
  } cases[] = {
      {"+5\r\nhello\r\n0\r\n\r\n", "bad chunk size at byte 0"},
      {"0x5\r\nhello\r\n0\r\n\r\n", "bad chunk size at byte 1"},
      {"5 \r\nhello\r\n0\r\n\r\n", "bad chunk size at byte 1"},
      {"10000000000000000\r\n", "chunk size overflows 64 bits at byte 16"},
      {"5\nhello\r\n0\r\n\r\n", "bare LF at byte 1"},
      {"5\rhello\r\n0\r\n\r\n", "bare CR at byte 1"},
      {"5\r\nhelloXX0\r\n\r\n", "missing CR LF after chunk data at byte 8"},
      {"5\r\nhello\r\r\n0\r\n\r\n", "bare CR at byte 8"},
      {"5\r\nhello\n0\r\n\r\n", "bare LF at byte 8"},
      {"5;a=b c\r\nhello\r\n0\r\n\r\n", "bad chunk extension at byte 6"},
      {"5;a \r\nhello\r\n0\r\n\r\n", "bad chunk extension at byte 3"},
      {"3\r\nabc\r\n5;a=b c\r\nhello\r\n0\r\n\r\n", "bad chunk extension at byte 14"},
      {"5;a=\"b\r\nhello\r\n0\r\n\r\n", "bad chunk extension at byte 6"},
      {"5\r\nhello\r\n0\r\nA : b\r\n\r\n", "bad trailer field at byte 14"},
      {"5\r\nhello\r\n0\r\nA: b\r\n c\r\n\r\n", "folded trailer field at byte 19"},
      {"5\r\nhello\r\n0\r\n\n", "bare LF at byte 13"},
      // The limits, to the byte.
      {"5;a=1234\r\nhello\r\n0\r\n\r\n", "", true},
      {"5;a=12345\r\nhello\r\n0\r\n\r\n", "chunk size line too long at byte 8", true},
      {"6\r\nhello!\r\n0\r\n\r\n", "chunk size above the limit at byte 0", true},
      {"0\r\nA: 1234567\r\n\r\n", "", true},
      {"0\r\nA: 12345678\r\n\r\n", "trailer section too long at byte 15", true},
      {"0\r\nA: 1\r\nB: 12345\r\n\r\n", "trailer section too long at byte 15", true},
  };
  for (const auto& c : cases) {
    // Whichever way the input arrives, the fault and its place are the same.
    for (unsigned split : {1u, 3u, 1u << 20}) {
      SCOPED_TRACE(c.wire + " split " + std::to_string(split));
      EXPECT_EQ(Strict({{c.wire}}, split, 100, c.small_limits ? small : kiv::ChunkedLimits{}).error,
                c.error);
    }
  }
  // A refusal is final, even where what follows reads as a chunk; so is a truncation.
  kiv::ChunkedSyncInputStream bad = kiv::ChunkedSyncIOStreamExp::MakeStrict(
      kiv::SyncInputStream(new FakeInput("5\r\nhello3\r\nabc\r\n0\r\n\r\n")));
  char buf[8];
  EXPECT_EQ(bad->Read(buf, 8, -1), 5u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(kiv::testing::ThrownText<kiv::IOException>([&] { bad->Read(buf, 8, -1); }),
              "kiv::ChunkedFormatException - missing CR LF after chunk data at byte 8");
  }
  kiv::ChunkedSyncInputStream cut =
      kiv::ChunkedSyncIOStreamExp::MakeStrict(kiv::SyncInputStream(new FakeInput("5\r\nhel")));
  EXPECT_EQ(cut->Read(buf, 8, -1), 3u);
  EXPECT_THROW(cut->Read(buf, 8, -1), kiv::UnexpectedEOFException);
  EXPECT_THROW(cut->Read(buf, 8, -1), kiv::UnexpectedEOFException);

  // Line breaks of a lone LF, only when asked for.
  kiv::ChunkedLimits lenient;
  lenient.accept_bare_lf = true;
  EXPECT_EQ(Strict({{"5;x\nhello\n0\nA: b\n\nrest"}}, 1u << 20, 100, lenient),
            (Decoded{"hello", "e x\nt A:b\n", "rest", ""}));
}

TEST(StrictChunked, EveryCutOfABodyEndsItEarlyWithEveryInputSplit) {
  const std::string wire = "3;e=\"q\"\r\nabc\r\n10\r\n0123456789abcdef\r\n0\r\nA: b\r\n\r\n";
  for (size_t cut = 0; cut < wire.size(); ++cut) {
    for (unsigned split : {1u, 4u, 1u << 20}) {
      EXPECT_EQ(Strict({{wire.substr(0, cut)}}, split).error, "unexpected end") << cut;
    }
  }
  // A time-out of the wrapped stream at any point loses nothing.
  const Decoded whole = Strict({{wire}}, 1);
  for (size_t at = 0; at < wire.size(); ++at) {
    EXPECT_EQ(Strict({{wire.substr(0, at)}, {"", true}, {"", true}, {wire.substr(at)}}, 1), whole)
        << at;
  }
}

#if KIV_TEST_HAVE_LLHTTP

Decoded Llhttp(const std::string& wire, size_t piece) {
  kiv_llhttp_result r;
  kiv_llhttp_parse(wire.data(), wire.size(), piece, &r);
  Decoded out{std::string(r.body ? r.body : "", r.body_length), "", wire.substr(r.end), ""};
  // As we report them: quoted extension values unquoted (the generator writes no escapes) and
  // trailer values without the trailing blanks that llhttp keeps.
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

std::string Kept(const std::string& wire, unsigned split, unsigned read_size) {
  return kiv::testing::ReadAll(
      kiv::ChunkedSyncIOStreamExp::MakeCapped(kiv::SyncInputStream(new FakeInput(wire, {split}))),
      read_size);
}

// A random valid coding in the part of the grammar that llhttp also reads (see the table of
// differences below): hexadecimal of either case with leading zeros, extensions where only the
// last one has a value, trailer fields.
std::string RandomCoding(std::mt19937& rng) {
  auto pick = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
  auto token = [&] {
    static const char kChars[] = "abcXYZ09-_!#~";
    std::string t;
    for (unsigned i = 0, n = 1 + pick(4); i < n; ++i) t += kChars[pick(sizeof kChars - 1)];
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

TEST(StrictChunkedDifferential, ValidBodiesDecodeAsTheKeptDecoderAndLlhttpDecodeThem) {
  std::vector<std::string> wires = {Read("python_pieces.bin"), Read("python_file.bin"),
                                    Read("python_text_lines.bin"), Read("python_empty.bin")};
  ASSERT_GT(wires[1].size(), 20000u) << "test data missing";
  std::mt19937 rng(7);
  for (int i = 0; i < 300; ++i) wires.push_back(RandomCoding(rng));
  for (std::string& wire : wires) {
    wire += "POST /next HTTP/1.1\r\n";  // the next request on the connection
    const Decoded expected = Llhttp(wire, 1u << 20);
    ASSERT_EQ(expected.error, "") << wire;
    EXPECT_EQ(Llhttp(wire, 1 + rng() % 7), expected);
    const unsigned split = 1 + rng() % 300, read_size = 1 + rng() % 5000;
    EXPECT_EQ(Strict({{wire}}, split, read_size), expected) << split << " " << read_size;
    EXPECT_TRUE(Kept(wire, split, read_size) == expected.body) << split << " " << read_size;
  }
}

// Two parsers that both accept a body must agree on its data, its fields and where it ends, or a
// request hides in the difference. Random damage to valid codings: a byte changed, inserted or
// dropped, from the framing's own alphabet.
TEST(StrictChunkedDifferential, WhereBothAcceptADamagedBodyTheyAgreeOnIt) {
  std::mt19937 rng(11);
  static const char kAlphabet[] = "0123456789aAfF;= \t\r\n\"\\:xX+-";
  int both = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string wire = RandomCoding(rng);
    for (int damage = 1 + rng() % 2; damage > 0; --damage) {
      const size_t at = rng() % wire.size();
      const char c = kAlphabet[rng() % (sizeof kAlphabet - 1)];
      switch (rng() % 3) {
        case 0:
          wire[at] = c;
          break;
        case 1:
          wire.insert(at, 1, c);
          break;
        default:
          wire.erase(at, 1);
          break;
      }
    }
    wire += "POST /next HTTP/1.1\r\n";
    const Decoded ours = Strict({{wire}}, 1 + static_cast<unsigned>(rng() % 64));
    const Decoded theirs = Llhttp(wire, 1u << 20);
    if (ours.error.empty() && theirs.error.empty()) {
      ++both;
      EXPECT_EQ(ours, theirs) << wire;
    }
  }
  EXPECT_GT(both, 100);  // the damage left enough bodies valid to compare
}

// Framing that one parser reads and another refuses is how requests are smuggled; every entry
// here must be refused by both, unless it is one of the deliberate differences listed with it.
TEST(StrictChunkedDifferential, MalformedBodiesAreRefusedWhereLlhttpRefusesThem) {
  const std::string end = "hello\r\n0\r\n\r\n";
  const std::string big_ext = "5;" + std::string(5000, 'x') + "\r\n" + end;
  const std::string malformed[] = {
      // sizes: sign, prefix, blanks, overflow, empty, junk
      "+5\r\n" + end, "-5\r\n" + end, "0x5\r\n" + end, " 5\r\n" + end, "\t5\r\n" + end,
      "5 \r\n" + end, "5\t\r\n" + end, "1 5\r\n" + end, "10000000000000000\r\n" + end,
      "\r\n5\r\n" + end, "5x\r\n" + end, "fffffffffffffff\r\nhello",
      // line breaks: bare LF or CR after the size, after data, in the trailer
      "5\n" + end, "5\r" + end, "5\r\nhello\n0\r\n\r\n", "5\r\nhello\r\r\n0\r\n\r\n",
      "5\r\nhello\r0\r\n\r\n", "5;a=b\rc\r\n" + end, "5\r\nhello\r\n0\r\nA: b\rc\r\n\r\n",
      // chunk data not closed, or longer than announced
      "5\r\nhelloXX0\r\n\r\n", "3\r\nhello\r\n0\r\n\r\n", "5\r\nhello\r\n\r\n0\r\n\r\n",
      // a missing last chunk or trailer end
      "5\r\nhello\r\n", "5\r\nhello\r\n0\r\n", "5\r\nhello\r\n0\r\n\r", "5\r\nhel",
      // extensions
      "5;\r\n" + end, "5;a=\"b\r\n" + end, "5;a=b c\r\n" + end, "5;a=b\x01\r\n" + end,
      "5;\"a\"=b\r\n" + end, "5;a=b=c\r\n" + end, "5;a=\"b\"c\r\n" + end, "5;a \r\n" + end,
      "5;a\x7f\r\n" + end, "5;a=\"\x01\"\r\n" + end,
      // trailer fields
      "5\r\nhello\r\n0\r\nA\r\n\r\n", "5\r\nhello\r\n0\r\nA :b\r\n\r\n",
      "5\r\nhello\r\n0\r\nA: \x01\r\n\r\n", "5\r\nhello\r\n0\r\nA: b\nB: c\r\n\r\n"};
  // Where we deliberately differ from llhttp, and why.
  struct Difference {
    std::string wire;
    bool we_accept;
    const char* why;
  };
  const Difference differences[] = {
      {"5 ;a\r\n" + end, true,
       "the grammar allows blanks before ';' and recipients must read them"},
      {"5; a = b\r\n" + end, true, "the same blanks after ';' and around '='"},
      {"5;a=\"x\\\"y\"\r\n" + end, true, "a quoted value may hold escaped characters"},
      {"5;a=b;c=d\r\n" + end, true, "any number of extensions may follow one with a value"},
      {"5;a=\r\n" + end, false, "a value is a token or a quoted string, never empty"},
      {"5;;a\r\n" + end, false, "an extension name is never empty"},
      {"5\r\nhello\r\n0\r\nA: b\r\n c\r\n\r\n", false,
       "folded lines are obsolete and parsers join them differently"},
      {"5\r\nhello\r\n0\r\n\n", false, "a lone LF ends no line, the trailer's last included"},
      {"5\r\nhello\r\n0\r\n: b\r\n\r\n", false, "a field name is never empty"},
      {big_ext, false, "size lines are bounded (max_line_length, 4 KiB by default)"},
      {"1000001\r\n" + std::string(0x1000001, 'x') + "\r\n0\r\n\r\n", false,
       "chunks are bounded (max_chunk_size, 16 MiB by default)"},
      {"0\r\nA: " + std::string(20000, 'b') + "\r\n\r\n", false,
       "trailers are bounded (max_trailer_size, 16 KiB by default)"},
  };
  for (const std::string& wire : malformed) {
    EXPECT_NE(Strict({{wire}}, 3).error, "") << wire;
    EXPECT_NE(Llhttp(wire, 1u << 20).error, "") << wire;
  }
  for (const Difference& d : differences) {
    EXPECT_EQ(Strict({{d.wire}}, 3).error == "", d.we_accept) << d.wire;
    // Still a difference: llhttp answers the other way.
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
      wire += pick(8) == 0 ? "x\n" : "\r\n";
      // Damage: framing pieces, and now and then a line longer than the decoder's line buffer.
      for (unsigned d = pick(3) == 0 ? pick(4) : 0; d > 0; --d) wire += kPieces[pick(14)];
      if (pick(20) == 0) wire += std::string(60 + pick(10), '0') + "5\r\n";
    }
    wire += pick(4) == 0 ? "" : "0\r\ntrailer: x\r\n\r\n";
    const unsigned read_size = 1 + pick(48);
    const unsigned buffer_size = 1 + pick(70);
    const bool capped = pick(2) == 0;
    SCOPED_TRACE(::testing::Message() << "round " << round << ", read " << read_size << ", buffer "
                                      << buffer_size << (capped ? ", capped" : ""));
    kiv::Buffer bytes = kiv::BufferExp::Make(wire.data(), static_cast<unsigned>(wire.size()));
    auto decode = [&](bool forwarded) {
      kiv::SyncInputStream buffered = kiv::SyncInputStreamExp::Make(
          kiv::SyncInputStreamExp::Make(bytes), kiv::BufferExp::Make(buffer_size));
      kiv::SyncInputStream under =
          forwarded ? kiv::SyncInputStream(new Forwarding(buffered)) : buffered;
      kiv::SyncInputStream chunked = capped ? kiv::ChunkedSyncIOStreamExp::MakeCapped(under)
                                            : kiv::ChunkedSyncIOStreamExp::Make(under);
      std::vector<std::string> reads;
      std::vector<char> buf(read_size);
      while (unsigned n = chunked->Read(buf.data(), read_size, -1))
        reads.emplace_back(buf.data(), n);
      reads.push_back("consumed " + std::to_string(buffered->ToStreamMarker()->GetPosition()));
      return reads;
    };
    std::vector<std::string> direct = decode(true);
    std::vector<std::string> buffered = decode(false);
    ASSERT_EQ(direct, buffered);
  }
}
