// The converting filter streams: bytes pass through a block converter on their way in or out.
//
// Whether a call of the converter did any work is told by its running input position: converters
// advance it exactly by what they consumed, and answer a failure before any work with the sizes
// of the character that failed, leaving the positions alone.
#include <algorithm>
#include <cstring>

#include "io/filter_streams.h"
#include "kiv/exception.h"

namespace kiv {

namespace {

// `bytes` / `factor`, truncated and clamped to `cap`; `bytes` itself for a factor that is not a
// positive number.
unsigned Scale(unsigned bytes, double factor, unsigned cap) noexcept {
  if (!(factor > 0)) return std::min(bytes, cap);
  const double scaled = static_cast<double>(bytes) / factor;
  return scaled >= cap ? cap : static_cast<unsigned>(scaled);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Input

FilterSyncInStream::FilterSyncInStream(const SyncInputStream& in, const BlockConverter& converter)
    : SyncInputStreamWrapper(in), converter_(converter), overflow_(BufferExp::Make(kInputSize)) {
  if (!converter_) Object::DereferencingNULLObj(typeid(BlockConverterItf*));
}

FilterSyncInStream::~FilterSyncInStream() = default;

void FilterSyncInStream::Consume(unsigned n) noexcept {
  n = std::min(n, input_length_);
  input_length_ -= n;
  if (input_length_ > 0 && n > 0) std::memmove(input_, input_ + n, input_length_);
}

unsigned FilterSyncInStream::Refill(unsigned room, std::int64_t timeout) {
  // About the input that fills `room`; at least one byte, so that a caller whose room is smaller
  // than the expansion factor still gets its character (through the overflow store).
  unsigned n = Scale(room, converter_->GetExpansionFactor(), kInputSize);
  if (n == 0) n = 1;
  n = std::min(n, kInputSize - input_length_);
  if (n == 0) return 0;
  const unsigned got = std::min(Wrapped()->Read(input_ + input_length_, n, timeout), n);
  input_length_ += got;
  return got;
}

unsigned FilterSyncInStream::TakeOverflow(unsigned char* out, unsigned count) noexcept {
  const unsigned n = std::min(count, overflow_pending_);
  std::memcpy(out, static_cast<unsigned char*>(overflow_->GetData()) + overflow_offset_, n);
  overflow_offset_ += n;
  overflow_pending_ -= n;
  return n;
}

unsigned FilterSyncInStream::ConvertThroughOverflow(unsigned char* out, unsigned count,
                                                    unsigned out_size) {
  unsigned need = 0;
  unsigned sized_in = input_length_;
  converter_->ComputeSizes(need, out_pos_, input_, sized_in, in_pos_, false);
  if (need == 0) need = out_size;
  if (need == 0) throw DataConverterBufferException(0);
  if (overflow_->GetSize() < need) overflow_ = BufferExp::Make(need);
  unsigned overflow_size = need;
  unsigned in_size = input_length_;
  const unsigned overflow_before = in_pos_;
  const DataConverterItf::BufferResult again = converter_->Convert(
      overflow_->GetData(), overflow_size, out_pos_, input_, in_size, in_pos_, false);
  if (in_pos_ == overflow_before || overflow_size == 0) {
    throw DataConverterBufferException(need);
  }
  Consume(in_size);
  last_ = again;
  overflow_offset_ = 0;
  overflow_pending_ = std::min(overflow_size, overflow_->GetSize());
  return TakeOverflow(out, count);
}

unsigned FilterSyncInStream::Read(void* dst, unsigned count, std::int64_t timeout) {
  if (dst == nullptr || count == 0) return 0;
  auto* out = static_cast<unsigned char*>(dst);
  unsigned delivered = 0;
  if (overflow_pending_ > 0) {
    delivered = TakeOverflow(out, count);
    if (overflow_pending_ > 0) return delivered;
  }
  while (delivered < count) {
    if (input_length_ == 0 || last_ == DataConverterItf::ResultInputIncomplete) {
      unsigned got;
      try {
        // Once the caller has data, a further read must not block a second time.
        got = Refill(count - delivered, delivered > 0 ? 0 : timeout);
      } catch (const IOTimeoutException&) {
        if (delivered > 0) return delivered;
        throw;
      }
      if (got == 0) break;  // end of data, or no room for the character being read
    }
    unsigned out_size = count - delivered;
    unsigned in_size = input_length_;
    const unsigned in_before = in_pos_;
    const DataConverterItf::BufferResult result =
        converter_->Convert(out + delivered, out_size, out_pos_, input_, in_size, in_pos_, false);
    const bool progressed = in_pos_ != in_before;
    if (progressed) {
      Consume(in_size);
      delivered += std::min(out_size, count - delivered);
    }
    last_ = result;
    if (result == DataConverterItf::ResultOK) {
      // A call that did nothing with input at hand wants more of it.
      if (!progressed) last_ = DataConverterItf::ResultInputIncomplete;
      continue;
    }
    if (result == DataConverterItf::ResultInputIncomplete) continue;
    // ResultOutputTooSmall.
    if (delivered > 0) return delivered;
    return ConvertThroughOverflow(out, count, out_size);
  }
  return delivered;
}

// ---------------------------------------------------------------------------------------------
// Output

FilterSyncOutStream::FilterSyncOutStream(const SyncOutputStream& out,
                                         const BlockConverter& converter)
    : SyncOutputStreamWrapper(out), converter_(converter) {
  if (!converter_) Object::DereferencingNULLObj(typeid(BlockConverterItf*));
}

FilterSyncOutStream::~FilterSyncOutStream() = default;

unsigned FilterSyncOutStream::Write(const void* src, unsigned count) {
  static constexpr unsigned kScratch = 512;
  static constexpr unsigned kLargest = 8096;
  if (src == nullptr || count == 0) return 0;
  const auto* in = static_cast<const unsigned char*>(src);
  unsigned char local[kScratch];
  unsigned char* scratch = local;
  unsigned capacity = kScratch;
  Buffer heap;
  const double factor = converter_->GetExpansionFactor();
  if (factor > 0) {
    const double estimate = factor * static_cast<double>(count);
    if (estimate > kScratch) {
      capacity = estimate >= kLargest ? kLargest : static_cast<unsigned>(estimate);
      heap = BufferExp::Make(capacity);
      scratch = static_cast<unsigned char*>(heap->GetData());
    }
  }
  unsigned consumed = 0;
  while (consumed < count) {
    unsigned out_size = capacity;
    unsigned in_size = count - consumed;
    const unsigned in_before = in_pos_;
    const DataConverterItf::BufferResult result =
        converter_->Convert(scratch, out_size, out_pos_, in + consumed, in_size, in_pos_, false);
    const bool progressed = in_pos_ != in_before;
    if (progressed) {
      out_size = std::min(out_size, capacity);
      if (WriteFully(Wrapped().GetObjRef(), scratch, out_size) < out_size) return consumed;
      consumed += std::min(in_size, count - consumed);
    }
    if (result == DataConverterItf::ResultOutputTooSmall) {
      if (progressed) continue;
      // Not one character fits: grow the scratch area to what the converter asks for.
      if (out_size <= capacity) throw DataConverterBufferException(out_size);
      capacity = out_size;
      heap = BufferExp::Make(capacity);
      scratch = static_cast<unsigned char*>(heap->GetData());
      continue;
    }
    // An incomplete character at the end is dropped with this call.
    if (result == DataConverterItf::ResultInputIncomplete || !progressed) break;
  }
  return consumed;
}

void FilterSyncOutStream::Flush() { Wrapped()->Flush(); }

}  // namespace kiv
