// The chunked decoder (plain and capped) against a small model of the decoding rule, over any
// bytes, with the caller's read sizes and the wrapped stream's delivery sizes chosen by the input.
// Every read must deliver the model's bytes, and the decoder must leave in the wrapped stream
// exactly what the model leaves (the trailer after the last chunk, or whatever follows a break).
//
// Input: a mode byte (bit 0: capped), the caller's read sizes, the wrapped stream's delivery
// sizes (each a length byte and that many sizes), then the wire bytes.
#include <kiv/filters.h>

#include <cstring>
#include <string>

#include "fuzz_support.h"

namespace {

using kiv::fuzz::Escaped;
using kiv::fuzz::ScriptedInput;

// The decoding rule, reading from its own copy of the wrapped stream.
class Model {
 public:
  Model(ScriptedInput& in, bool capped) : in_(in), capped_(capped) {}

  unsigned Read(char* dst, unsigned count) {
    if (end_) return 0;
    if (consumed_ == size_) ReadSizeLine();
    if (end_) return 0;
    const unsigned asked = capped_ ? std::min(count, size_ - consumed_) : count;
    const unsigned got = in_.Read(dst, asked, -1);
    if (got == 0) {
      end_ = true;
      return 0;
    }
    consumed_ += got;
    if (consumed_ == size_) {
      const std::int32_t cr = in_.Read(-1);
      const std::int32_t lf = in_.Read(-1);
      if (cr != 13 || lf != 10) end_ = true;
    }
    return got;
  }

 private:
  static constexpr std::size_t kLineBytes = 64;

  void ReadSizeLine() {
    std::string line;
    for (;;) {
      const std::int32_t byte = in_.Read(-1);
      if (byte < 0) {
        end_ = true;
        return;
      }
      if (byte == 10) {
        if (line.size() >= 2 && line.back() == 13) {
          line.pop_back();
          size_ = kiv::fuzz::Strtoul32(line, 16);
          consumed_ = 0;
          end_ = size_ == 0;
          return;
        }
        line.clear();  // empty, a lone CR, or no CR: not a size line
        continue;
      }
      line += static_cast<char>(byte);
      if (line.size() == kLineBytes) line.clear();  // too long: dropped
    }
  }

  ScriptedInput& in_;
  bool capped_;
  std::uint32_t size_ = 0;
  std::uint32_t consumed_ = 0;
  bool end_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kiv::fuzz::Input input(data, size);
  const bool capped = (input.Byte() & 1) != 0;
  kiv::fuzz::SizeScript reads = kiv::fuzz::SizeScript::From(input);
  const kiv::fuzz::SizeScript deliveries = kiv::fuzz::SizeScript::From(input);
  const std::string wire(input.Rest());

  auto* raw = new ScriptedInput(wire, deliveries);
  const kiv::SyncInputStream wrapped(raw);
  kiv::SyncInputStream decoder = capped ? kiv::ChunkedSyncIOStreamExp::MakeCapped(wrapped)
                                        : kiv::ChunkedSyncIOStreamExp::Make(wrapped);
  ScriptedInput model_in(wire, deliveries);
  Model model(model_in, capped);

  char got[256];
  char want[256];
  std::string decoded;
  // Each read that delivers something takes at least one byte of the wire, so this bounds a
  // decoder that would never end.
  for (std::size_t round = 0; round <= wire.size() + 1; ++round) {
    const unsigned count = reads.Next(sizeof got);
    const unsigned n = decoder->Read(got, count, -1);
    const unsigned m = model.Read(want, count);
    KIV_FUZZ_CHECK(n == m && std::memcmp(got, want, n) == 0,
                   "read %zu of %u bytes: decoder %u, model %u, after \"%s\" of \"%s\"", round,
                   count, n, m, Escaped(decoded).c_str(), Escaped(wire).c_str());
    if (n == 0) {
      KIV_FUZZ_CHECK(decoder->Read(got, count, -1) == 0 && decoder->Read(-1) == -1,
                     "the end did not stay the end");
      KIV_FUZZ_CHECK(raw->Rest() == model_in.Rest(), "left unread \"%s\", model \"%s\", of \"%s\"",
                     Escaped(raw->Rest()).c_str(), Escaped(model_in.Rest()).c_str(),
                     Escaped(wire).c_str());
      return 0;
    }
    decoded.append(got, n);
  }
  KIV_FUZZ_CHECK(false, "no end after %zu reads of \"%s\"", wire.size() + 2, Escaped(wire).c_str());
  return 0;
}
