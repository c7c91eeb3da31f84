// HTTP/1.1 chunked transfer coding: decoding a 16 MiB body cut into chunks of 16 B to 64 KiB,
// with the kept decoder and the strict one, against llhttp and http_parser (each copying the body
// into a sink from its body callback) and against plain memcpy of the payload as the ceiling;
// encoding the same body in 64 KiB writes; and the converting input stream (UTF-8 to UTF-16)
// against the block converter alone.
//
// Reported: time per chunk (the "chunk" counter, in seconds per chunk) and payload bytes per
// second. Every decoder gets the wire as it would come off a connection: the kept decoder reads
// through a 64 KiB buffered input stream (whose fills copy the bytes in), with reads that fit the
// chunking; the strict decoder reads the wire in blocks into its own buffer, with reads as large
// as the sink's room; each peer parses the same bytes in 64 KiB pieces, each first copied into a
// staging buffer. The memcpy ceiling copies only the payload, straight from the wire.
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include <kiv/filters.h>
#include <kiv/streams.h>

#include <benchmark/benchmark.h>

#include "bench_corpus.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#if KIV_BENCH_HAVE_HTTP_PARSER
#include <http_parser.h>
#endif

#if KIV_BENCH_HAVE_LLHTTP
extern "C" std::size_t kiv_bench_llhttp_decode(const char* wire, std::size_t length,
                                               std::size_t piece, char* staging, char* sink);
#endif

namespace {

constexpr std::size_t kBody = 16u << 20;
constexpr std::size_t kPiece = 64u << 10;
const char kHeader[] = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

struct Wire {
  std::string bytes;                  // header, then the chunked body
  std::size_t body_offset = 0;        // where the chunked body starts
  std::vector<std::size_t> payloads;  // offset of each chunk's data
  std::size_t chunk = 0;
};

std::string Body() {
  std::string body(kBody, '\0');
  std::uint32_t x = 1;
  for (auto& c : body) c = static_cast<char>((x = x * 1103515245 + 12345) >> 16);
  return body;
}

const Wire& WireFor(std::size_t chunk) {
  static std::map<std::size_t, Wire> wires;
  Wire& wire = wires[chunk];
  if (!wire.bytes.empty()) return wire;
  static const std::string body = Body();
  wire.chunk = chunk;
  wire.bytes = kHeader;
  wire.body_offset = wire.bytes.size();
  char line[32];
  for (std::size_t i = 0; i < body.size(); i += chunk) {
    const std::size_t n = std::min(chunk, body.size() - i);
    wire.bytes += std::string(line, std::snprintf(line, sizeof line, "%zx\r\n", n));
    wire.payloads.push_back(wire.bytes.size());
    wire.bytes.append(body, i, n);
    wire.bytes += "\r\n";
  }
  wire.bytes += "0\r\n\r\n";
  return wire;
}

char* Sink() {
  static std::vector<char> sink(kBody);
  return sink.data();
}

char* Staging() {
  static std::vector<char> staging(kPiece);
  return staging.data();
}

void Report(benchmark::State& state, const Wire& wire) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBody));
  state.counters["chunk"] = benchmark::Counter(
      static_cast<double>(wire.payloads.size()),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_KivChunkedDecode(benchmark::State& state) {
  const Wire& wire = WireFor(static_cast<std::size_t>(state.range(0)));
  kiv::Buffer read_ahead = kiv::BufferExp::Make(kPiece);
  char* sink = Sink();
  for (auto _ : state) {
    kiv::SyncInputStream memory = kiv::SyncInputStreamExp::Make(
        kiv::BufferExp::Make(const_cast<char*>(wire.bytes.data()) + wire.body_offset,
                             static_cast<unsigned>(wire.bytes.size() - wire.body_offset)));
    kiv::SyncInputStream chunked =
        kiv::ChunkedSyncIOStreamExp::Make(kiv::SyncInputStreamExp::Make(memory, read_ahead));
    std::size_t got = 0;
    for (;;) {
      const std::size_t left = wire.chunk - got % wire.chunk;
      const unsigned n = chunked->Read(sink + got, static_cast<unsigned>(left), -1);
      if (n == 0) break;
      got += n;
    }
    if (got != kBody) state.SkipWithError("wrong body length");
    benchmark::DoNotOptimize(sink);
  }
  Report(state, wire);
}

void BM_KivStrictChunkedDecode(benchmark::State& state) {
  const Wire& wire = WireFor(static_cast<std::size_t>(state.range(0)));
  char* sink = Sink();
  for (auto _ : state) {
    kiv::SyncInputStream memory = kiv::SyncInputStreamExp::Make(
        kiv::BufferExp::Make(const_cast<char*>(wire.bytes.data()) + wire.body_offset,
                             static_cast<unsigned>(wire.bytes.size() - wire.body_offset)));
    kiv::ChunkedSyncInputStream chunked = kiv::ChunkedSyncIOStreamExp::MakeStrict(memory);
    std::size_t got = 0;
    while (const unsigned n = chunked->Read(sink + got, static_cast<unsigned>(kBody - got), -1)) {
      got += n;
    }
    if (got != kBody) state.SkipWithError("wrong body length");
    benchmark::DoNotOptimize(sink);
  }
  Report(state, wire);
}

#if KIV_BENCH_HAVE_LLHTTP
void BM_LlhttpChunkedDecode(benchmark::State& state) {
  const Wire& wire = WireFor(static_cast<std::size_t>(state.range(0)));
  char* sink = Sink();
  for (auto _ : state) {
    const std::size_t got =
        kiv_bench_llhttp_decode(wire.bytes.data(), wire.bytes.size(), kPiece, Staging(), sink);
    if (got != kBody) state.SkipWithError("wrong body length");
    benchmark::DoNotOptimize(sink);
  }
  Report(state, wire);
}
#endif

#if KIV_BENCH_HAVE_HTTP_PARSER
struct ParserSink {
  char* data;
  std::size_t length;
};

int OnBody(http_parser* parser, const char* at, std::size_t length) {
  auto* sink = static_cast<ParserSink*>(parser->data);
  std::memcpy(sink->data + sink->length, at, length);
  sink->length += length;
  return 0;
}

void BM_HttpParserChunkedDecode(benchmark::State& state) {
  const Wire& wire = WireFor(static_cast<std::size_t>(state.range(0)));
  http_parser_settings settings;
  std::memset(&settings, 0, sizeof settings);
  settings.on_body = OnBody;
  for (auto _ : state) {
    http_parser parser;
    http_parser_init(&parser, HTTP_RESPONSE);
    ParserSink sink{Sink(), 0};
    parser.data = &sink;
    for (std::size_t offset = 0; offset < wire.bytes.size(); offset += kPiece) {
      const std::size_t n = std::min(kPiece, wire.bytes.size() - offset);
      std::memcpy(Staging(), wire.bytes.data() + offset, n);
      if (http_parser_execute(&parser, &settings, Staging(), n) != n) {
        state.SkipWithError("parse error");
        break;
      }
    }
    if (sink.length != kBody) state.SkipWithError("wrong body length");
    benchmark::DoNotOptimize(sink.data);
  }
  Report(state, wire);
}
#endif

// The ceiling: copying each chunk's payload, its place already known.
void BM_MemcpyPayload(benchmark::State& state) {
  const Wire& wire = WireFor(static_cast<std::size_t>(state.range(0)));
  char* sink = Sink();
  for (auto _ : state) {
    std::size_t got = 0;
    for (std::size_t offset : wire.payloads) {
      std::memcpy(sink + got, wire.bytes.data() + offset, wire.chunk);
      got += wire.chunk;
    }
    benchmark::DoNotOptimize(sink);
  }
  Report(state, wire);
}

#define KIV_CHUNK_SIZES ->Arg(16)->Arg(256)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_KivChunkedDecode) KIV_CHUNK_SIZES;
BENCHMARK(BM_KivStrictChunkedDecode) KIV_CHUNK_SIZES;
#if KIV_BENCH_HAVE_LLHTTP
BENCHMARK(BM_LlhttpChunkedDecode) KIV_CHUNK_SIZES;
#endif
#if KIV_BENCH_HAVE_HTTP_PARSER
BENCHMARK(BM_HttpParserChunkedDecode) KIV_CHUNK_SIZES;
#endif
BENCHMARK(BM_MemcpyPayload) KIV_CHUNK_SIZES;

// Encoding the body in 64 KiB writes into memory; the last chunk is written on release.
void BM_KivChunkedEncode(benchmark::State& state) {
  static const std::string body = Body();
  const std::size_t write = static_cast<std::size_t>(state.range(0));
  std::vector<char> out(kBody + kBody / write * 16 + 64);
  kiv::Buffer out_buffer = kiv::BufferExp::Make(out.data(), static_cast<unsigned>(out.size()));
  for (auto _ : state) {
    kiv::SyncOutputStream memory = kiv::SyncOutputStreamExp::Make(out_buffer);
    {
      kiv::SyncOutputStream chunked = kiv::ChunkedSyncIOStreamExp::Make(memory);
      for (std::size_t i = 0; i < body.size(); i += write) {
        chunked->Write(body.data() + i, static_cast<unsigned>(std::min(write, body.size() - i)));
      }
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBody));
}
BENCHMARK(BM_KivChunkedEncode)->Arg(65536)->Unit(benchmark::kMillisecond);

// UTF-8 to UTF-16: the converting input stream read in 64 KiB reads, against one call of the
// block converter over the whole text.
const char* const kTexts[] = {"Latin", "Chinese", "Emoji"};

std::string Corpus(int index) {
  std::ifstream in(
      kiv::bench::CorpusDir() + "/unicode_lipsum/" + kTexts[index] + "-Lipsum.utf8.txt",
      std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void BM_KivFilterUtf8ToUtf16(benchmark::State& state) {
  const std::string text = Corpus(static_cast<int>(state.range(0)));
  if (text.empty()) {
    state.SkipWithError("corpus not found (set KIV_CORPUS_DIR)");
    return;
  }
  state.SetLabel(kTexts[state.range(0)]);
  std::vector<char> out(text.size() * 2 + 16);
  kiv::BlockConverter converter = kiv::TextEncodingExp::MakeUTF8()->GetToWideConverter();
  for (auto _ : state) {
    kiv::SyncInputStream in = kiv::SyncInputStreamExp::Make(
        kiv::SyncInputStreamExp::Make(kiv::BufferExp::Make(const_cast<char*>(text.data()),
                                                           static_cast<unsigned>(text.size()))),
        converter);
    std::size_t got = 0;
    while (unsigned n = in->Read(out.data() + got,
                                 static_cast<unsigned>(std::min(kPiece, out.size() - got)), -1)) {
      got += n;
    }
    benchmark::DoNotOptimize(got);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_KivFilterUtf8ToUtf16)->DenseRange(0, 2);

void BM_KivBlockUtf8ToUtf16(benchmark::State& state) {
  const std::string text = Corpus(static_cast<int>(state.range(0)));
  if (text.empty()) {
    state.SkipWithError("corpus not found (set KIV_CORPUS_DIR)");
    return;
  }
  state.SetLabel(kTexts[state.range(0)]);
  std::vector<char> out(text.size() * 2 + 16);
  kiv::BlockConverter converter = kiv::TextEncodingExp::MakeUTF8()->GetToWideConverter();
  for (auto _ : state) {
    unsigned out_size = static_cast<unsigned>(out.size());
    unsigned in_size = static_cast<unsigned>(text.size());
    unsigned out_pos = 0;
    unsigned in_pos = 0;
    converter->Convert(out.data(), out_size, out_pos, text.data(), in_size, in_pos, true);
    benchmark::DoNotOptimize(out_size);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_KivBlockUtf8ToUtf16)->DenseRange(0, 2);

}  // namespace

BENCHMARK_MAIN();
