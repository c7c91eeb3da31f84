// Chunked encoding, then decoding: the payload written in pieces of chosen sizes (empty and
// single-byte writes included) must come out of the encoder as exactly one chunk per non-empty
// write and the last chunk, and back out of the decoder unchanged: of the capped decoder at any
// read sizes, of the plain one when each read asks for at most the rest of its chunk. Both leave
// the empty line that ends the (empty) trailer unread. Input: the write sizes (a length byte and
// that many sizes; 0 is an empty write), the read sizes (likewise), then the payload.
#include <kiv/filters.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::Escaped;

// What the decoder gives for `wire`; `ends` are where the chunks end in the payload.
std::string Decode(const std::string& wire, bool capped, kiv::fuzz::SizeScript reads,
                   const std::vector<std::size_t>& ends, std::string& unread) {
  auto* raw = new kiv::fuzz::ScriptedInput(wire, reads);
  const kiv::SyncInputStream wrapped(raw);
  kiv::SyncInputStream decoder = capped ? kiv::ChunkedSyncIOStreamExp::MakeCapped(wrapped)
                                        : kiv::ChunkedSyncIOStreamExp::Make(wrapped);
  std::string out;
  char piece[256];
  for (std::size_t chunk = 0;;) {
    while (chunk < ends.size() && ends[chunk] <= out.size()) ++chunk;
    std::size_t count = reads.Next(sizeof piece);
    if (!capped && chunk < ends.size()) count = std::min(count, ends[chunk] - out.size());
    const unsigned n = decoder->Read(piece, static_cast<unsigned>(count), -1);
    if (n == 0) break;
    KIV_FUZZ_CHECK(n <= count, "asked for %zu, got %u", count, n);
    out.append(piece, n);
  }
  unread = raw->Rest();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const std::string_view write_sizes = input.Take(input.Byte() % 32);
  const kiv::fuzz::SizeScript reads = kiv::fuzz::SizeScript::From(input);
  const std::string payload(input.Rest());

  auto* sink = new kiv::testing::FakeOutput();
  const kiv::SyncOutputStream wire_stream(sink);
  std::string expected_wire;
  std::vector<std::size_t> ends;
  {
    kiv::SyncOutputStream encoder = kiv::ChunkedSyncIOStreamExp::Make(wire_stream);
    std::size_t written = 0;
    unsigned empty_writes = 0;
    for (std::size_t i = 0; written < payload.size(); ++i) {
      // Empty writes write nothing; after many, the rest goes in one write.
      const std::size_t wish =
          empty_writes > 8      ? payload.size()
          : write_sizes.empty() ? 64
                                : static_cast<unsigned char>(write_sizes[i % write_sizes.size()]);
      const auto count = static_cast<unsigned>(std::min(wish, payload.size() - written));
      if (count == 1 && i % 2 == 0) {
        KIV_FUZZ_CHECK(encoder->Write(static_cast<unsigned char>(payload[written])),
                       "a one-byte write was refused");
      } else {
        KIV_FUZZ_CHECK(encoder->Write(payload.data() + written, count) == count,
                       "a write of %u bytes was not taken whole", count);
      }
      empty_writes += count == 0;
      if (count == 0) continue;
      char header[16];
      std::snprintf(header, sizeof header, "%x\r\n", count);
      expected_wire += header + payload.substr(written, count) + "\r\n";
      ends.push_back(written += count);
    }
    KIV_FUZZ_CHECK(sink->text == expected_wire, "before release: wire \"%s\", expected \"%s\"",
                   Escaped(sink->text).c_str(), Escaped(expected_wire).c_str());
  }
  expected_wire += "0\r\n\r\n";
  KIV_FUZZ_CHECK(sink->text == expected_wire && sink->flushes == 1,
                 "wire \"%s\", expected \"%s\"; releasing flushed %d times",
                 Escaped(sink->text).c_str(), Escaped(expected_wire).c_str(), sink->flushes);

  for (const bool capped : {true, false}) {
    std::string unread;
    const std::string decoded = Decode(sink->text, capped, reads, ends, unread);
    KIV_FUZZ_CHECK(decoded == payload && unread == "\r\n",
                   "%s decoder gave \"%s\" for \"%s\", left \"%s\"", capped ? "capped" : "plain",
                   Escaped(decoded).c_str(), Escaped(payload).c_str(), Escaped(unread).c_str());
  }
  return 0;
}
