// The chunked decoder (plain and capped) against a model of the decoding rule over any bytes, the
// caller's read sizes and the stream's delivery sizes chosen by the input: every read must give
// the model's bytes, and the decoder must leave unread what the model leaves (the trailer after
// the last chunk, or whatever follows a break). Input: a mode byte (bit 0: capped), the read sizes
// and the delivery sizes (each a length byte and that many sizes), then the wire bytes.
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
    if (!end_ && consumed_ == size_) ReadSizeLine();
    if (end_) return 0;
    const unsigned got = in_.Read(dst, capped_ ? std::min(count, size_ - consumed_) : count, -1);
    consumed_ += got;
    end_ = got == 0;
    if (got != 0 && consumed_ == size_) {  // the CR LF after the data, both bytes read
      const std::int32_t cr = in_.Read(-1), lf = in_.Read(-1);
      end_ = cr != 13 || lf != 10;
    }
    return got;
  }

 private:
  void ReadSizeLine() {
    std::string line;
    for (std::int32_t byte; (byte = in_.Read(-1)) >= 0;) {
      if (byte != 10) {
        line += static_cast<char>(byte);
        if (line.size() == 64) line.clear();  // too long: dropped
      } else if (line.size() >= 2 && line.back() == 13) {
        line.pop_back();
        size_ = kiv::fuzz::Strtoul32(line, 16);
        consumed_ = 0;
        end_ = size_ == 0;
        return;
      } else {
        line.clear();  // empty, a lone CR, or no CR: not a size line
      }
    }
    end_ = true;
  }

  ScriptedInput& in_;
  bool capped_, end_ = false;
  std::uint32_t size_ = 0, consumed_ = 0;
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

  char got[256], want[256];
  // Each read that delivers something takes a byte of the wire at least: this bounds the reads.
  for (std::size_t round = 0; round <= wire.size() + 1; ++round) {
    const unsigned count = reads.Next(sizeof got);
    const unsigned n = decoder->Read(got, count, -1);
    const unsigned m = model.Read(want, count);
    KIV_FUZZ_CHECK(n == m && std::memcmp(got, want, n) == 0,
                   "read %zu of %u bytes: decoder %u, model %u, of \"%s\"", round, count, n, m,
                   Escaped(wire).c_str());
    if (n == 0) {
      KIV_FUZZ_CHECK(decoder->Read(got, count, -1) == 0 && decoder->Read(-1) == -1 &&
                         raw->Rest() == model_in.Rest(),
                     "end not kept, or left unread \"%s\", model \"%s\", of \"%s\"",
                     Escaped(raw->Rest()).c_str(), Escaped(model_in.Rest()).c_str(),
                     Escaped(wire).c_str());
      return 0;
    }
  }
  KIV_FUZZ_CHECK(false, "no end after %zu reads of \"%s\"", wire.size() + 2, Escaped(wire).c_str());
  return 0;
}
