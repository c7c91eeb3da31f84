// Chunked encoding, then decoding: the payload written in pieces of chosen sizes (empty and
// single-byte writes included) must come out of the encoder as exactly one chunk per non-empty
// write and the last chunk, and back out of the decoder unchanged: of the capped decoder at any
// read sizes, of the plain one when each read asks for at most the rest of its chunk. Both leave
// the empty line that ends the (empty) trailer unread.
//
// Input: the write sizes (a length byte and that many sizes; 0 is an empty write), the read
// sizes (likewise), then the payload.
#include <kiv/filters.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::Escaped;

std::string Decode(const std::string& wire, bool capped, kiv::fuzz::SizeScript reads,
                   const std::vector<unsigned>& chunks, std::string& unread) {
  auto* raw = new kiv::fuzz::ScriptedInput(wire, reads);
  const kiv::SyncInputStream wrapped(raw);
  kiv::SyncInputStream decoder = capped ? kiv::ChunkedSyncIOStreamExp::MakeCapped(wrapped)
                                        : kiv::ChunkedSyncIOStreamExp::Make(wrapped);
  std::string out;
  char piece[256];
  std::size_t chunk = 0;
  unsigned chunk_left = chunks.empty() ? 0 : chunks[0];
  for (;;) {
    unsigned count = reads.Next(sizeof piece);
    if (!capped && chunk < chunks.size()) count = std::min(count, chunk_left);
    const unsigned n = decoder->Read(piece, count, -1);
    if (n == 0) break;
    KIV_FUZZ_CHECK(n <= count, "asked for %u, got %u", count, n);
    out.append(piece, n);
    if (chunk < chunks.size() && (chunk_left -= n) == 0 && ++chunk < chunks.size()) {
      chunk_left = chunks[chunk];
    }
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
  std::vector<unsigned> chunks;
  {
    kiv::SyncOutputStream encoder = kiv::ChunkedSyncIOStreamExp::Make(wire_stream);
    std::size_t written = 0;
    unsigned empty_writes = 0;
    for (std::size_t i = 0; written < payload.size(); ++i) {
      const unsigned char wish =
          write_sizes.empty() ? 64
                              : static_cast<unsigned char>(write_sizes[i % write_sizes.size()]);
      const unsigned count =
          static_cast<unsigned>(std::min<std::size_t>(wish, payload.size() - written));
      if (count == 1 && i % 2 == 0) {
        KIV_FUZZ_CHECK(encoder->Write(static_cast<unsigned char>(payload[written])),
                       "a one-byte write was refused");
      } else {
        KIV_FUZZ_CHECK(encoder->Write(payload.data() + written, count) == count,
                       "a write of %u bytes was not taken whole", count);
      }
      if (count == 0) {
        // Empty writes write nothing; the rest goes in one write below once there were many.
        if (++empty_writes > 8) break;
        continue;
      }
      char header[16];
      std::snprintf(header, sizeof header, "%x\r\n", count);
      expected_wire += header;
      expected_wire.append(payload, written, count);
      expected_wire += "\r\n";
      chunks.push_back(count);
      written += count;
    }
    if (written < payload.size()) {
      const unsigned rest = static_cast<unsigned>(payload.size() - written);
      KIV_FUZZ_CHECK(encoder->Write(payload.data() + written, rest) == rest,
                     "the rest was refused");
      char header[16];
      std::snprintf(header, sizeof header, "%x\r\n", rest);
      expected_wire += header + payload.substr(written) + "\r\n";
      chunks.push_back(rest);
    }
    KIV_FUZZ_CHECK(sink->text == expected_wire, "before release: wire \"%s\", expected \"%s\"",
                   Escaped(sink->text).c_str(), Escaped(expected_wire).c_str());
  }
  expected_wire += "0\r\n\r\n";
  KIV_FUZZ_CHECK(sink->text == expected_wire, "wire \"%s\", expected \"%s\"",
                 Escaped(sink->text).c_str(), Escaped(expected_wire).c_str());
  KIV_FUZZ_CHECK(sink->flushes == 1, "releasing flushed %d times", sink->flushes);

  for (const bool capped : {true, false}) {
    std::string unread;
    const std::string decoded = Decode(sink->text, capped, reads, chunks, unread);
    KIV_FUZZ_CHECK(decoded == payload, "%s decoder gave \"%s\" for \"%s\"",
                   capped ? "capped" : "plain", Escaped(decoded).c_str(), Escaped(payload).c_str());
    KIV_FUZZ_CHECK(unread == "\r\n", "%s decoder left \"%s\"", capped ? "capped" : "plain",
                   Escaped(unread).c_str());
  }
  return 0;
}
