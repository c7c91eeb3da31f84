// Pieces shared by the fuzz targets: a reader over the fuzzer's bytes, the check that stops a run
// with a message, and the tests' stream fakes with read sizes the input chooses.
#ifndef KIV_FUZZ_FUZZ_SUPPORT_H_
#define KIV_FUZZ_FUZZ_SUPPORT_H_

#include <kiv/buffer.h>
#include <kiv/streams.h>
#include <kiv/textio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "../tests/support/fake_streams.h"

// Stops the run when `cond` is false; libFuzzer then keeps the input as a crash.
#define KIV_FUZZ_CHECK(cond, ...)                                                     \
  do {                                                                                \
    if (!(cond)) {                                                                    \
      std::fprintf(stderr, "%s:%d: check failed: %s\n  ", __FILE__, __LINE__, #cond); \
      std::fprintf(stderr, __VA_ARGS__);                                              \
      std::fprintf(stderr, "\n");                                                     \
      std::abort();                                                                   \
    }                                                                                 \
  } while (false)

namespace kiv::fuzz {

// Takes the fuzzer's bytes from the front. Once they run out every value is 0, so a short input
// is still a complete (if dull) case.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool Empty() const noexcept { return pos_ == size_; }
  std::size_t Left() const noexcept { return size_ - pos_; }
  std::uint8_t Byte() noexcept { return Empty() ? 0 : data_[pos_++]; }
  // A little-endian value of `bytes` bytes (at most 4).
  std::uint32_t Bits(unsigned bytes) noexcept {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < bytes; ++i) value |= std::uint32_t{Byte()} << (8 * i);
    return value;
  }
  std::string_view Take(std::size_t n) noexcept {
    n = std::min(n, Left());
    std::string_view piece(reinterpret_cast<const char*>(data_ + pos_), n);
    pos_ += n;
    return piece;
  }
  std::string_view Rest() noexcept { return Take(Left()); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// A cycle of sizes (each at least 1) for reads or writes. The common input layout of the stream
// targets is one byte n, then n size bytes, then the payload: hand-written seeds stay readable.
class SizeScript {
 public:
  SizeScript() = default;
  explicit SizeScript(std::string_view sizes) {
    for (unsigned char c : sizes) sizes_.push_back(c == 0 ? 1u : c);
  }
  static SizeScript From(Input& in) { return SizeScript(in.Take(in.Byte() % 32)); }

  const std::vector<unsigned>& Sizes() const noexcept { return sizes_; }
  // The next size; without a script, `fallback`.
  unsigned Next(unsigned fallback) noexcept {
    if (sizes_.empty()) return fallback;
    const unsigned size = sizes_[next_++ % sizes_.size()];
    return size;
  }

 private:
  std::vector<unsigned> sizes_;
  std::size_t next_ = 0;
};

// The tests' fake input over fixed bytes, its bulk reads delivering at most the next scripted
// size; a single-byte read takes its byte outside the script, which shapes bulk reads only.
class ScriptedInput : public testing::FakeInput {
 public:
  ScriptedInput(std::string bytes, const SizeScript& script)
      : FakeInput(std::move(bytes), script.Sizes()) {}
  using FakeInput::Read;
  std::int32_t Read(std::int64_t) override {
    for (; at_ < pieces_.size(); ++at_, off_ = 0) {
      if (off_ < pieces_[at_].data.size())
        return static_cast<unsigned char>(pieces_[at_].data[off_++]);
    }
    return -1;
  }
};

// The C library's strtoul with a 32-bit unsigned long, as the library reads numbers on every
// platform: a magnitude too large for 32 bits reads as 0xFFFFFFFF, and a minus sign negates in
// 32-bit arithmetic. Taken from the 64-bit strtoull, so it shares no code with the library.
inline std::uint32_t Strtoul32(const std::string& text, int base) {
  const char* p = text.c_str();
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  const bool negative = *p == '-';
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, base);
  if (errno == ERANGE) return 0xFFFFFFFFu;
  const unsigned long long magnitude = negative ? 0 - value : value;
  if (magnitude > 0xFFFFFFFFu) return 0xFFFFFFFFu;
  return negative ? 0u - static_cast<std::uint32_t>(magnitude)
                  : static_cast<std::uint32_t>(magnitude);
}

// The C library's strtol with a 32-bit long: clamped to the 32-bit range.
inline std::int32_t Strtol32(const std::string& text, int base) {
  const long long value = std::strtoll(text.c_str(), nullptr, base);
  return static_cast<std::int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

// A reader of `bytes` in `encoding` over a ScriptedInput, through a read-ahead buffer of
// `read_ahead` bytes.
inline Reader MakeReader(std::string bytes, SizeScript deliveries, const TextEncoding& encoding,
                         unsigned read_ahead) {
  const SyncInputStream in(new ScriptedInput(std::move(bytes), std::move(deliveries)));
  return ReaderExp::Make(TextInputStreamExp::Make(in, BufferExp::Make(read_ahead), encoding), -1);
}

// Bytes printed as C escapes, for failure messages.
inline std::string Escaped(std::string_view bytes) {
  std::string out;
  char hex[8];
  for (unsigned char c : bytes) {
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      out += static_cast<char>(c);
    } else {
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    }
  }
  return out;
}

}  // namespace kiv::fuzz

#endif  // KIV_FUZZ_FUZZ_SUPPORT_H_
