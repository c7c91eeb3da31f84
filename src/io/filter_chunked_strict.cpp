// The strict HTTP/1.1 chunked decoder.
//
// Everything a peer sends is checked against the grammar of the coding before it has any effect,
// and every way of breaking it ends the body with one ChunkedFormatException. Where the grammar
// leaves room (blanks around ";" and "=", leading zeros, upper- and lower-case digits) we accept
// exactly what it allows and nothing more: a request is smuggled through the difference between
// what two parsers accept, so the safe answer to anything unusual is a refusal.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "io/filter_streams.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

// Character classes of the coding's grammar, one bit each.
enum : unsigned char {
  kToken = 1,      // tchar: the characters of names and token values
  kQuoted = 2,     // qdtext: what a quoted string holds unescaped
  kEscapable = 4,  // what may follow a backslash in a quoted string
  kFieldChar = 8,  // what a trailer field's value holds (blanks included)
  kBlank = 16,     // SP and HTAB, the optional white space of the grammar
};

constexpr std::array<unsigned char, 256> MakeClasses() {
  std::array<unsigned char, 256> classes{};
  for (unsigned c = 0; c < 256; ++c) {
    const bool visible = (c >= 0x21 && c <= 0x7E) || c >= 0x80;  // VCHAR and obs-text
    const bool blank = c == ' ' || c == '\t';
    unsigned char bits = 0;
    if ((visible || blank) && c != '"' && c != '\\') bits |= kQuoted;
    if (visible || blank) bits |= kEscapable | kFieldChar;
    if (blank) bits |= kBlank;
    classes[c] = bits;
  }
  for (unsigned c = '0'; c <= '9'; ++c) classes[c] |= kToken;
  for (unsigned c = 'a'; c <= 'z'; ++c) classes[c] |= kToken;
  for (unsigned c = 'A'; c <= 'Z'; ++c) classes[c] |= kToken;
  for (const char c : std::string_view("!#$%&'*+-.^_`|~"))
    classes[static_cast<unsigned char>(c)] |= kToken;
  return classes;
}

constexpr std::array<unsigned char, 256> MakeHexValues() {
  std::array<unsigned char, 256> values{};
  for (unsigned c = 0; c < 256; ++c) values[c] = 0xFF;
  for (unsigned c = '0'; c <= '9'; ++c) values[c] = static_cast<unsigned char>(c - '0');
  for (unsigned c = 'a'; c <= 'f'; ++c) values[c] = static_cast<unsigned char>(c - 'a' + 10);
  for (unsigned c = 'A'; c <= 'F'; ++c) values[c] = static_cast<unsigned char>(c - 'A' + 10);
  return values;
}

constexpr std::array<unsigned char, 256> kClasses = MakeClasses();
constexpr std::array<unsigned char, 256> kHexValues = MakeHexValues();

bool Is(unsigned char c, unsigned char what) noexcept { return (kClasses[c] & what) != 0; }

const unsigned char* Skip(const unsigned char* p, const unsigned char* end,
                          unsigned char what) noexcept {
  while (p < end && Is(*p, what)) ++p;
  return p;
}

const unsigned char* Bytes(std::string_view text) noexcept {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

ChunkedSyncInputStreamItf::~ChunkedSyncInputStreamItf() = default;

StrictChunkedSyncInStreamImpl::StrictChunkedSyncInStreamImpl(const SyncInputStream& in,
                                                             const ChunkedLimits& limits)
    : in_(in), limits_(limits), buffer_(new unsigned char[kBlockSize]) {}

StrictChunkedSyncInStreamImpl::~StrictChunkedSyncInStreamImpl() = default;

const std::vector<ChunkedField>& StrictChunkedSyncInStreamImpl::GetExtensions() const {
  return extensions_;
}

const std::vector<ChunkedField>& StrictChunkedSyncInStreamImpl::GetTrailers() const {
  return trailers_;
}

std::uint64_t StrictChunkedSyncInStreamImpl::GetChunkRemaining() const { return remaining_; }

bool StrictChunkedSyncInStreamImpl::IsComplete() const { return state_ == State::kComplete; }

std::string_view StrictChunkedSyncInStreamImpl::GetUnread() const {
  return {reinterpret_cast<const char*>(buffer_.get()) + pos_, end_ - pos_};
}

unsigned StrictChunkedSyncInStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  // A read of nothing says nothing about the data, so it decodes nothing.
  if (count == 0) return 0;
  if (state_ != State::kData && !ReachData(timeout)) return 0;
  const unsigned wanted = static_cast<unsigned>(std::min<std::uint64_t>(count, remaining_));
  unsigned got;
  if (pos_ == end_ && wanted >= kDirectRead) {
    origin_ += pos_;
    pos_ = end_ = 0;
    got = std::min(in_->Read(dst, wanted, timeout), wanted);
    if (got == 0) {
      state_ = State::kTruncated;
      throw UnexpectedEOFException();
    }
    origin_ += got;
  } else {
    if (pos_ == end_) Refill(timeout);
    got = std::min(wanted, end_ - pos_);
    std::memcpy(dst, buffer_.get() + pos_, got);
    pos_ += got;
  }
  remaining_ -= got;
  if (remaining_ == 0) state_ = State::kDataEnd;
  return got;
}

bool StrictChunkedSyncInStreamImpl::TakeShortFrame() noexcept {
  const unsigned char* p = buffer_.get() + pos_;
  const unsigned char* const end = buffer_.get() + end_;
  if (state_ == State::kDataEnd) {
    if (end - p < 2 || p[0] != '\r' || p[1] != '\n') return false;
    p += 2;
  } else if (state_ != State::kSizeLine) {
    return false;  // the body is over, or failed: what is left is not ours to decode
  }
  // Fifteen digits cannot overflow, and a longer size goes the long way.
  const unsigned char* const digits = p;
  const unsigned char* const stop = end - p > kShortSizeDigits ? p + kShortSizeDigits : end;
  std::uint64_t size = 0;
  for (unsigned digit; p < stop && (digit = kHexValues[*p]) < 16; ++p) size = size << 4 | digit;
  if (p == digits || end - p < 2 || p[0] != '\r' || p[1] != '\n' || size == 0 ||
      size > limits_.max_chunk_size ||
      static_cast<std::uint64_t>(p - digits) > limits_.max_line_length) {
    return false;
  }
  extensions_.clear();
  pos_ = static_cast<unsigned>(p + 2 - buffer_.get());
  remaining_ = size;
  state_ = State::kData;
  return true;
}

bool StrictChunkedSyncInStreamImpl::ReachData(std::int64_t timeout) {
  if (TakeShortFrame()) return true;
  for (;;) {
    switch (state_) {
      case State::kData:
        return true;
      case State::kComplete:
        return false;
      case State::kFailed:
        ThrowFailure();
      case State::kTruncated:
        throw UnexpectedEOFException();
      case State::kDataEnd: {
        const unsigned char* p = buffer_.get() + pos_;
        const unsigned available = end_ - pos_;
        if (available >= 2 && p[0] == '\r' && p[1] == '\n') {
          pos_ += 2;
        } else if (available >= 1 && p[0] == '\n' && limits_.accept_bare_lf) {
          pos_ += 1;
        } else if (available == 0 || (available == 1 && p[0] == '\r')) {
          Refill(timeout);
          continue;
        } else if (p[0] == '\r') {
          Refuse("bare CR", Offset());
        } else if (p[0] == '\n') {
          Refuse("bare LF", Offset());
        } else {
          Refuse("missing CR LF after chunk data", Offset());
        }
        state_ = State::kSizeLine;
        continue;
      }
      case State::kSizeLine: {
        std::uint64_t offset = 0;
        const std::string_view line =
            TakeLine(limits_.max_line_length, "chunk size line too long", timeout, offset);
        ParseSizeLine(line, offset);
        line_.clear();
        state_ = remaining_ > 0 ? State::kData : State::kTrailer;
        continue;
      }
      case State::kTrailer: {
        const std::uint64_t start = Offset() - line_.size();
        const std::uint64_t budget = limits_.max_trailer_size - trailer_size_;
        std::uint64_t offset = 0;
        const std::string_view line = TakeLine(static_cast<std::uint32_t>(budget),
                                               "trailer section too long", timeout, offset);
        if (line.empty()) {
          line_.clear();
          state_ = State::kComplete;
          return false;
        }
        ParseTrailerField(line, offset);
        line_.clear();
        // The line fitted, its line break may not.
        if (Offset() - start > budget) Refuse("trailer section too long", offset + budget);
        trailer_size_ += Offset() - start;
        continue;
      }
    }
  }
}

void StrictChunkedSyncInStreamImpl::Refill(std::int64_t timeout) {
  if (pos_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + pos_, end_ - pos_);
    origin_ += pos_;
    end_ -= pos_;
    pos_ = 0;
  }
  const unsigned room = kBlockSize - end_;
  const unsigned got = std::min(in_->Read(buffer_.get() + end_, room, timeout), room);
  if (got == 0) {
    state_ = State::kTruncated;
    throw UnexpectedEOFException();
  }
  end_ += got;
}

std::string_view StrictChunkedSyncInStreamImpl::TakeLine(std::uint32_t limit, const char* too_long,
                                                         std::int64_t timeout,
                                                         std::uint64_t& offset) {
  for (;;) {
    const unsigned char* start = buffer_.get() + pos_;
    const unsigned available = end_ - pos_;
    // The line feed must come within the line's limit, a CR and itself.
    const std::uint64_t room = std::uint64_t{limit} + 2 - line_.size();
    const auto scan = static_cast<unsigned>(std::min<std::uint64_t>(available, room));
    const auto* lf = static_cast<const unsigned char*>(std::memchr(start, '\n', scan));
    if (lf == nullptr) {
      if (line_.empty()) line_offset_ = Offset();
      if (available >= room) Refuse(too_long, line_offset_ + limit);
      line_.append(reinterpret_cast<const char*>(start), available);
      pos_ = end_;
      Refill(timeout);
      continue;
    }
    const auto length = static_cast<unsigned>(lf - start);
    std::string_view line;
    if (line_.empty()) {
      offset = Offset();
      line = {reinterpret_cast<const char*>(start), length};
    } else {
      offset = line_offset_;
      line_.append(reinterpret_cast<const char*>(start), length);
      line = line_;
    }
    const std::uint64_t lf_offset = Offset() + length;
    pos_ += length + 1;
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    } else if (!limits_.accept_bare_lf) {
      Refuse("bare LF", lf_offset);
    }
    if (line.size() > limit) Refuse(too_long, offset + limit);
    return line;
  }
}

void StrictChunkedSyncInStreamImpl::ParseSizeLine(std::string_view line, std::uint64_t offset) {
  const unsigned char* const begin = Bytes(line);
  const unsigned char* const end = begin + line.size();
  const unsigned char* p = begin;
  // Names what is wrong at `at`: a stray CR by its name, anything else by the part of the line.
  const auto refuse = [&](const char* fault, const unsigned char* at) {
    Refuse(at < end && *at == '\r' ? "bare CR" : fault, offset + static_cast<unsigned>(at - begin));
  };
  std::uint64_t size = 0;
  for (unsigned digit; p < end && (digit = kHexValues[*p]) < 16; ++p) {
    if (size >> 60 != 0) refuse("chunk size overflows 64 bits", p);
    size = size << 4 | digit;
  }
  if (p == begin) refuse("bad chunk size", p);
  if (size > limits_.max_chunk_size) refuse("chunk size above the limit", begin);
  extensions_.clear();
  // chunk-ext = *( BWS ";" BWS name [ BWS "=" BWS value ] ): blanks stand only before ";" and
  // "=" and after them, never at the end of the line.
  const unsigned char* const digits_end = p;
  while (p < end) {
    const unsigned char* q = Skip(p, end, kBlank);
    if (q == end || *q != ';') {
      // Before the first extension a stray byte belongs to the size ("5 x", "0x10").
      refuse(p == digits_end ? "bad chunk size" : "bad chunk extension", q == end ? p : q);
    }
    const unsigned char* name = Skip(q + 1, end, kBlank);
    p = Skip(name, end, kToken);
    if (p == name) refuse("bad chunk extension", p);
    ChunkedField field;
    if (limits_.keep_fields) field.name.assign(reinterpret_cast<const char*>(name), p - name);
    q = Skip(p, end, kBlank);
    if (q < end && *q == '=') {
      const unsigned char* value = Skip(q + 1, end, kBlank);
      if (value < end && *value == '"') {
        for (p = value + 1;; ++p) {
          if (p < end && *p == '"') break;
          if (p < end && *p == '\\' && p + 1 < end && Is(p[1], kEscapable)) {
            ++p;
          } else if (p == end || !Is(*p, kQuoted)) {
            refuse("bad chunk extension", p);
          }
          if (limits_.keep_fields) field.value.push_back(static_cast<char>(*p));
        }
        ++p;
      } else {
        p = Skip(value, end, kToken);
        if (p == value) refuse("bad chunk extension", p);
        if (limits_.keep_fields)
          field.value.assign(reinterpret_cast<const char*>(value), p - value);
      }
    }
    if (limits_.keep_fields) extensions_.push_back(std::move(field));
  }
  remaining_ = size;
}

void StrictChunkedSyncInStreamImpl::ParseTrailerField(std::string_view line, std::uint64_t offset) {
  const unsigned char* const begin = Bytes(line);
  const unsigned char* const end = begin + line.size();
  const auto refuse = [&](const char* fault, const unsigned char* at) {
    Refuse(at < end && *at == '\r' ? "bare CR" : fault, offset + static_cast<unsigned>(at - begin));
  };
  // A line that starts with a blank continues the previous one (obsolete folding): refused, as
  // parsers disagree on what it means.
  if (Is(*begin, kBlank)) refuse("folded trailer field", begin);
  const unsigned char* colon = Skip(begin, end, kToken);
  if (colon == begin || colon == end || *colon != ':') refuse("bad trailer field", colon);
  const unsigned char* value = Skip(colon + 1, end, kBlank);
  const unsigned char* value_end = Skip(value, end, kFieldChar);
  if (value_end != end) refuse("bad trailer field", value_end);
  while (value_end > value && Is(value_end[-1], kBlank)) --value_end;
  if (limits_.keep_fields) {
    trailers_.push_back({std::string(reinterpret_cast<const char*>(begin), colon - begin),
                         std::string(reinterpret_cast<const char*>(value), value_end - value)});
  }
}

void StrictChunkedSyncInStreamImpl::Refuse(const char* fault, std::uint64_t offset) {
  char text[96];
  const int length = std::snprintf(text, sizeof text, "%s at byte %llu", fault,
                                   static_cast<unsigned long long>(offset));
  failure_.assign(text, static_cast<std::size_t>(std::max(length, 0)));
  state_ = State::kFailed;
  ThrowFailure();
}

void StrictChunkedSyncInStreamImpl::ThrowFailure() const {
  throw ChunkedFormatException(String(TextEncodingExp::MakeAscii(),
                                      const_cast<char*>(failure_.data()),
                                      static_cast<unsigned>(failure_.size())));
}

}  // namespace kiv
