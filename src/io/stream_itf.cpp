// The stream interfaces' out-of-line members: destructors (the one home of their type
// information), the default single-byte and random-access operations, and the wrappers'
// forwarding, and the loop that writes a whole block.
#include <algorithm>

#include "io/stream_helpers.h"
#include "kiv/exception.h"
#include "kiv/streams.h"

namespace kiv {

StreamMarkerItf::~StreamMarkerItf() = default;

SyncInputStreamItf::~SyncInputStreamItf() = default;

std::int32_t SyncInputStreamItf::Read(std::int64_t timeout) {
  unsigned char byte;
  if (Read(&byte, 1, timeout) == 0) return -1;
  return byte;
}

bool SyncInputStreamItf::IsRandomAccess() const { return false; }

Ref<StreamMarkerItf> SyncInputStreamItf::ToStreamMarker() { throw NotRandomAccessException(); }

Ref<StreamMarkerItf> SyncInputStreamItf::ToStreamMarker() const {
  throw NotRandomAccessException();
}

SyncOutputStreamItf::~SyncOutputStreamItf() = default;

bool SyncOutputStreamItf::Write(unsigned char byte) { return Write(&byte, 1) == 1; }

bool SyncOutputStreamItf::IsRandomAccess() const { return false; }

Ref<StreamMarkerItf> SyncOutputStreamItf::ToStreamMarker() { throw NotRandomAccessException(); }

Ref<StreamMarkerItf> SyncOutputStreamItf::ToStreamMarker() const {
  throw NotRandomAccessException();
}

SyncInputStreamWrapper::~SyncInputStreamWrapper() = default;

bool SyncInputStreamWrapper::IsRandomAccess() const { return wrapped_->IsRandomAccess(); }

Ref<StreamMarkerItf> SyncInputStreamWrapper::ToStreamMarker() { return wrapped_->ToStreamMarker(); }

Ref<StreamMarkerItf> SyncInputStreamWrapper::ToStreamMarker() const {
  return wrapped_->ToStreamMarker();
}

SyncOutputStreamWrapper::~SyncOutputStreamWrapper() = default;

bool SyncOutputStreamWrapper::IsRandomAccess() const { return wrapped_->IsRandomAccess(); }

Ref<StreamMarkerItf> SyncOutputStreamWrapper::ToStreamMarker() {
  return wrapped_->ToStreamMarker();
}

Ref<StreamMarkerItf> SyncOutputStreamWrapper::ToStreamMarker() const {
  return wrapped_->ToStreamMarker();
}

unsigned WriteFully(SyncOutputStreamItf& out, const void* src, unsigned count) {
  const auto* p = static_cast<const unsigned char*>(src);
  unsigned done = 0;
  while (done < count) {
    const unsigned taken = out.Write(p + done, count - done);
    if (taken == 0) break;
    done += std::min(taken, count - done);
  }
  return done;
}

}  // namespace kiv
