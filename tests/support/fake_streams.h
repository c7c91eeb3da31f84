// The fake streams of the tests and fuzz targets: an input that hands out fixed bytes in chosen
// pieces and read sizes (with time-outs between pieces), and an output that records what it is
// given, takes only so much, or fails. Header-only, so that the fuzz targets use the same ones.
#ifndef KIV_TESTS_SUPPORT_FAKE_STREAMS_H_
#define KIV_TESTS_SUPPORT_FAKE_STREAMS_H_

#include <kiv/exception.h>
#include <kiv/streams.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kiv::testing {

// Hands out its pieces of data in order; a read never crosses from one piece into the next and
// takes at most the next of `sizes` (taken in turn and repeated; a size of 0 counts as 1; none: as
// much as asked). A piece marked `timeout` throws IOTimeoutException in place of one read. Every
// bulk read records its count and time-out. What a decoder makes of its input must not depend on
// how the input arrives.
class FakeInput : public SyncInputStreamItf {
 public:
  struct Piece {
    std::string data;
    bool timeout = false;
  };
  explicit FakeInput(std::vector<Piece> pieces, std::vector<unsigned> sizes = {})
      : pieces_(std::move(pieces)), sizes_(std::move(sizes)) {}
  explicit FakeInput(std::string data, std::vector<unsigned> sizes = {})
      : FakeInput(std::vector<Piece>{{std::move(data)}}, std::move(sizes)) {}

  using SyncInputStreamItf::Read;
  unsigned Read(void* dst, unsigned count, std::int64_t timeout) override {
    counts.push_back(count);
    timeouts.push_back(timeout);
    while (at_ < pieces_.size() && !pieces_[at_].timeout && off_ == pieces_[at_].data.size()) {
      ++at_;
      off_ = 0;
    }
    if (at_ == pieces_.size()) return 0;
    if (pieces_[at_].timeout) {
      ++at_;
      throw IOTimeoutException();
    }
    unsigned n = std::min(count, static_cast<unsigned>(pieces_[at_].data.size() - off_));
    if (!sizes_.empty()) n = std::min(n, std::max(1u, sizes_[next_++ % sizes_.size()]));
    std::memcpy(dst, pieces_[at_].data.data() + off_, n);
    off_ += n;
    return n;
  }
  // The bytes no read has taken yet.
  std::string Rest() const {
    std::string rest;
    for (std::size_t i = at_; i < pieces_.size(); ++i) {
      rest += pieces_[i].data.substr(i == at_ ? off_ : 0);
    }
    return rest;
  }

  std::vector<unsigned> counts;
  std::vector<std::int64_t> timeouts;

 protected:
  std::vector<Piece> pieces_;
  std::vector<unsigned> sizes_;
  std::size_t at_ = 0, off_ = 0, next_ = 0;
};

// Records what it is given, in all and write by write; takes at most `max_write` bytes per write
// and `budget` in all, and throws IOCanceledException from every write while `fails` is set.
class FakeOutput : public SyncOutputStreamItf {
 public:
  explicit FakeOutput(unsigned budget = UINT_MAX, unsigned max_write = UINT_MAX)
      : budget_(budget), max_write_(max_write) {}
  using SyncOutputStreamItf::Write;
  unsigned Write(const void* src, unsigned count) override {
    ++writes;
    if (fails) throw IOCanceledException();
    const unsigned n = std::min({count, budget_, max_write_});
    budget_ -= n;
    text.append(static_cast<const char*>(src), n);
    if (n > 0) pieces.emplace_back(static_cast<const char*>(src), n);
    return n;
  }
  void Flush() override { ++flushes; }

  std::string text;
  std::vector<std::string> pieces;  // what each write took, writes that took nothing left out
  int writes = 0;
  int flushes = 0;
  bool fails = false;

 private:
  unsigned budget_, max_write_;
};

}  // namespace kiv::testing

#endif  // KIV_TESTS_SUPPORT_FAKE_STREAMS_H_
