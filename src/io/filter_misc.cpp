// The fixed-length, consume-all and default-timeout input streams, the tee, the logging input
// stream, the thread-safe output stream, and the factories of every filter.
#include <algorithm>

#include "io/filter_streams.h"
#include "kiv/encodings.h"
#include "kiv/exception.h"
#include "kiv/filters.h"
#include "kiv/textio.h"

namespace kiv {

// ---------------------------------------------------------------------------------------------
// Fixed length

FixedLengthSyncInStreamImpl::FixedLengthSyncInStreamImpl(const SyncInputStream& in,
                                                         std::uint32_t limit)
    : SyncInputStreamWrapper(in), limit_(limit) {}

FixedLengthSyncInStreamImpl::~FixedLengthSyncInStreamImpl() = default;

unsigned FixedLengthSyncInStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  if (consumed_ == limit_) return 0;
  const unsigned asked = std::min(count, limit_ - consumed_);
  if (asked == 0) return 0;  // a read of nothing is no early end
  const unsigned got = std::min(Wrapped()->Read(dst, asked, timeout), asked);
  consumed_ += got;
  if (got == 0) consumed_ = limit_;  // the wrapped stream ended early: stay at the end
  return got;
}

std::int32_t FixedLengthSyncInStreamImpl::Read(std::int64_t timeout) {
  if (consumed_ == limit_) return -1;
  const std::int32_t byte = Wrapped()->Read(timeout);
  ++consumed_;
  if (byte < 0) consumed_ = limit_;
  return byte;
}

// ---------------------------------------------------------------------------------------------
// Consume all

ConsumeAllSyncInputStreamImpl::ConsumeAllSyncInputStreamImpl(const SyncInputStream& in,
                                                             std::int64_t timeout)
    : SyncInputStreamWrapper(in), timeout_(timeout) {}

ConsumeAllSyncInputStreamImpl::~ConsumeAllSyncInputStreamImpl() {
  if (end_) return;
  try {
    Buffer drain = BufferExp::Make(kDrainSize);
    while (Wrapped()->Read(drain->GetData(), kDrainSize, timeout_) != 0) {
    }
  } catch (...) {
    // Releasing must not fail; whatever stopped the draining is the connection's owner's to see.
  }
}

unsigned ConsumeAllSyncInputStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  const unsigned got = Wrapped()->Read(dst, count, timeout);
  if (got == 0 && count > 0) end_ = true;
  return got;
}

std::int32_t ConsumeAllSyncInputStreamImpl::Read(std::int64_t timeout) {
  const std::int32_t byte = Wrapped()->Read(timeout);
  if (byte < 0) end_ = true;
  return byte;
}

// ---------------------------------------------------------------------------------------------
// Default timeout

DefaultTimeoutSyncInputStreamImpl::DefaultTimeoutSyncInputStreamImpl(const SyncInputStream& in,
                                                                     std::int64_t timeout)
    : SyncInputStreamWrapper(in), timeout_(timeout) {}

DefaultTimeoutSyncInputStreamImpl::~DefaultTimeoutSyncInputStreamImpl() = default;

unsigned DefaultTimeoutSyncInputStreamImpl::Read(void* dst, unsigned count, std::int64_t timeout) {
  return Wrapped()->Read(dst, count, Effective(timeout));
}

std::int32_t DefaultTimeoutSyncInputStreamImpl::Read(std::int64_t timeout) {
  return Wrapped()->Read(Effective(timeout));
}

// ---------------------------------------------------------------------------------------------
// Tee

TeeSyncOutStream::TeeSyncOutStream(const SyncOutputStream& first, const SyncOutputStream& second)
    : first_(first), second_(second) {}

TeeSyncOutStream::~TeeSyncOutStream() = default;

unsigned TeeSyncOutStream::Write(const void* src, unsigned count) {
  const unsigned taken = first_->Write(src, count);
  if (taken == 0) return 0;
  try {
    second_->Write(src, std::min(taken, count));
  } catch (...) {
    // The second stream is a best-effort copy.
  }
  return taken;
}

bool TeeSyncOutStream::Write(unsigned char byte) {
  if (!first_->Write(byte)) return false;
  try {
    second_->Write(byte);
  } catch (...) {
  }
  return true;
}

void TeeSyncOutStream::Flush() {
  first_->Flush();
  second_->Flush();
}

bool TeeSyncOutStream::IsRandomAccess() const {
  return first_->IsRandomAccess() && second_->IsRandomAccess();
}

std::int64_t TeeSyncOutStream::GetLength() { return first_->ToStreamMarker()->GetLength(); }

std::int64_t TeeSyncOutStream::GetPosition() { return first_->ToStreamMarker()->GetPosition(); }

void TeeSyncOutStream::SetPosition(std::int64_t pos) {
  first_->ToStreamMarker()->SetPosition(pos);
  try {
    second_->ToStreamMarker()->SetPosition(pos);
  } catch (...) {
  }
}

// ---------------------------------------------------------------------------------------------
// Logging input

LoggingSyncInputStream::LoggingSyncInputStream(const SyncInputStream& in,
                                               const SyncOutputStream& log)
    : in_(in), log_(log) {}

LoggingSyncInputStream::~LoggingSyncInputStream() = default;

unsigned LoggingSyncInputStream::Read(void* dst, unsigned count, std::int64_t timeout) {
  const unsigned got = in_->Read(dst, count, timeout);
  if (got > 0) {
    try {
      WriteFully(log_.GetObjRef(), dst, std::min(got, count));
    } catch (...) {
      // The log is a secondary sink.
    }
  }
  return got;
}

std::int32_t LoggingSyncInputStream::Read(std::int64_t timeout) {
  const std::int32_t byte = in_->Read(timeout);
  if (byte >= 1) {
    try {
      log_->Write(static_cast<unsigned char>(byte));
    } catch (...) {
    }
  }
  return byte;
}

bool LoggingSyncInputStream::IsRandomAccess() const { return in_->IsRandomAccess(); }

std::int64_t LoggingSyncInputStream::GetLength() { return in_->ToStreamMarker()->GetLength(); }

std::int64_t LoggingSyncInputStream::GetPosition() { return in_->ToStreamMarker()->GetPosition(); }

void LoggingSyncInputStream::SetPosition(std::int64_t pos) {
  Ref<StreamMarkerItf> marker = in_->ToStreamMarker();
  const std::int64_t old = marker->GetPosition();
  marker->SetPosition(pos);
  if (pos == old) return;
  try {
    Writer writer = WriterExp::Make(TextEncodingExp::MakeAscii(), log_);
    writer->Write("\n### INPUT MARKER RESET FROM ");
    writer->Write(old);
    writer->Write(" TO ");
    writer->Write(pos);
    writer->Write("\n");
    writer->Flush();
  } catch (...) {
  }
}

// ---------------------------------------------------------------------------------------------
// Thread-safe output

MTSyncOutputStreamImpl::MTSyncOutputStreamImpl(const SyncOutputStream& out)
    : out_(out), lock_(ObjectLockExp::Make()) {}

MTSyncOutputStreamImpl::~MTSyncOutputStreamImpl() = default;

unsigned MTSyncOutputStreamImpl::Write(const void* src, unsigned count) {
  ObjectLockGuard guard(lock_);
  return out_->Write(src, count);
}

bool MTSyncOutputStreamImpl::Write(unsigned char byte) {
  ObjectLockGuard guard(lock_);
  return out_->Write(&byte, 1) == 1;
}

void MTSyncOutputStreamImpl::Flush() {
  ObjectLockGuard guard(lock_);
  out_->Flush();
}

bool MTSyncOutputStreamImpl::IsRandomAccess() const {
  ObjectLockGuard guard(lock_);
  return out_->IsRandomAccess();
}

std::int64_t MTSyncOutputStreamImpl::GetLength() {
  ObjectLockGuard guard(lock_);
  return out_->ToStreamMarker()->GetLength();
}

std::int64_t MTSyncOutputStreamImpl::GetPosition() {
  ObjectLockGuard guard(lock_);
  return out_->ToStreamMarker()->GetPosition();
}

void MTSyncOutputStreamImpl::SetPosition(std::int64_t pos) {
  ObjectLockGuard guard(lock_);
  out_->ToStreamMarker()->SetPosition(pos);
}

// ---------------------------------------------------------------------------------------------
// Factories

Ref<SyncInputStreamItf> SyncInputStreamExp::Make(const SyncInputStream& in,
                                                 const BlockConverter& converter) {
  return Ref<SyncInputStreamItf>(new FilterSyncInStream(in, converter));
}

Ref<SyncInputStreamItf> SyncInputStreamExp::Make(const SyncInputStream& in,
                                                 const SyncOutputStream& log) {
  return Ref<SyncInputStreamItf>(new LoggingSyncInputStream(in, log));
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make(const SyncOutputStream& out,
                                                   const BlockConverter& converter) {
  return Ref<SyncOutputStreamItf>(new FilterSyncOutStream(out, converter));
}

Ref<SyncOutputStreamItf> SyncOutputStreamExp::Make(const SyncOutputStream& first,
                                                   const SyncOutputStream& second) {
  return Ref<SyncOutputStreamItf>(new TeeSyncOutStream(first, second));
}

SyncInputStream FixedLengthSyncInputStreamExp::Make(const SyncInputStream& in, unsigned length) {
  return SyncInputStream(new FixedLengthSyncInStreamImpl(in, length));
}

SyncInputStream ChunkedSyncIOStreamExp::Make(const SyncInputStream& in) {
  return SyncInputStream(new ChunkedSyncInStreamImpl(in, false));
}

SyncInputStream ChunkedSyncIOStreamExp::MakeCapped(const SyncInputStream& in) {
  return SyncInputStream(new ChunkedSyncInStreamImpl(in, true));
}

ChunkedSyncInputStream ChunkedSyncIOStreamExp::MakeStrict(const SyncInputStream& in,
                                                          const ChunkedLimits& limits) {
  return ChunkedSyncInputStream(new StrictChunkedSyncInStreamImpl(in, limits));
}

SyncOutputStream ChunkedSyncIOStreamExp::Make(const SyncOutputStream& out) {
  return SyncOutputStream(new ChunkedSyncOutStreamImpl(out));
}

SyncInputStream ConsumeAllSyncInputStreamExp::Make(const SyncInputStream& in,
                                                   std::int64_t timeout) {
  return SyncInputStream(new ConsumeAllSyncInputStreamImpl(in, timeout));
}

SyncInputStream DefaultTimeoutSyncInputStreamExp::Make(const SyncInputStream& in,
                                                       std::int64_t timeout) {
  return SyncInputStream(new DefaultTimeoutSyncInputStreamImpl(in, timeout));
}

SyncOutputStream MTSyncIOStreamExp::Make(const SyncOutputStream& out) {
  return SyncOutputStream(new MTSyncOutputStreamImpl(out));
}

}  // namespace kiv
