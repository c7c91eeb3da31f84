#include "io/stream_null.h"

namespace kiv {

NullSyncInStream::~NullSyncInStream() = default;

unsigned NullSyncInStream::Read(void*, unsigned, std::int64_t) { return 0; }

std::int32_t NullSyncInStream::Read(std::int64_t) { return -1; }

NullSyncOutStream::~NullSyncOutStream() = default;

unsigned NullSyncOutStream::Write(const void*, unsigned count) { return count; }

bool NullSyncOutStream::Write(unsigned char) { return true; }

void NullSyncOutStream::Flush() {}

}  // namespace kiv
